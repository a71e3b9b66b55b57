#pragma once

#include <memory>

#include "host/Value.h"
#include "imaging/ByteSink.h"
#include "imaging/Dihedral.h"

namespace velqor {

// What a JPEG re-encode of a JPEG writes: the stored pixels permuted by
// `transform`, at libjpeg quality `quality` (1-100) with the project's chroma
// rule, the EXIF APP1 payload when not empty and the ICC profile when given.
// With a `sink` (not owned), the file goes there as it is made and the bytes a
// road returns are empty.
struct JpegReencodeRequest {
  int quality = 90;
  Dihedral transform = Dihedral::identity;
  Bytes exifApp1;
  std::shared_ptr<const Bytes> iccProfile;
  ByteSink* sink = nullptr;
};

}  // namespace velqor
