#include "host/AnswerLog.h"

namespace velqor {

void AnswerLog::record(Answer answer) {
  Listener listener;
  {
    std::lock_guard lock(mutex_);
    answer.recordedAt = std::chrono::system_clock::now();
    answer.afterFinal = finished_.count(answer.callbackId) > 0;
    if (!answer.keepCallback) finished_.insert(answer.callbackId);
    ++counts_[answer.callbackId];
    if (answer.afterFinal) doubled_.push_back(answer);
    const size_t bytes = retentionBytes_ == SIZE_MAX ? 0 : answer.toJson().dump(-1, ' ', false, nlohmann::json::error_handler_t::replace).size();
    answers_.push_back(answer);
    sizes_.push_back(bytes);
    keptBytes_ += bytes;
    while (answers_.size() > retention_ || (answers_.size() > 1 && keptBytes_ > retentionBytes_)) dropOldest();
    listener = listener_;
  }
  if (listener) listener(answer);
}

void AnswerLog::setListener(Listener listener) {
  std::lock_guard lock(mutex_);
  listener_ = std::move(listener);
}

void AnswerLog::setRetention(size_t keep) {
  std::lock_guard lock(mutex_);
  retention_ = keep;
  while (answers_.size() > retention_) dropOldest();
}

void AnswerLog::setRetentionBytes(size_t bytes) {
  std::lock_guard lock(mutex_);
  retentionBytes_ = bytes;
  keptBytes_ = 0;
  for (size_t i = 0; i < answers_.size(); ++i) {
    sizes_[i] = answers_[i].toJson().dump(-1, ' ', false, nlohmann::json::error_handler_t::replace).size();
    keptBytes_ += sizes_[i];
  }
  while (answers_.size() > 1 && keptBytes_ > retentionBytes_) dropOldest();
}

void AnswerLog::dropOldest() {
  keptBytes_ -= sizes_.front();
  sizes_.pop_front();
  answers_.pop_front();
  ++dropped_;
}

std::vector<Answer> AnswerLog::answers() const {
  std::lock_guard lock(mutex_);
  return {answers_.begin(), answers_.end()};
}

std::vector<Answer> AnswerLog::answersFrom(size_t index) const {
  std::lock_guard lock(mutex_);
  const size_t skip = index > dropped_ ? index - dropped_ : 0;
  if (skip >= answers_.size()) return {};
  return {answers_.begin() + static_cast<std::ptrdiff_t>(skip), answers_.end()};
}

std::optional<Answer> AnswerLog::answerAt(size_t index) const {
  std::lock_guard lock(mutex_);
  if (index < dropped_ || index - dropped_ >= answers_.size()) return std::nullopt;
  return answers_[index - dropped_];
}

size_t AnswerLog::answerCount(const std::string& callbackId) const {
  std::lock_guard lock(mutex_);
  const auto it = counts_.find(callbackId);
  return it == counts_.end() ? 0 : it->second;
}

std::vector<Answer> AnswerLog::answersFor(const std::string& callbackId) const {
  std::lock_guard lock(mutex_);
  std::vector<Answer> out;
  for (const auto& a : answers_)
    if (a.callbackId == callbackId) out.push_back(a);
  return out;
}

std::vector<Answer> AnswerLog::doubleAnswers() const {
  std::lock_guard lock(mutex_);
  return doubled_;
}

bool AnswerLog::isAnswered(const std::string& callbackId) const {
  std::lock_guard lock(mutex_);
  return finished_.count(callbackId) > 0;
}

size_t AnswerLog::size() const {
  std::lock_guard lock(mutex_);
  return dropped_ + answers_.size();
}

}  // namespace velqor
