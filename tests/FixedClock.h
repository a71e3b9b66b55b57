#pragma once

#include <chrono>
#include <ctime>

#include "platform/Clock.h"

namespace velqor::testing {

class FixedClock final : public Clock {
 public:
  explicit FixedClock(std::chrono::system_clock::time_point t) : t_(t) {}
  std::chrono::system_clock::time_point now() const override { return t_; }

  // A UTC civil time.
  static std::chrono::system_clock::time_point utc(int y, int mo, int d, int h, int mi, int s, int ms = 0) {
    std::tm tm{};
    tm.tm_year = y - 1900;
    tm.tm_mon = mo - 1;
    tm.tm_mday = d;
    tm.tm_hour = h;
    tm.tm_min = mi;
    tm.tm_sec = s;
    return std::chrono::system_clock::from_time_t(::timegm(&tm)) + std::chrono::milliseconds(ms);
  }

 private:
  std::chrono::system_clock::time_point t_;
};

}  // namespace velqor::testing
