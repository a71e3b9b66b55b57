#include "imaging/jpeg/JpegScanlinePath.h"

#include <algorithm>
#include <memory>
#include <thread>

#include "imaging/RowHandOff.h"
#include "imaging/jpeg/JpegCompression.h"
#include "imaging/jpeg/JpegDecompression.h"
#include "imaging/jpeg/JpegEncoder.h"

namespace velqor {
namespace {

constexpr int kStripRows = JpegCompression::kStripRows;
constexpr int kStrips = 4;

// Each function below holds its own setjmp frame with only trivial locals, so
// a libjpeg error jumps back over no destructor.

bool openSource(JpegDecompression& d, std::span<const std::uint8_t> jpeg) {
  if (setjmp(d.errors.jump)) return false;
  d.open(jpeg);
  return true;
}

bool startDecoding(JpegDecompression& d) {
  if (setjmp(d.errors.jump)) return false;
  // Y, Cb and Cr as stored (upsampled where subsampled): no colour conversion.
  d.info.out_color_space = JCS_YCbCr;
  d.info.dct_method = JDCT_ISLOW;
  jpeg_start_decompress(&d.info);
  return true;
}

bool readLines(JpegDecompression& d, std::uint8_t* strip, int rows, size_t stride) {
  if (setjmp(d.errors.jump)) return false;
  JSAMPROW pointers[kStripRows];
  for (int i = 0; i < rows; ++i) pointers[i] = strip + stride * static_cast<size_t>(i);
  for (int got = 0; got < rows;) {
    const JDIMENSION n = jpeg_read_scanlines(&d.info, pointers + got, static_cast<JDIMENSION>(rows - got));
    if (n == 0) return false;  // a memory source never suspends; nothing more will come
    got += static_cast<int>(n);
  }
  return true;
}

bool startEncoding(JpegCompression& c, const jpeg_decompress_struct& source, const JpegReencodeRequest& r,
                   size_t expectedBytes) {
  if (setjmp(c.errors.jump)) return false;
  c.open(expectedBytes, r.sink);
  c.info.image_width = source.image_width;
  c.info.image_height = source.image_height;
  c.info.input_components = 3;
  c.info.in_color_space = JCS_YCbCr;
  JpegEncoder::configure(c.info, r.quality, !r.exifApp1.empty());
  jpeg_start_compress(&c.info, TRUE);
  JpegEncoder::writeMarkers(c.info, r.exifApp1, r.iccProfile.get());
  return true;
}

// The decoding thread: strips until the image ends, an error, or the encoder stops.
void decodeStrips(JpegDecompression& d, RowHandOff& handOff, size_t stride) {
  bool ok = startDecoding(d);
  while (ok && d.info.output_scanline < d.info.output_height) {
    std::uint8_t* strip = handOff.acquire();
    if (!strip) {
      ok = false;
      break;
    }
    const int rows = static_cast<int>(std::min<JDIMENSION>(kStripRows, d.info.output_height - d.info.output_scanline));
    ok = readLines(d, strip, rows, stride);
    if (ok) handOff.publish(rows);
  }
  handOff.finish(ok);
}

bool yccFile(const jpeg_decompress_struct& info) {
  return info.jpeg_color_space == JCS_YCbCr && info.num_components == 3;
}

}  // namespace

StatusOr<Bytes> JpegScanlinePath::reencode(std::span<const std::uint8_t> jpeg, const JpegReencodeRequest& r) {
  if (r.transform != Dihedral::identity)
    return Status::failedPrecondition("scanlines keep the stored orientation; this re-encode permutes the pixels");
  auto d = std::make_unique<JpegDecompression>();
  if (!openSource(*d, jpeg)) return Status::dataLoss("cannot decode JPEG: " + d->errors.text());
  if (!yccFile(d->info)) return Status::failedPrecondition("scanlines are re-encoded from YCbCr files only");
  auto c = std::make_unique<JpegCompression>();
  if (!startEncoding(*c, d->info, r, JpegEncoder::expectedBytes(jpeg.size(), r.quality)))
    return Status::internal("cannot encode JPEG: " + c->errors.text());

  const size_t stride = static_cast<size_t>(d->info.image_width) * 3;
  RowHandOff handOff(stride * kStripRows, kStrips);
  std::thread decoder([&] { decodeStrips(*d, handOff, stride); });
  bool encoded = true;
  while (auto strip = handOff.next()) {
    encoded = c->writeStrip(strip->data, strip->rows, stride) && !c->sinkRefused;
    handOff.release();
    if (!encoded) {
      handOff.cancel();
      break;
    }
  }
  decoder.join();
  if (c->sinkRefused) return Status::unavailable("cannot write the JPEG: its bytes were not kept");
  if (encoded && !handOff.producerSucceeded()) return Status::dataLoss("cannot decode JPEG: " + d->errors.text());
  if (!encoded || !c->finish()) return Status::internal("cannot encode JPEG: " + c->errors.text());
  if (c->sinkRefused) return Status::unavailable("cannot write the JPEG: its bytes were not kept");
  return std::move(c->out);
}

}  // namespace velqor
