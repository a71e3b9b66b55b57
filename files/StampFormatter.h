#pragma once

#include <chrono>
#include <string>

#include "platform/UserLocale.h"

namespace velqor {

// Formats the time stamp of temporary file names: the pattern "yyyyMMddhhmmss"
// through ICU in the user's locale, calendar and time zone. "hh" is the hour of
// the 12-hour clock (01-12) and there is no AM/PM field, so 13:30:05 and
// 01:30:05 give the same stamp.
//
// Threads: any; each call makes its own formatter.
class StampFormatter {
 public:
  static std::string format(std::chrono::system_clock::time_point when, const UserLocale& locale);
};

}  // namespace velqor
