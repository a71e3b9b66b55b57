#pragma once

#include <memory>
#include <span>

#include "host/StatusOr.h"
#include "host/Value.h"
#include "imaging/ImageSource.h"

namespace velqor {

// TIFF through libtiff: the first directory, any layout libtiff's RGBA reader
// knows (strips or tiles, palette, grey, RGB, YCbCr, CMYK, 8 or 16 bits), as
// RGBA rows in the order they are stored; the Orientation tag stays the
// image's orientation, as EXIF's does for JPEG. The size is checked against
// the limits before any pixel memory is taken, libtiff's own allocations are
// capped by the memory budget, and its messages never reach the terminal. An
// RGB ICC profile tag comes with the pixels.
//
// Threads: any; every call opens its own reader.
class TiffCodec {
 public:
  static bool looksLike(std::span<const std::uint8_t> bytes);
  static StatusOr<std::shared_ptr<const ImageSource>> source(std::shared_ptr<const Bytes> bytes,
                                                              const DecodeLimits& limits);
};

}  // namespace velqor
