#pragma once

#include <optional>
#include <string>

#include "platform/linux/MediaStack.h"

namespace velqor {

// A movie's size, duration, tracks and container through libavformat, inside
// the media module.
//
// Threads: any; each call opens the file on its own.
class MovieProbe {
 public:
  // None when FFmpeg reads no movie there.
  static std::optional<MovieSummary> read(const std::string& path);
};

}  // namespace velqor
