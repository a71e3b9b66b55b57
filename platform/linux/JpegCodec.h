#pragma once

#include <memory>
#include <span>

#include "host/StatusOr.h"
#include "host/Value.h"
#include "platform/ImageSource.h"

namespace velqor {

// JPEG through libjpeg-turbo's TurboJPEG API. Decoding can shrink on load by
// any of the library's DCT scaling factors; encoding maps a 0.0-1.0 quality to
// libjpeg quality round(q x 100), clamped to 1-100, with 4:2:0 chroma below
// quality 90 and 4:4:4 from there on.
//
// Threads: any; every call makes its own TurboJPEG handle.
class JpegCodec {
 public:
  static bool looksLike(std::span<const std::uint8_t> bytes);
  // Reads the header and checks the limits; none of the pixels are touched.
  static StatusOr<std::shared_ptr<const ImageSource>> source(std::shared_ptr<const Bytes> bytes,
                                                              const DecodeLimits& limits);
  static StatusOr<Bytes> encode(const Bitmap& bitmap, double quality);
  static int libjpegQuality(double quality);
};

}  // namespace velqor
