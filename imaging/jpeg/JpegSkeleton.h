#pragma once

#include <cstdint>
#include <span>

#include "host/StatusOr.h"
#include "host/Value.h"

namespace velqor {

// A JPEG stream with its compressed (entropy-coded) data taken out and every
// marker kept, in order: the segments verbatim (by their declared length),
// restart markers as they stand, and whatever tail a truncated segment leaves.
//
// libjpeg decides a stream's fate at its markers: corrupt or missing
// compressed data only ever warns (the decoder fills in zeros), while a
// duplicate frame header, a bad table, a bad progression or too many scans
// stop it. The markers are found with the decoder's own rule (0xFF, any fill
// 0xFF bytes, then a non-zero code; 0xFF 0x00 is data), so decoding the
// skeleton meets the same markers and the same fatal errors as decoding the
// stream. The frame header is rewritten to one MCU (8 x the largest sampling
// factors), which none of those errors depends on, so the skeleton decodes
// in microseconds whatever the photo's size.
//
// `check` decodes the skeleton at 1/8 scale and fails on any fatal error,
// wherever it comes: stricter than a decode that keeps the rows it had when a
// damaged stream also hits a bad marker, never more lenient.
//
// Threads: any; no state.
class JpegSkeleton {
 public:
  // The skeleton of `bytes`; bytes that do not start with a JPEG marker come
  // back unchanged (the decoder refuses them the same way either way).
  static Bytes of(std::span<const std::uint8_t> bytes);
  // Ok when `bytes` decode; otherwise "cannot decode JPEG: " and the reason.
  static Status check(std::span<const std::uint8_t> bytes);
};

}  // namespace velqor
