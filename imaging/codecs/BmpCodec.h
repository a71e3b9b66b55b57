#pragma once

#include <memory>
#include <span>

#include "host/StatusOr.h"
#include "host/Value.h"
#include "imaging/ImageSource.h"

namespace velqor {

// BMP, read by our own decoder (BmpHeader for what the headers say): every
// header version from OS/2 v1 to V5, palettes of 1, 2, 4 and 8 bits (short
// ones too), 16, 24 and 32 bits direct or through bit fields (alpha when a
// mask names it), RLE8 and RLE4, rows bottom-up or top-down. Decoded as RGB,
// or RGBA when the file carries alpha; every byte of the bitmap is one the
// decoder wrote from the file (or palette entry 0 where runs skip pixels).
// The header, the limits and the file's length are checked before any pixel
// memory is taken.
//
// Threads: any; no state.
class BmpCodec {
 public:
  static bool looksLike(std::span<const std::uint8_t> bytes);
  static StatusOr<std::shared_ptr<const ImageSource>> source(std::shared_ptr<const Bytes> bytes,
                                                              const DecodeLimits& limits);
};

}  // namespace velqor
