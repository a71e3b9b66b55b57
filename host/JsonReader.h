#pragma once

#include <cstddef>
#include <string_view>

#include <nlohmann/json.hpp>

#include "host/StatusOr.h"

namespace velqor {

// Reads JSON text that came from outside the process (argument lists, scenario
// files, HTTP bodies) within limits: text longer than `maxBytes` or nested
// deeper than `maxDepth` is refused before it is parsed, so no later recursive
// walk of the result (conversion, printing) can exhaust the stack.
//
// Threads: any; no state.
class JsonReader {
 public:
  struct Limits {
    size_t maxBytes = size_t{1} << 20;
    size_t maxDepth = 64;
  };

  // RESOURCE_EXHAUSTED for text past a limit, INVALID_ARGUMENT for text that
  // is not JSON; both name `what` ("arguments", a file name, "the request body").
  static StatusOr<nlohmann::json> parse(std::string_view text, std::string_view what, const Limits& limits);
  static StatusOr<nlohmann::json> parse(std::string_view text, std::string_view what) {
    return parse(text, what, Limits{});
  }

  // The deepest nesting of arrays and objects in `text` (strings skipped),
  // counting no further than `stopAt`.
  static size_t depthOf(std::string_view text, size_t stopAt);
};

}  // namespace velqor
