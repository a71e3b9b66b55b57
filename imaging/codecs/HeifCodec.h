#pragma once

#include <memory>
#include <span>

#include "host/StatusOr.h"
#include "host/Value.h"
#include "platform/ImageSource.h"

namespace velqor {

// HEIF/HEIC (and AVIF) through libheif. The container's rotation and mirror
// properties are applied by the decoder, so decoded pixels stand upright. The
// image's colour profile comes through as ICC: an ICC box unchanged, an nclx box
// as a profile made from its primaries and transfer (Display P3, sRGB, ...).
//
// Threads: any; every call makes its own context.
class HeifCodec {
 public:
  static bool looksLike(std::span<const std::uint8_t> bytes);
  static StatusOr<std::shared_ptr<const ImageSource>> source(std::shared_ptr<const Bytes> bytes,
                                                              const DecodeLimits& limits);
  // HEIC bytes of a bitmap, for tests and sample inputs; fails when the system's
  // libheif has no HEVC encoder.
  static StatusOr<Bytes> encode(const Bitmap& bitmap, int quality);
};

}  // namespace velqor
