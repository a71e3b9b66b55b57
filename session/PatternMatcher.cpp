#include "session/PatternMatcher.h"

#include <re2/re2.h>

#include <algorithm>
#include <string>

namespace velqor {

StatusOr<bool> PatternMatcher::search(std::string_view pattern, std::string_view text) {
  if (pattern.size() > kMaxPatternBytes)
    return Status::invalidArgument("a regex is limited to " + std::to_string(kMaxPatternBytes) + " bytes");
  RE2::Options options;
  options.set_log_errors(false);
  options.set_max_mem(8 << 20);  // bounds the compiled program of a hostile pattern
  RE2 re(re2::StringPiece(pattern.data(), pattern.size()), options);
  if (!re.ok()) return Status::invalidArgument("invalid regex \"" + std::string(pattern) + "\": " + re.error());
  const std::string_view searched = text.substr(0, std::min(text.size(), kMaxTextBytes));
  return RE2::PartialMatch(re2::StringPiece(searched.data(), searched.size()), re);
}

}  // namespace velqor
