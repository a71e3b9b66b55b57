#pragma once

#include <memory>
#include <span>

#include "host/Value.h"

namespace velqor {

// Checks on ICC colour profiles found in image files. Decoders keep a
// profile only when it can describe the RGB pixels they hand out: a CMYK or
// grey profile would be wrong for them once they are RGB.
//
// Threads: any; pure.
class IccProfiles {
 public:
  // The bytes as a shared profile when they are a well-formed ICC header for
  // RGB data ("acsp" signature, "RGB " colour space, a declared size within
  // the bytes); none otherwise. The bytes are kept whole, as found.
  static std::shared_ptr<const Bytes> rgbProfile(std::span<const std::uint8_t> bytes);
};

}  // namespace velqor
