#pragma once

#include <string>

namespace velqor {

// Hears about completions that break their contract: called a second time, or
// dropped without ever being called. The host's watchdog implements it.
//
// Threads: called from whichever thread dropped or repeated the completion.
class CompletionMonitor {
 public:
  virtual ~CompletionMonitor() = default;
  virtual void completionCalledTwice(const std::string& operation) = 0;
  virtual void completionNeverCalled(const std::string& operation) = 0;
};

}  // namespace velqor
