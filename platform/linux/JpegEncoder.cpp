#include "platform/linux/JpegEncoder.h"

#include <cstdlib>
#include <memory>
#include <string>

#include "platform/linux/LibjpegErrors.h"

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
  jpeg_set_defaults(&c.info);
  jpeg_set_quality(&c.info, quality, TRUE);
  if (bitmap.channels != 1 && quality >= 90) {
    c.info.comp_info[0].h_samp_factor = 1;
    c.info.comp_info[0].v_samp_factor = 1;
  }
  // An EXIF file starts with its APP1; JFIF and EXIF headers do not mix.
  if (!exifApp1.empty()) c.info.write_JFIF_header = FALSE;
  jpeg_start_compress(&c.info, TRUE);
  if (!exifApp1.empty())
    jpeg_write_marker(&c.info, JPEG_APP0 + 1, exifApp1.data(), static_cast<unsigned>(exifApp1.size()));
  if (bitmap.iccProfile && !bitmap.iccProfile->empty())
    jpeg_write_icc_profile(&c.info, bitmap.iccProfile->data(), static_cast<unsigned>(bitmap.iccProfile->size()));
  while (c.info.next_scanline < c.info.image_height) {
    JSAMPROW row = const_cast<JSAMPROW>(bitmap.row(static_cast<int>(c.info.next_scanline)));
    jpeg_write_scanlines(&c.info, &row, 1);
  }
  jpeg_finish_compress(&c.info);
  return true;
}

}  // namespace

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
