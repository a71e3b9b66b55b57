#pragma once

#include <memory>
#include <span>

#include "host/StatusOr.h"
#include "host/Value.h"
#include "imaging/ImageSource.h"

namespace velqor {

// BMP through stb_image (Debian's libstb-dev), built here with its BMP reader
// alone: 1, 4, 8, 16, 24 and 32 bits, bottom-up or top-down, with alpha when
// the file has it. RLE-compressed files are refused with the reader's reason.
// The header is read and checked against the limits before any pixel memory
// is taken.
//
// Threads: any; the reader keeps its failure text per thread.
class BmpCodec {
 public:
  static bool looksLike(std::span<const std::uint8_t> bytes);
  static StatusOr<std::shared_ptr<const ImageSource>> source(std::shared_ptr<const Bytes> bytes,
                                                              const DecodeLimits& limits);
};

}  // namespace velqor
