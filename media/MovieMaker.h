#pragma once

#include <string>

#include "host/StatusOr.h"
#include "platform/linux/SampleMovies.h"

namespace velqor {

// Short movies made with libavcodec, inside the media module (SampleMovies
// is the way in): H.264 video (MPEG-4 Part 2 when no H.264 encoder is
// installed) and AAC audio in a QuickTime or MPEG-4 container.
//
// Threads: any.
class MovieMaker {
 public:
  static Status make(const std::string& path, const MovieSpec& shape);
};

}  // namespace velqor
