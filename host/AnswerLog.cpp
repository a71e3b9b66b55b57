#include "host/AnswerLog.h"

namespace velqor {

void AnswerLog::record(Answer answer) {
  Listener listener;
  {
    std::lock_guard lock(mutex_);
    answer.afterFinal = finished_.count(answer.callbackId) > 0;
    if (!answer.keepCallback) finished_.insert(answer.callbackId);
    answers_.push_back(answer);
    listener = listener_;
  }
  if (listener) listener(answer);
}

void AnswerLog::setListener(Listener listener) {
  std::lock_guard lock(mutex_);
  listener_ = std::move(listener);
}

std::vector<Answer> AnswerLog::answers() const {
  std::lock_guard lock(mutex_);
  return answers_;
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
  std::vector<Answer> out;
  for (const auto& a : answers_)
    if (a.afterFinal) out.push_back(a);
  return out;
}

bool AnswerLog::isAnswered(const std::string& callbackId) const {
  std::lock_guard lock(mutex_);
  return finished_.count(callbackId) > 0;
}

size_t AnswerLog::size() const {
  std::lock_guard lock(mutex_);
  return answers_.size();
}

}  // namespace velqor
