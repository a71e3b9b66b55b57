#pragma once

#include <memory>
#include <optional>
#include <string>

#include "host/StatusOr.h"
#include "host/Value.h"
#include "platform/ExportSession.h"
#include "imaging/ImageSource.h"
#include "imaging/codecs/HeifBackend.h"
#include "platform/linux/SampleMovies.h"

namespace velqor {

// What a movie file holds, as libavformat reads it.
struct MovieSummary {
  int width = 0, height = 0;
  double seconds = 0;
  std::string tracks;  // "h264 video, aac audio"
  std::string format;  // "QuickTime", "MPEG-4", or the demuxer's name
};

// Everything that needs FFmpeg or libheif, which together map about a hundred
// shared libraries. They live in the media module (media/), loaded by
// MediaModule the first time a movie or a HEIF image is handled, so a photo
// capture maps only what it uses.
//
// Threads: any; the implementation keeps no mutable state.
class MediaStack : public HeifBackend {
 public:
  virtual std::shared_ptr<MediaExport> makeExport() = 0;
  virtual Status makeMovie(const std::string& path, const MovieSpec& shape) = 0;
  // None when the file has no decodable planar 8-bit YUV video.
  virtual std::optional<Bitmap> firstFrame(const std::string& path, int side) = 0;
  // None when FFmpeg reads no movie there.
  virtual std::optional<MovieSummary> movieSummary(const std::string& path) = 0;
};

// The entry point the module exports, by this C name.
using MediaStackEntry = MediaStack* (*)();
inline constexpr const char* kMediaStackEntry = "velqor_media_stack";

}  // namespace velqor
