#include "platform/UserLocale.h"

#include <algorithm>
#include <cstdlib>

namespace velqor {
namespace {

// "fr_FR.UTF-8@euro" -> "fr-FR"; "C" and "POSIX" -> "en".
std::string languageTag(std::string value) {
  value = value.substr(0, value.find('.'));
  value = value.substr(0, value.find('@'));
  std::replace(value.begin(), value.end(), '_', '-');
  return (value == "C" || value == "POSIX") ? "en" : value;
}

void addOnce(std::vector<std::string>& list, const std::string& tag) {
  if (!tag.empty() && std::find(list.begin(), list.end(), tag) == list.end()) list.push_back(tag);
}

std::string variable(const char* name) {
  const char* v = std::getenv(name);
  return v ? v : "";
}

}  // namespace

std::vector<std::string> UserLocale::languageList(const std::string& text) {
  std::vector<std::string> out;
  size_t start = 0;
  while (start <= text.size()) {
    const size_t end = std::min(text.find(':', start), text.find(',', start));
    addOnce(out, languageTag(text.substr(start, end == std::string::npos ? std::string::npos : end - start)));
    if (end == std::string::npos) break;
    start = end + 1;
  }
  return out;
}

UserLocale UserLocale::fromEnvironment() {
  UserLocale locale;
  locale.preferredLanguages = languageList(variable("LANGUAGE"));
  for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
    const std::string value = variable(name);
    if (value.empty()) continue;
    addOnce(locale.preferredLanguages, languageTag(value));
    break;
  }
  return locale;
}

}  // namespace velqor
