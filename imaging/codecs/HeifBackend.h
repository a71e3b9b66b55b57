#pragma once

#include <memory>

#include "host/StatusOr.h"
#include "host/Value.h"
#include "imaging/ImageSource.h"

namespace velqor {

// What HEIF decoding and encoding need from outside the image engine: libheif
// lives in the media module, which the platform wiring loads on first use
// (platform/linux/MediaModule implements this through its MediaStack).
//
// Threads: any; implementations keep no mutable state.
class HeifBackend {
 public:
  virtual ~HeifBackend() = default;
  virtual StatusOr<std::shared_ptr<const ImageSource>> heifSource(std::shared_ptr<const Bytes> bytes,
                                                                  const DecodeLimits& limits) = 0;
  virtual StatusOr<Bytes> heifEncode(const Bitmap& bitmap, int quality) = 0;
};

// Finds (and on its first call loads) the backend; an error says why there is none.
using HeifBackendLoader = StatusOr<HeifBackend*> (*)();

}  // namespace velqor
