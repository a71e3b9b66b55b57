#include "host/Watchdog.h"

#include <cstdio>

namespace velqor {

void Watchdog::completionCalledTwice(const std::string& operation) {
  std::string line = "watchdog: the completion of " + operation + " was called more than once; the later call was ignored";
  if (print_) std::fprintf(stderr, "%s\n", line.c_str());
  std::lock_guard lock(mutex_);
  reports_.push_back(line);
}

void Watchdog::completionNeverCalled(const std::string& operation) {
  std::string line = "watchdog: the completion of " + operation + " was dropped without being called; its task waits forever";
  if (print_) std::fprintf(stderr, "%s\n", line.c_str());
  std::lock_guard lock(mutex_);
  reports_.push_back(line);
}

std::vector<std::string> Watchdog::reports() const {
  std::lock_guard lock(mutex_);
  return reports_;
}

}  // namespace velqor
