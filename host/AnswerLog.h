#pragma once

#include <functional>
#include <mutex>
#include <set>
#include <string>
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

  std::vector<Answer> answers() const;
  std::vector<Answer> answersFor(const std::string& callbackId) const;
  // Answers that arrived after their command's final answer.
  std::vector<Answer> doubleAnswers() const;
  bool isAnswered(const std::string& callbackId) const;
  size_t size() const;

 private:
  mutable std::mutex mutex_;
  std::vector<Answer> answers_;
  std::set<std::string> finished_;
  Listener listener_;
};

}  // namespace velqor
