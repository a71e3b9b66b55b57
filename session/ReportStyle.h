#pragma once

#include <string_view>

namespace velqor {

// The report's style sheet, inlined so that index.html reads on its own.
//
// Threads: any.
class ReportStyle {
 public:
  static std::string_view css();
};

}  // namespace velqor
