#pragma once

#include <memory>
#include <span>

#include "host/StatusOr.h"
#include "host/Value.h"
#include "imaging/ImageSource.h"
#include "imaging/codecs/HeifBackend.h"

namespace velqor {

// HEIF/HEIC (and AVIF) through libheif. The container's rotation and mirror
// properties are applied by the decoder, so decoded pixels stand upright. The
// image's colour profile comes through as ICC: an ICC box unchanged, an nclx box
// as a profile made from its primaries and transfer (Display P3, sRGB, ...).
//
// The decoding itself runs in a HeifBackend that the platform wiring installs
// once (platform/linux/MediaModule does so as the program starts); without one,
// HEIF bytes are refused with the reason.
//
// Threads: any; every call makes its own context.
class HeifCodec {
 public:
  static void installBackend(HeifBackendLoader loader);
  static bool looksLike(std::span<const std::uint8_t> bytes);
  static StatusOr<std::shared_ptr<const ImageSource>> source(std::shared_ptr<const Bytes> bytes,
                                                              const DecodeLimits& limits);
  // HEIC bytes of a bitmap, for tests and sample inputs; fails when the system's
  // libheif has no HEVC encoder.
  static StatusOr<Bytes> encode(const Bitmap& bitmap, int quality);
};

}  // namespace velqor
