#include "platform/LocalizationChoice.h"

#include <unicode/locid.h>

#include <algorithm>
#include <cctype>

namespace velqor {
namespace {

struct Tag {
  std::string language, script, region;  // lower case
  std::string maxScript, maxRegion;      // with the likely subtags filled in
};

std::string lower(std::string s) {
  for (auto& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return s;
}

std::optional<Tag> parse(std::string text) {
  std::replace(text.begin(), text.end(), '_', '-');
  UErrorCode status = U_ZERO_ERROR;
  icu::Locale locale = icu::Locale::forLanguageTag(text, status);
  if (U_FAILURE(status) || locale.isBogus() || !*locale.getLanguage()) return std::nullopt;
  Tag tag{lower(locale.getLanguage()), lower(locale.getScript()), lower(locale.getCountry()), {}, {}};
  icu::Locale likely = locale;
  likely.addLikelySubtags(status);
  tag.maxScript = U_SUCCESS(status) ? lower(likely.getScript()) : tag.script;
  tag.maxRegion = U_SUCCESS(status) ? lower(likely.getCountry()) : tag.region;
  return tag;
}

// How well `a` serves the wanted tag `w`, 1 (best) to 4; 0 when it does not.
int rank(const Tag& a, const Tag& w) {
  if (a.language != w.language) return 0;
  if (a.script == w.script && a.region == w.region) return 1;
  if (a.region.empty() && a.script == w.script && a.maxScript == w.maxScript) return 2;
  if (a.maxScript != w.maxScript) return 0;
  return a.maxRegion == w.maxRegion ? 3 : 4;
}

std::optional<std::string> best(const std::vector<std::string>& available, const std::string& wanted) {
  auto w = parse(wanted);
  if (!w) return std::nullopt;
  std::optional<std::string> chosen;
  int chosenRank = 5;
  for (const auto& name : available) {
    auto a = parse(name);
    const int r = a ? rank(*a, *w) : 0;
    // Ties go to the first name in sorted order, so the choice never depends on directory order.
    if (r > 0 && (r < chosenRank || (r == chosenRank && name < *chosen))) {
      chosen = name;
      chosenRank = r;
    }
  }
  return chosen;
}

}  // namespace

std::optional<std::string> LocalizationChoice::choose(const std::vector<std::string>& available,
                                                      const std::vector<std::string>& preferred) {
  for (const auto& wanted : preferred)
    if (auto found = best(available, wanted)) return found;
  if (auto found = best(available, kDevelopmentLanguage)) return found;
  for (const auto& name : available)
    if (lower(name) == "base") return name;
  return std::nullopt;
}

}  // namespace velqor
