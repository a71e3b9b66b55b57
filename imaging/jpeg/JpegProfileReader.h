#pragma once

#include <memory>
#include <span>

#include "host/Value.h"

namespace velqor {

// The ICC profile of a JPEG, from its APP2 segments in sequence order
// (jpeg_read_icc_profile), kept only when it is an RGB profile. Only the
// header is parsed; no pixel is decoded.
//
// Threads: any; every call makes its own decompressor.
class JpegProfileReader {
 public:
  // None when the file has no usable profile or its header does not parse.
  static std::shared_ptr<const Bytes> read(std::span<const std::uint8_t> bytes);
};

}  // namespace velqor
