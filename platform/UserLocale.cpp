#include "platform/UserLocale.h"

#include <cstdlib>

namespace velqor {
namespace {

// "fr_FR.UTF-8@euro" -> "fr-FR"; the first entry of a LANGUAGE list.
std::string languageTag(std::string value) {
  value = value.substr(0, value.find(':'));
  value = value.substr(0, value.find('.'));
  value = value.substr(0, value.find('@'));
  for (auto& c : value)
    if (c == '_') c = '-';
  return value;
}

}  // namespace

UserLocale UserLocale::fromEnvironment() {
  UserLocale locale;
  for (const char* name : {"LANGUAGE", "LC_ALL", "LC_MESSAGES", "LANG"}) {
    const char* v = std::getenv(name);
    if (v && *v) {
      std::string tag = languageTag(v);
      if (tag.empty()) continue;
      locale.language = (tag == "C" || tag == "POSIX") ? "en" : tag;
      break;
    }
  }
  if (locale.language.empty()) locale.language = "en";
  return locale;
}

}  // namespace velqor
