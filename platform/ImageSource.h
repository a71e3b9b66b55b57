#pragma once

#include <cstdint>
#include <string>

#include "host/StatusOr.h"
#include "platform/Bitmap.h"

namespace velqor {

// Limits checked from an image's header before any pixel memory is taken.
struct DecodeLimits {
  std::uint64_t maxPixels = 100'000'000;
  std::uint64_t maxBytes = 1ull << 30;  // decoded pixel memory
};

// Pixels not decoded yet: an encoded image that can decode itself, possibly at
// a reduced scale.
//
// Threads: immutable; `decode` may run on any thread, several at once.
class ImageSource {
 public:
  virtual ~ImageSource() = default;
  virtual int width() const = 0;
  virtual int height() const = 0;
  // "jpeg", "png", "heif": the container the bytes are in.
  virtual std::string typeName() const = 0;
  // Decodes at the smallest size the codec offers that is still at least
  // minWidth x minHeight (the full size when no smaller one is).
  virtual StatusOr<Bitmap> decode(int minWidth, int minHeight) const = 0;
};

}  // namespace velqor
