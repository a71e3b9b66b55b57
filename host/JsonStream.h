#pragma once

#include <cstdio>
#include <string_view>

#include "host/Value.h"

namespace velqor {

// Writes a value as JSON straight to a stream, the way an answer carries it to
// the page (a URL as its string, bytes as {"bytes": base64}), without building
// the text in memory first: a data URL of a large movie is written once.
// Output matches valueToJson(...).dump() with invalid UTF-8 replaced.
class JsonStream {
 public:
  static void write(std::FILE* out, const Value& value);
  static void writeString(std::FILE* out, std::string_view text);
};

}  // namespace velqor
