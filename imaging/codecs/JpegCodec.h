#pragma once

#include <memory>
#include <span>

#include "host/StatusOr.h"
#include "host/Value.h"
#include "imaging/ImageSource.h"

namespace velqor {

// JPEG through libjpeg-turbo. Decoding (TurboJPEG API) can shrink on load by
// any of the library's DCT scaling factors, so a header larger than one decode
// may hold is accepted up to DecodeLimits::maxHeaderPixels and the pixel and
// memory limits apply to the scale actually decoded; the source carries the
// file's RGB ICC profile. Encoding (JpegEncoder) maps a 0.0-1.0 quality to
// libjpeg quality round(q x 100), clamped to 1-100, and writes the bitmap's
// ICC profile and, when not 1, an EXIF Orientation tag.
//
// Threads: any; every call makes its own TurboJPEG handle.
class JpegCodec {
 public:
  static bool looksLike(std::span<const std::uint8_t> bytes);
  // Reads the header and checks the limits; none of the pixels are touched.
  static StatusOr<std::shared_ptr<const ImageSource>> source(std::shared_ptr<const Bytes> bytes,
                                                              const DecodeLimits& limits);
  static StatusOr<Bytes> encode(const Bitmap& bitmap, double quality, int exifOrientation = 1);
  static int libjpegQuality(double quality);
};

}  // namespace velqor
