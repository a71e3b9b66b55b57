#pragma once

#include <span>

#include "host/StatusOr.h"
#include "imaging/jpeg/JpegReencodeRequest.h"

namespace velqor {

// Re-encodes a YCbCr JPEG at its stored size and orientation without ever
// holding the whole image: one thread decodes strips of scanlines in YCbCr
// (no colour conversion either way), the calling thread encodes them as they
// arrive, and only four strips exist at a time. Chroma is resampled by
// libjpeg itself when the source's sampling differs from the target's.
//
// Threads: any; each call makes its own decoder, encoder and one thread.
class JpegScanlinePath {
 public:
  // The re-encoded file; failedPrecondition when the file is not one this road
  // takes (not three YCbCr components, or a permutation asked for), another
  // error when it does not decode.
  static StatusOr<Bytes> reencode(std::span<const std::uint8_t> jpeg, const JpegReencodeRequest& request);
};

}  // namespace velqor
