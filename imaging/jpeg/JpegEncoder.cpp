#include "imaging/jpeg/JpegEncoder.h"

#include <cstdlib>
#include <memory>
#include <string>

#include "imaging/jpeg/LibjpegErrors.h"

namespace velqor {
namespace {

// Everything one compression needs, owned outside the setjmp frame so the
// jump back skips no destructor.
struct Compression {
  jpeg_compress_struct info{};
  LibjpegErrors errors;
  unsigned char* out = nullptr;
  unsigned long size = 0;
  bool created = false;
  ~Compression() {
    if (created) jpeg_destroy_compress(&info);
    std::free(out);
  }
};

J_COLOR_SPACE inputSpace(int channels) {
  return channels == 4 ? JCS_EXT_RGBA : (channels == 3 ? JCS_RGB : JCS_GRAYSCALE);
}

// Runs the whole compression; false after a libjpeg error (the text is in c.errors).
bool compress(Compression& c, const Bitmap& bitmap, int quality, const Bytes& exifApp1) {
  c.errors.attach(reinterpret_cast<j_common_ptr>(&c.info));
  if (setjmp(c.errors.jump)) return false;
  jpeg_create_compress(&c.info);
  c.created = true;
  jpeg_mem_dest(&c.info, &c.out, &c.size);
  c.info.image_width = static_cast<JDIMENSION>(bitmap.width);
  c.info.image_height = static_cast<JDIMENSION>(bitmap.height);
  c.info.input_components = bitmap.channels;
  c.info.in_color_space = inputSpace(bitmap.channels);
  JpegEncoder::configure(c.info, quality, !exifApp1.empty());
  jpeg_start_compress(&c.info, TRUE);
  JpegEncoder::writeMarkers(c.info, exifApp1, bitmap.iccProfile.get());
  while (c.info.next_scanline < c.info.image_height) {
    JSAMPROW row = const_cast<JSAMPROW>(bitmap.row(static_cast<int>(c.info.next_scanline)));
    jpeg_write_scanlines(&c.info, &row, 1);
  }
  jpeg_finish_compress(&c.info);
  return true;
}

}  // namespace

void JpegEncoder::configure(jpeg_compress_struct& info, int quality, bool withExif) {
  jpeg_set_defaults(&info);
  jpeg_set_quality(&info, quality, TRUE);
  if (info.input_components != 1 && quality >= 90) {
    info.comp_info[0].h_samp_factor = 1;
    info.comp_info[0].v_samp_factor = 1;
  }
  // An EXIF file starts with its APP1; JFIF and EXIF headers do not mix.
  if (withExif) info.write_JFIF_header = FALSE;
}

void JpegEncoder::writeMarkers(jpeg_compress_struct& info, const Bytes& exifApp1, const Bytes* iccProfile) {
  if (!exifApp1.empty())
    jpeg_write_marker(&info, JPEG_APP0 + 1, exifApp1.data(), static_cast<unsigned>(exifApp1.size()));
  if (iccProfile && !iccProfile->empty())
    jpeg_write_icc_profile(&info, iccProfile->data(), static_cast<unsigned>(iccProfile->size()));
}

size_t JpegEncoder::expectedBytes(size_t sourceBytes, int quality) {
  // A camera file is near quality 90: finer quality costs up to twice its
  // size, the default 50 about a third of it.
  if (quality >= 95) return sourceBytes * 2;
  if (quality >= 85) return sourceBytes;
  return sourceBytes / 2;
}

StatusOr<Bytes> JpegEncoder::encode(const Bitmap& bitmap, int quality, const Bytes& exifApp1) {
  if (bitmap.empty()) return Status::invalidArgument("cannot encode an empty bitmap");
  if (bitmap.channels != 1 && bitmap.channels != 3 && bitmap.channels != 4)
    return Status::invalidArgument("cannot encode a bitmap of " + std::to_string(bitmap.channels) + " channels");
  // An APP1 segment holds at most 65533 bytes.
  if (exifApp1.size() > 65533) return Status::invalidArgument("cannot encode JPEG: the EXIF block is too large");
  auto c = std::make_unique<Compression>();
  if (!compress(*c, bitmap, quality, exifApp1)) return Status::internal("cannot encode JPEG: " + c->errors.text());
  return Bytes(c->out, c->out + c->size);
}

}  // namespace velqor
