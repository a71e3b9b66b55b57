#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/LanguageSetting.h"

namespace velqor {

// The user's languages, formatting locale and time zone as the device reports
// them. Empty fields mean "the process default" (ICU's reading of TZ and the
// locale variables).
struct UserLocale {
  // For the strings tables, most preferred first: "pt-BR", "fr", "en".
  std::vector<std::string> preferredLanguages;
  std::string icuLocale;  // for date formatting: "en_US", "ar_EG"
  std::string timeZone;   // an Olson id such as "Europe/Paris"
  // Set by a host whose user may change languages while it runs; a list
  // chosen there wins over preferredLanguages.
  std::shared_ptr<LanguageSetting> changeable;

  // The languages in effect, most preferred first.
  std::vector<std::string> languages() const {
    if (changeable)
      if (auto chosen = changeable->get(); !chosen.empty()) return chosen;
    return preferredLanguages;
  }

  // Reads the preferred languages the way gettext does: every entry of the
  // LANGUAGE list in order, then the first of LC_ALL, LC_MESSAGES and LANG
  // that is set. "C" and "POSIX" count as English; repeats are dropped.
  static UserLocale fromEnvironment();
  // "sv:fr_CA.UTF-8:pt" (colons or commas between entries) as language tags:
  // {"sv", "fr-CA", "pt"}.
  static std::vector<std::string> languageList(const std::string& text);
};

}  // namespace velqor
