#pragma once

#include "host/StatusOr.h"
#include "imaging/RowStream.h"
#include "imaging/jpeg/JpegReencodeRequest.h"

namespace velqor {

// Encodes a RowStream as a JPEG, strip by strip as a RowPump hands the rows
// over: grey, RGB or YCbCr rows (the last written as they are, with no colour
// conversion), at the request's quality with the project's chroma rule and
// its EXIF and ICC markers. The request's transform is the stream's business.
//
// Threads: any; each call makes its own encoder and one reading thread.
class JpegRowEncoder {
 public:
  static StatusOr<Bytes> encode(RowStream& rows, const JpegReencodeRequest& request, size_t expectedBytes);
};

}  // namespace velqor
