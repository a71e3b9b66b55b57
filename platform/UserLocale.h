#pragma once

#include <string>

namespace velqor {

// The user's language, formatting locale and time zone as the device reports
// them. Empty fields mean "the process default" (ICU's reading of TZ and the
// locale variables).
struct UserLocale {
  std::string language;   // for the strings tables: "en", "fr", "pt-BR"
  std::string icuLocale;  // for date formatting: "en_US", "ar_EG"
  std::string timeZone;   // an Olson id such as "Europe/Paris"

  // Reads LANGUAGE, LC_ALL, LC_MESSAGES and LANG, in that order, the way
  // gettext does; "C" and "POSIX" count as English.
  static UserLocale fromEnvironment();
};

}  // namespace velqor
