#pragma once

#include <map>
#include <string>
#include <string_view>

#include "host/StatusOr.h"

namespace velqor {

// A strings table in the platform's text format:
//
//   /* comment */  // comment
//   "KEY" = "text with \"escapes\", \n and \U00E9";
//   UNQUOTED_KEY = "text";
//   "KEY_ALONE";            (the text is the key)
//
// Files are UTF-8, or UTF-16 with a byte-order mark (either byte order).
class StringsFile {
 public:
  static StatusOr<std::map<std::string, std::string>> parse(std::string_view bytes);
  static StatusOr<std::map<std::string, std::string>> load(const std::string& path);
};

}  // namespace velqor
