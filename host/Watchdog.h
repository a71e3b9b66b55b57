#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "host/CompletionMonitor.h"

namespace velqor {

// Collects completions that broke their contract, by operation name, and
// reports each on stderr as it happens, so a lost or doubled completion is
// found in minutes.
//
// Threads: any.
class Watchdog final : public CompletionMonitor {
 public:
  explicit Watchdog(bool print = true) : print_(print) {}
  void completionCalledTwice(const std::string& operation) override;
  void completionNeverCalled(const std::string& operation) override;
  std::vector<std::string> reports() const;

 private:
  bool print_;
  mutable std::mutex mutex_;
  std::vector<std::string> reports_;
};

}  // namespace velqor
