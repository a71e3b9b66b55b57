#pragma once

#include <span>

#include "host/StatusOr.h"
#include "imaging/ImageSource.h"
#include "imaging/jpeg/JpegReencodeRequest.h"

namespace velqor {

// Re-encodes a JPEG without leaving the frequency domain: the source's DCT
// coefficients are requantized to the target quality's tables (no IDCT, no
// colour conversion, no FDCT) and written with Huffman tables optimized for
// them. A permutation of the pixels is applied exactly to the coefficients:
// the blocks move, their frequencies transpose, odd ones change sign.
//
// It takes a file only when nothing else would change: three YCbCr
// components whose chroma sampling is the one the target quality writes,
// and, when the pixels are permuted, a picture of whole MCUs (a partial edge
// block would carry its padding to the other side). The coefficients are held
// once (two bytes a sample, within `limits.maxBytes`); the permuted,
// requantized rows are made as the encoder asks for them.
//
// Threads: any; every call makes its own decoder and encoder.
class JpegCoefficientPath {
 public:
  // The re-encoded file; failedPrecondition when the file is not one this road
  // takes, another error when it does not decode.
  static StatusOr<Bytes> reencode(std::span<const std::uint8_t> jpeg, const JpegReencodeRequest& request,
                                  const DecodeLimits& limits);
};

}  // namespace velqor
