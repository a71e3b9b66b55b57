#pragma once

#include <memory>
#include <span>

#include "host/StatusOr.h"
#include "host/Value.h"
#include "imaging/ImageSource.h"

namespace velqor {

// WebP through libwebp: a still image (lossy or lossless, with or without
// alpha), or the first frame of an animation on its canvas (libwebpdemux). The
// canvas is checked against the limits before any pixel memory is taken; an
// ICCP chunk's RGB profile comes with the pixels.
//
// Threads: any; every call makes its own decoder.
class WebpCodec {
 public:
  static bool looksLike(std::span<const std::uint8_t> bytes);
  static StatusOr<std::shared_ptr<const ImageSource>> source(std::shared_ptr<const Bytes> bytes,
                                                              const DecodeLimits& limits);
};

}  // namespace velqor
