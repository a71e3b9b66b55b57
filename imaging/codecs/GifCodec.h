#pragma once

#include <memory>
#include <span>

#include "host/StatusOr.h"
#include "host/Value.h"
#include "imaging/ImageSource.h"

namespace velqor {

// GIF through giflib: the first frame, placed on the logical screen (what a
// photo library shows for an animation), as RGBA with the frame's transparent
// colour and the uncovered screen transparent. The screen and the frame are
// checked against the limits before any pixel memory is taken; later frames
// are never read.
//
// Threads: any; every call opens its own decoder.
class GifCodec {
 public:
  static bool looksLike(std::span<const std::uint8_t> bytes);
  static StatusOr<std::shared_ptr<const ImageSource>> source(std::shared_ptr<const Bytes> bytes,
                                                              const DecodeLimits& limits);
};

}  // namespace velqor
