#pragma once

#include <memory>

#include "host/StatusOr.h"
#include "host/Value.h"
#include "imaging/ImageSource.h"

namespace velqor {

// HEIF/HEIC (and AVIF) on libheif, inside the media module; the rest of the
// process reaches it through HeifCodec. The container's rotation and mirror
// are applied by the decoder, so decoded pixels stand upright; the colour
// profile comes as ICC (an ICC box unchanged, an nclx box as a profile made
// from its primaries and transfer).
//
// Threads: any; every call makes its own context.
class LibheifCodec {
 public:
  // `bytes` already look like HEIF (HeifCodec::looksLike).
  static StatusOr<std::shared_ptr<const ImageSource>> source(std::shared_ptr<const Bytes> bytes,
                                                              const DecodeLimits& limits);
  static StatusOr<Bytes> encode(const Bitmap& bitmap, int quality);
};

}  // namespace velqor
