#pragma once

#include <optional>
#include <ostream>
#include <string>
#include <string_view>

namespace velqor {

// A URL as the platform's URL type carries it: an absolute string plus the few
// operations the plug-in uses. Values are immutable and cheap to copy.
//
// Threads: any.
class Url {
 public:
  // URL(string:): a URL for a syntactically valid URI reference, none otherwise
  // (a space or a stray "%" makes the string invalid). A bare path is valid and
  // stays schemeless.
  static std::optional<Url> fromString(std::string_view text);

  // URL(fileURLWithPath:): "file://" plus the absolute path, percent-encoded
  // where a URL path may not hold the character. A relative path is taken
  // relative to the process's working directory.
  static Url fileUrlWithPath(std::string_view path);

  const std::string& absoluteString() const { return absolute_; }
  std::optional<std::string> scheme() const;
  bool isFileUrl() const;

  // The decoded path: for a file URL the file-system path, for a schemeless
  // reference the decoded reference itself.
  std::string path() const;

  // appendingPathComponent: appends "/" and the component, percent-encoding the
  // characters a URL path may not hold (so "a b" becomes "a%20b").
  Url appendingPathComponent(std::string_view component) const;

  friend bool operator==(const Url& a, const Url& b) { return a.absolute_ == b.absolute_; }

 private:
  explicit Url(std::string absolute) : absolute_(std::move(absolute)) {}
  std::string absolute_;
};

// Percent-encodes every byte outside the URL path alphabet ("/" stays).
std::string percentEncodePath(std::string_view raw);
// Decodes %XX escapes; malformed escapes are kept as written.
std::string percentDecode(std::string_view encoded);

std::ostream& operator<<(std::ostream& os, const Url& url);

}  // namespace velqor
