#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "host/StatusOr.h"

namespace velqor {

// The shape of a short movie made with libavcodec: H.264 (MPEG-4 Part 2 when
// no H.264 encoder is installed) or HEVC video, AAC audio, in a QuickTime or
// MPEG-4 container, with what a phone's camera writes around the media.
struct MovieSpec {
  double seconds = 1.0;
  int width = 320, height = 240, fps = 30;
  bool video = true, audio = true;
  std::string container = "mov";  // "mov" or "mp4"
  int videoBitrate = 800'000;
  // Frames of noise coded losslessly: a large file made quickly, for memory
  // and throughput measurements.
  bool noise = false;
  // Uncompressed 32-bit float PCM audio instead of AAC (a track an MPEG-4 file cannot carry).
  bool pcmAudio = false;

  // "h264" or "hevc"; an HEVC track's sample entry is `hevcTag` ("hvc1" or "hev1").
  std::string videoCodec = "h264";
  std::string hevcTag = "hvc1";
  // How far a player turns the stored picture clockwise (the video track's
  // display matrix): a phone held upright records landscape pixels and 90.
  int rotation = 0;
  // When the recording began, as "2024-03-05T14:07:31.000000Z"; empty: none.
  std::string creationTime;
  // Where it was recorded, in ISO 6709 ("+48.8584+002.2945+035.000/"); empty: nowhere.
  std::string location;
  // Where the place and `metadata` are stored: QuickTime metadata keys
  // ("com.apple.quicktime.location.ISO6709"), as current phones write them, or
  // user-data atoms ("©xyz"), as older ones did.
  bool quickTimeKeys = true;
  // Further global metadata, by key ("com.apple.quicktime.make" = "Apple").
  std::map<std::string, std::string> metadata;
  // Track language (ISO 639-2, "fra") and handler names; empty: the writer's own.
  std::string language, videoHandler, audioHandler;
  // A timed-metadata track of binary samples ("gpmd", as action cameras write).
  bool metadataTrack = false;
  // A timecode track ("tmcd") starting at this timecode ("01:00:00:00"); empty: none.
  std::string timecode;
  // Chapters: where each starts (seconds) and its title.
  std::vector<std::pair<double, std::string>> chapters;
};

class SampleMovies {
 public:
  static Status make(const std::string& path, const MovieSpec& shape);
};

}  // namespace velqor
