#pragma once

#include <optional>
#include <string>
#include <vector>

namespace velqor {

// Which of a bundle's localizations serves a user, chosen as the phone
// chooses: the user's preferred languages are tried in order, and the first
// one that any localization serves wins. For one preferred language a
// localization serves it, best first, as
//   1. the same tag ("pt-BR" for pt-BR),
//   2. the tag with its region dropped ("zh-Hant" for zh-Hant-TW, "fr" for
//      fr-CA), when that keeps the script (plain "zh" is Simplified and does
//      not serve zh-TW),
//   3. the same language, script and region once the likely script and
//      region are filled in ("zh-Hant" or "zh-TW" for zh-Hant-TW, "pt-BR" for
//      plain pt: a language that only ships regional tables),
//   4. the same language and script in another region ("pt-PT" for pt-BR).
// Only when no preferred language is served does the development language
// (then "Base") answer. Tags compare without regard to case or "_" and "-".
//
// Threads: any; pure.
class LocalizationChoice {
 public:
  static constexpr const char* kDevelopmentLanguage = "en";

  // The chosen entry of `available` (as written there); none when nothing,
  // not even the development language, is available.
  static std::optional<std::string> choose(const std::vector<std::string>& available,
                                           const std::vector<std::string>& preferred);
};

}  // namespace velqor
