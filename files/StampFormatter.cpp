#include "files/StampFormatter.h"

#include <unicode/locid.h>
#include <unicode/smpdtfmt.h>
#include <unicode/timezone.h>

#include <memory>

namespace velqor {

std::string StampFormatter::format(std::chrono::system_clock::time_point when,
                                   const UserLocale& locale) {
  UErrorCode status = U_ZERO_ERROR;
  icu::Locale icuLocale = locale.icuLocale.empty() ? icu::Locale::getDefault()
                                                   : icu::Locale(locale.icuLocale.c_str());
  icu::SimpleDateFormat formatter(icu::UnicodeString("yyyyMMddhhmmss"), icuLocale, status);
  if (U_FAILURE(status)) {
    status = U_ZERO_ERROR;
    formatter = icu::SimpleDateFormat(icu::UnicodeString("yyyyMMddhhmmss"), status);
  }
  if (!locale.timeZone.empty())
    formatter.adoptTimeZone(icu::TimeZone::createTimeZone(icu::UnicodeString::fromUTF8(locale.timeZone)));
  auto millis = std::chrono::duration_cast<std::chrono::milliseconds>(when.time_since_epoch()).count();
  icu::UnicodeString text;
  formatter.format(static_cast<UDate>(millis), text);
  std::string out;
  text.toUTF8String(out);
  return out;
}

}  // namespace velqor
