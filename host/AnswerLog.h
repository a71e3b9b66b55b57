#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "host/Answer.h"

namespace velqor {

// Every answer the host received, in arrival order. A second answer to a
// command that already had a final one is kept and flagged, never dropped.
//
// Threads: all operations from any thread.
class AnswerLog {
 public:
  using Listener = std::function<void(const Answer&)>;

  void record(Answer answer);
  void setListener(Listener listener);

  // A long-running host keeps only the last `keep` answers whole; older ones
  // leave their count per command and, when they came after a final answer,
  // their record. Unlimited by default.
  void setRetention(size_t keep);
  // Also keeps the kept answers' JSON within `bytes` in all (the newest one
  // is always kept): a data-URL answer weighs megabytes.
  void setRetentionBytes(size_t bytes);

  // The answers kept, in arrival order.
  std::vector<Answer> answers() const;
  // The kept answers whose arrival index (from 0) is `index` or later.
  std::vector<Answer> answersFrom(size_t index) const;
  std::vector<Answer> answersFor(const std::string& callbackId) const;
  // The answer with arrival index `index`; none when it is not (or no longer) kept.
  std::optional<Answer> answerAt(size_t index) const;
  // How many answers a command received, kept or not.
  size_t answerCount(const std::string& callbackId) const;
  // Answers that arrived after their command's final answer.
  std::vector<Answer> doubleAnswers() const;
  bool isAnswered(const std::string& callbackId) const;
  // Every answer ever recorded, kept or not.
  size_t size() const;

 private:
  mutable std::mutex mutex_;
  std::deque<Answer> answers_;
  size_t dropped_ = 0;
  size_t retention_ = SIZE_MAX;
  size_t retentionBytes_ = SIZE_MAX;
  size_t keptBytes_ = 0;
  std::deque<size_t> sizes_;  // JSON size of each kept answer
  void dropOldest();
  std::set<std::string> finished_;
  std::unordered_map<std::string, size_t> counts_;
  std::vector<Answer> doubled_;
  Listener listener_;
};

}  // namespace velqor
