#include "web/HttpFraming.h"

#include <algorithm>
#include <cctype>
#include <strings.h>

namespace velqor {
namespace {

std::string trimmedLower(const std::string& s) {
  const auto first = s.find_first_not_of(" \t");
  if (first == std::string::npos) return "";
  const auto last = s.find_last_not_of(" \t");
  std::string out = s.substr(first, last - first + 1);
  std::transform(out.begin(), out.end(), out.begin(), [](unsigned char c) { return std::tolower(c); });
  return out;
}

}  // namespace

std::optional<RequestGuard::Refusal> HttpFraming::check(const Fields& fields) {
  std::optional<std::string> length;
  std::vector<std::string> codings;
  bool transferEncoding = false;
  for (const auto& [name, value] : fields) {
    if (::strcasecmp(name.c_str(), "Content-Length") == 0) {
      const std::string v = trimmedLower(value);
      if (v.empty() || !std::all_of(v.begin(), v.end(), [](unsigned char c) { return std::isdigit(c); }))
        return RequestGuard::Refusal{400, "Content-Length must be a decimal number"};
      if (length && *length != v) return RequestGuard::Refusal{400, "the request has differing Content-Length headers"};
      length = v;
    } else if (::strcasecmp(name.c_str(), "Transfer-Encoding") == 0) {
      transferEncoding = true;
      for (size_t start = 0; start <= value.size();) {
        size_t end = value.find(',', start);
        if (end == std::string::npos) end = value.size();
        codings.push_back(trimmedLower(value.substr(start, end - start)));
        start = end + 1;
      }
    }
  }
  if (transferEncoding && length)
    return RequestGuard::Refusal{400, "a request must not carry both Content-Length and Transfer-Encoding"};
  if (transferEncoding && (codings.size() != 1 || codings[0] != "chunked"))
    return RequestGuard::Refusal{400, "a transfer coding other than chunked is not understood"};
  // The HTTP library reads chunk sizes out of sight: a size it accepts (up to
  // 64 bits) would hold the connection until a deadline. No page needs to
  // send a body whose length it does not know, so none is read.
  if (transferEncoding)
    return RequestGuard::Refusal{411, "send the body with a Content-Length: this server reads no chunked bodies"};
  return std::nullopt;
}

}  // namespace velqor
