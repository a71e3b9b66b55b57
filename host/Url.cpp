#include "host/Url.h"

#include <uriparser/Uri.h>
#include <unistd.h>

#include <cctype>
#include <vector>

namespace velqor {
namespace {

bool isPathCharacter(unsigned char c) {
  if (std::isalnum(c)) return true;
  switch (c) {
    case '!': case '$': case '&': case '\'': case '(': case ')': case '*': case '+':
    case ',': case '-': case '.': case '/': case ':': case ';': case '=': case '@':
    case '_': case '~':
      return true;
    default:
      return false;
  }
}

int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

std::string currentDirectory() {
  std::vector<char> buffer(4096);
  if (::getcwd(buffer.data(), buffer.size()) == nullptr) return "/";
  return buffer.data();
}

}  // namespace

std::string percentEncodePath(std::string_view raw) {
  static const char* kHex = "0123456789ABCDEF";
  std::string out;
  out.reserve(raw.size());
  for (unsigned char c : raw) {
    if (isPathCharacter(c)) {
      out.push_back(static_cast<char>(c));
    } else {
      out.push_back('%');
      out.push_back(kHex[c >> 4]);
      out.push_back(kHex[c & 0xF]);
    }
  }
  return out;
}

std::string percentDecode(std::string_view encoded) {
  std::string out;
  out.reserve(encoded.size());
  for (size_t i = 0; i < encoded.size(); ++i) {
    if (encoded[i] == '%' && i + 2 < encoded.size()) {
      int hi = hexValue(encoded[i + 1]);
      int lo = hexValue(encoded[i + 2]);
      if (hi >= 0 && lo >= 0) {
        out.push_back(static_cast<char>(hi * 16 + lo));
        i += 2;
        continue;
      }
    }
    out.push_back(encoded[i]);
  }
  return out;
}

std::optional<Url> Url::fromString(std::string_view text) {
  std::string copy(text);
  UriUriA uri;
  const char* errorPos = nullptr;
  if (uriParseSingleUriA(&uri, copy.c_str(), &errorPos) != URI_SUCCESS) return std::nullopt;
  uriFreeUriMembersA(&uri);
  return Url(std::move(copy));
}

Url Url::fileUrlWithPath(std::string_view path) {
  std::string absolute(path);
  if (absolute.empty() || absolute.front() != '/') {
    std::string base = currentDirectory();
    if (base.back() != '/') base.push_back('/');
    absolute = base + absolute;
  }
  return Url("file://" + percentEncodePath(absolute));
}

std::optional<std::string> Url::scheme() const {
  size_t colon = absolute_.find(':');
  if (colon == std::string::npos || colon == 0) return std::nullopt;
  if (!std::isalpha(static_cast<unsigned char>(absolute_[0]))) return std::nullopt;
  for (size_t i = 0; i < colon; ++i) {
    unsigned char c = static_cast<unsigned char>(absolute_[i]);
    if (!std::isalnum(c) && c != '+' && c != '-' && c != '.') return std::nullopt;
  }
  return absolute_.substr(0, colon);
}

bool Url::isFileUrl() const {
  auto s = scheme();
  if (!s) return false;
  std::string lower;
  for (char c : *s) lower.push_back(static_cast<char>(std::tolower(static_cast<unsigned char>(c))));
  return lower == "file";
}

std::string Url::path() const {
  std::string_view rest = absolute_;
  if (auto s = scheme()) {
    rest.remove_prefix(s->size() + 1);
    if (rest.substr(0, 2) == "//") {
      rest.remove_prefix(2);
      size_t slash = rest.find('/');
      rest = slash == std::string_view::npos ? std::string_view() : rest.substr(slash);
    }
  }
  size_t end = rest.find_first_of("?#");
  if (end != std::string_view::npos) rest = rest.substr(0, end);
  return percentDecode(rest);
}

Url Url::appendingPathComponent(std::string_view component) const {
  std::string base = absolute_;
  if (base.empty() || base.back() != '/') base.push_back('/');
  return Url(base + percentEncodePath(component));
}

std::ostream& operator<<(std::ostream& os, const Url& url) { return os << url.absoluteString(); }

}  // namespace velqor
