#include "session/HtmlText.h"

#include <cstdio>

namespace velqor {

std::string HtmlText::escape(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (char c : text) {
    switch (c) {
      case '<': out += "&lt;"; break;
      case '>': out += "&gt;"; break;
      case '&': out += "&amp;"; break;
      case '"': out += "&quot;"; break;
      case '\'': out += "&#39;"; break;
      default: out += c;
    }
  }
  return out;
}

namespace {

// The first `n` bytes of UTF-8 text, never cutting a character in two.
std::string_view headOf(std::string_view text, size_t n) {
  if (n >= text.size()) return text;
  while (n > 0 && (static_cast<unsigned char>(text[n]) & 0xC0) == 0x80) --n;
  return text.substr(0, n);
}

}  // namespace

std::string HtmlText::folded(std::string_view text, size_t visible, size_t kept) {
  if (text.size() <= visible) return escape(text);
  std::string out = "<details class=\"fold\"><summary><span class=\"head\">" + escape(headOf(text, visible)) +
                    "…</span> <span class=\"length\">(" + std::to_string(text.size()) +
                    " characters)</span></summary><div class=\"whole\">" + escape(headOf(text, kept));
  if (text.size() > kept) out += "… <em>(" + std::to_string(text.size() - kept) + " more characters not shown)</em>";
  return out + "</div></details>";
}

std::string HtmlText::byteSize(std::uintmax_t bytes) {
  char text[32];
  if (bytes < 1000) return std::to_string(bytes) + " bytes";
  if (bytes < 1000 * 1000)
    std::snprintf(text, sizeof text, "%.1f KB", static_cast<double>(bytes) / 1e3);
  else
    std::snprintf(text, sizeof text, "%.1f MB", static_cast<double>(bytes) / 1e6);
  return text;
}

}  // namespace velqor
