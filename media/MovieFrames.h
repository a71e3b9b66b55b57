#pragma once

#include <optional>
#include <string>

#include "imaging/Bitmap.h"

namespace velqor {

// The first picture of a movie, small, inside the media module (MovieStill
// is the way in): FFmpeg decodes the first video frame and its planar YUV is
// sampled straight into RGB at the reduced size.
//
// Threads: any; each call opens the file on its own.
class MovieFrames {
 public:
  // At most `side` pixels on the longer side; none when the file has no
  // decodable video in a planar 8-bit YUV format.
  static std::optional<Bitmap> firstFrame(const std::string& path, int side);
};

}  // namespace velqor
