#pragma once

#include <cstdint>
#include <memory>

#include "host/StatusOr.h"
#include "host/Value.h"
#include "imaging/ByteSink.h"
#include "imaging/RowStream.h"

namespace velqor {

// Encodes a RowStream as a PNG, row by row as a RowPump hands them over, with
// the settings of PngCodec::encode (deflate level 1, Paeth filter) and the ICC
// profile as an iCCP chunk. Grey, RGB and RGBA rows are written as they are;
// YCbCr rows are refused.
//
// Threads: any; each call makes its own encoder and one reading thread.
class PngRowEncoder {
 public:
  using Sink = ByteSink;
  static Status encode(RowStream& rows, const std::shared_ptr<const Bytes>& iccProfile, Sink sink);
  // The same into memory.
  static StatusOr<Bytes> encode(RowStream& rows, const std::shared_ptr<const Bytes>& iccProfile);
};

}  // namespace velqor
