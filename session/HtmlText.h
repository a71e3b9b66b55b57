#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace velqor {

// Text made safe for an HTML page, and long values folded so that a report
// never runs sideways: a short head stays visible, the rest opens on a click.
//
// Threads: any; pure.
class HtmlText {
 public:
  static std::string escape(std::string_view text);
  // `text` escaped; when it is longer than `visible` characters, a <details>
  // whose summary shows the head and the length, holding at most `kept`
  // characters of the whole.
  static std::string folded(std::string_view text, size_t visible = 120, size_t kept = 4096);
  // "12 bytes", "3.4 KB", "1.2 MB".
  static std::string byteSize(std::uintmax_t bytes);
};

}  // namespace velqor
