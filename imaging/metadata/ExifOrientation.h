#pragma once

#include <cstdint>
#include <span>

#include "host/Value.h"

namespace velqor {

// The EXIF Orientation tag, on Exiv2: read from an encoded image, or written
// as the one entry of a fresh EXIF block.
class ExifOrientation {
 public:
  // 1 (up) when the file has none or cannot be read.
  static long read(std::span<const std::uint8_t> bytes);
  // A JPEG APP1 payload ("Exif\0\0" and a little-endian TIFF structure) whose
  // only entry is Orientation = `tag`; empty when Exiv2 cannot make it.
  static Bytes app1(long tag);
};

}  // namespace velqor
