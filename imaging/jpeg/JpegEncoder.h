#pragma once

#include "host/StatusOr.h"
#include "host/Value.h"
#include "imaging/Bitmap.h"

struct jpeg_compress_struct;

namespace velqor {

// JPEG encoding on libjpeg-turbo's libjpeg API, which can write markers: the
// bitmap's ICC profile goes into APP2 segments unchanged
// (jpeg_write_icc_profile), and an EXIF APP1 segment, when given, comes right
// after the start of the image in place of the JFIF header, as cameras write it.
// Chroma is 4:2:0 below quality 90 and 4:4:4 from there on; grey bitmaps stay grey.
//
// Threads: any; every call makes its own compressor.
class JpegEncoder {
 public:
  // `quality` is libjpeg's 1-100; `exifApp1` the APP1 payload ("Exif\0\0"
  // and a TIFF structure) or empty for none.
  static StatusOr<Bytes> encode(const Bitmap& bitmap, int quality, const Bytes& exifApp1);

  // The settings every JPEG this project writes shares, for a compressor whose
  // size, components and input colour space are set: defaults, quality, chroma
  // sampling, and no JFIF header when an EXIF one will be written.
  static void configure(jpeg_compress_struct& info, int quality, bool withExif);
  // The EXIF APP1 (when not empty) and the ICC profile (when given), right
  // after the compression started.
  static void writeMarkers(jpeg_compress_struct& info, const Bytes& exifApp1, const Bytes* iccProfile);
  // A first guess at the size of a re-encode of a `sourceBytes` JPEG, so the
  // output buffer seldom grows (each growth copies it).
  static size_t expectedBytes(size_t sourceBytes, int quality);
};

}  // namespace velqor
