#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "host/StatusOr.h"
#include "host/Value.h"
#include "imaging/Bitmap.h"
#include "imaging/Resampler.h"

namespace velqor {

// Limits checked from an image's header before any pixel memory is taken.
// `maxBytes` bounds the bitmap one decode produces (JPEG and PNG check it
// alone; `maxPixels` stays for the codecs that also cap the count); a codec
// that can decode at a reduced scale (JPEG) or stream its rows (JPEG, PNG)
// accepts a header up to `maxHeaderPixels` and applies the budget only when a
// whole bitmap is made.
struct DecodeLimits {
  std::uint64_t maxPixels = 100'000'000;
  std::uint64_t maxBytes = 1ull << 30;  // decoded pixel memory
  std::uint64_t maxHeaderPixels = 1'000'000'000;
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
  // minWidth x minHeight (the full size when no smaller one is). The bitmap
  // carries the source's colour profile.
  virtual StatusOr<Bitmap> decode(int minWidth, int minHeight) const = 0;
  // `decode(minWidth, minHeight)` resized to exactly width x height by
  // Resampler. A codec that can resize rows as they are decoded overrides it
  // with the same pixels and without the full-size bitmap.
  virtual StatusOr<Bitmap> decodeResized(int minWidth, int minHeight, int width, int height) const {
    ASSIGN_OR_RETURN(Bitmap decoded, decode(minWidth, minHeight));
    if (decoded.width == width && decoded.height == height) return decoded;
    return Resampler::resize(decoded, width, height);
  }
  // Whether the pixels decode at all: why not, or ok. By default a decode at
  // the smallest size; a codec that can tell without decoding overrides it.
  virtual Status checkPixels() const { return decode(1, 1).status(); }
  // Why `decode` with these sizes would exceed the limits, without decoding;
  // ok when it fits.
  virtual Status checkDecode(int minWidth, int minHeight) const = 0;
  // The source's colour profile as ICC bytes (an RGB profile), or none for sRGB.
  virtual std::shared_ptr<const Bytes> iccProfile() const = 0;
  // The encoded bytes the pixels come from, for a codec that can re-encode
  // them without holding a whole decoded bitmap; none when they are not kept.
  virtual std::shared_ptr<const Bytes> encodedBytes() const { return nullptr; }
};

}  // namespace velqor
