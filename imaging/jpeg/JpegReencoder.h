#pragma once

#include <span>

#include "host/StatusOr.h"
#include "imaging/ImageSource.h"
#include "imaging/jpeg/JpegReencodeRequest.h"

namespace velqor {

// The roads a JPEG source takes to a JPEG of the same pixels (permuted, never
// resized), fastest first: its coefficients requantized
// (JpegCoefficientPath), then its scanlines streamed (JpegScanlinePath). A
// file neither takes is the caller's to decode whole.
//
// Threads: any.
class JpegReencoder {
 public:
  enum class Road { coefficients, scanlines, permutedScanlines };
  struct Reencoded {
    Bytes bytes;
    Road road;
  };
  // The first road that takes the file; an error when none does or the file
  // does not decode (the caller's full decode then gives the answer).
  static StatusOr<Reencoded> reencode(std::span<const std::uint8_t> jpeg, const JpegReencodeRequest& request,
                                      const DecodeLimits& limits);
};

}  // namespace velqor
