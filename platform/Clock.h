#pragma once

#include <chrono>

namespace velqor {

// The device clock. Tests inject a fixed one.
//
// Threads: any.
class Clock {
 public:
  virtual ~Clock() = default;
  virtual std::chrono::system_clock::time_point now() const = 0;
};

class SystemClock final : public Clock {
 public:
  std::chrono::system_clock::time_point now() const override {
    return std::chrono::system_clock::now();
  }
};

}  // namespace velqor
