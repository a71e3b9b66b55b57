#pragma once

#include <cstddef>
#include <string_view>

#include "host/StatusOr.h"

namespace velqor {

// Regular-expression search for scenario expectations, on RE2: its automata
// run in time linear in the text and never recurse on it, so a pattern like
// "(a+)+$" or "^(.|\n)*$" over a data URL of several megabytes cannot hang or
// overflow the stack. Patterns past kMaxPatternBytes are refused, and only
// the first kMaxTextBytes of a text are searched.
//
// Threads: any; no state.
class PatternMatcher {
 public:
  static constexpr size_t kMaxPatternBytes = 1024;
  static constexpr size_t kMaxTextBytes = size_t{1} << 20;

  // True when `pattern` matches somewhere in (the searched part of) `text`;
  // INVALID_ARGUMENT for a pattern RE2 cannot compile or that is too long.
  static StatusOr<bool> search(std::string_view pattern, std::string_view text);
};

}  // namespace velqor
