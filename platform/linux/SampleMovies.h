#pragma once

#include <string>

#include "host/StatusOr.h"

namespace velqor {

// Short movies made with libavcodec, for the demo, benchmarks and tests:
// H.264 video (MPEG-4 Part 2 when no H.264 encoder is installed) and AAC audio
// in a QuickTime or MPEG-4 container, as a phone's camera records them.
struct MovieSpec {
  double seconds = 1.0;
  int width = 320, height = 240, fps = 30;
  bool video = true, audio = true;
  std::string container = "mov";  // "mov" or "mp4"
  int videoBitrate = 800'000;
  // Frames of noise coded losslessly: a large file made quickly, for memory
  // and throughput measurements.
  bool noise = false;
  // Uncompressed 16-bit PCM audio instead of AAC (a track an MPEG-4 file cannot carry).
  bool pcmAudio = false;
};

class SampleMovies {
 public:
  static Status make(const std::string& path, const MovieSpec& shape);
};

}  // namespace velqor
