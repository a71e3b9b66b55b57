#pragma once

#include <span>
#include <cstdint>

namespace velqor {

// The EXIF Orientation tag of an encoded image, read with Exiv2; 1 (up) when
// the file has none or cannot be read.
class ExifOrientation {
 public:
  static long read(std::span<const std::uint8_t> bytes);
};

}  // namespace velqor
