#include "host/JsonReader.h"

#include <algorithm>
#include <string>

namespace velqor {

size_t JsonReader::depthOf(std::string_view text, size_t stopAt) {
  size_t depth = 0, deepest = 0;
  bool inString = false, escaped = false;
  for (char c : text) {
    if (inString) {
      if (escaped) escaped = false;
      else if (c == '\\') escaped = true;
      else if (c == '"') inString = false;
      continue;
    }
    if (c == '"') {
      inString = true;
    } else if (c == '[' || c == '{') {
      deepest = std::max(deepest, ++depth);
      if (deepest >= stopAt) return deepest;
    } else if ((c == ']' || c == '}') && depth > 0) {
      --depth;
    }
  }
  return deepest;
}

StatusOr<nlohmann::json> JsonReader::parse(std::string_view text, std::string_view what, const Limits& limits) {
  const std::string name(what);
  if (text.size() > limits.maxBytes)
    return Status::resourceExhausted(name + " is " + std::to_string(text.size()) + " bytes; the limit is " +
                                   std::to_string(limits.maxBytes));
  if (depthOf(text, limits.maxDepth + 1) > limits.maxDepth)
    return Status::resourceExhausted(name + " nests arrays and objects more than " + std::to_string(limits.maxDepth) +
                                   " deep");
  auto parsed = nlohmann::json::parse(text, nullptr, false);
  if (parsed.is_discarded()) return Status::invalidArgument(name + " is not valid JSON");
  return parsed;
}

}  // namespace velqor
