#pragma once

#include <memory>
#include <span>

#include "host/StatusOr.h"
#include "host/Value.h"
#include "imaging/ImageSource.h"

namespace velqor {

// PNG through libspng: any bit depth, palette, grey or interlaced image decodes
// to 8-bit RGBA; ancillary chunks are capped so a compressed text or profile
// chunk cannot balloon; an RGB iCCP profile comes with the pixels. Encoding
// writes RGB, or RGBA when a pixel is not opaque, and the bitmap's ICC profile
// as an iCCP chunk. No orientation is written: a PNG carries none.
//
// Threads: any; every call makes its own context.
class PngCodec {
 public:
  static bool looksLike(std::span<const std::uint8_t> bytes);
  static StatusOr<std::shared_ptr<const ImageSource>> source(std::shared_ptr<const Bytes> bytes,
                                                              const DecodeLimits& limits);
  static StatusOr<Bytes> encode(const Bitmap& bitmap);
};

}  // namespace velqor
