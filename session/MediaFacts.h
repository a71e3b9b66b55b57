#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include <nlohmann/json.hpp>

namespace velqor {

// What a person wants to know about an input or output file of a capture:
// what it is, its pixel size, EXIF orientation, length, and the metadata that
// matters (capture time, camera, GPS), read with the project's own codecs and
// FFmpeg for movies.
//
// Threads: any; each call works on its own copy of the file.
struct MediaFacts {
  enum class Kind { image, movie, other, missing };

  Kind kind = Kind::missing;
  std::string format;  // "JPEG", "PNG", "HEIF", "MPEG-4", ...
  std::uintmax_t bytes = 0;
  int width = 0;
  int height = 0;
  std::optional<int> orientation;  // EXIF 1..8
  double seconds = 0;              // movies
  std::string tracks;              // movies: "h264 video, aac audio"
  nlohmann::ordered_json metadata = nlohmann::ordered_json::object();  // images: the telling entries only

  static MediaFacts of(const std::string& path);
  // "1600 × 1200 JPEG, orientation 6 (turn 90° clockwise to view), 245.3 KB".
  std::string describe() const;
  // "up", "turn 90° clockwise to view", ... for an EXIF orientation.
  static std::string orientationInWords(int orientation);
  // A JPEG at most `side` pixels on its longer side, written to `thumbnail`:
  // an image drawn upright, or a movie's first picture. False when the file
  // is neither an image the codecs read nor a movie FFmpeg decodes.
  static bool writeThumbnail(const std::string& path, const std::string& thumbnail, int side = 240);
};

}  // namespace velqor
