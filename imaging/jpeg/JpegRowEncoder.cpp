#include "imaging/jpeg/JpegRowEncoder.h"

#include <memory>

#include "imaging/RowPump.h"
#include "imaging/jpeg/JpegCompression.h"
#include "imaging/jpeg/JpegEncoder.h"

namespace velqor {
namespace {

constexpr int kStripRows = JpegCompression::kStripRows;

// Each function below holds its own setjmp frame with only trivial locals, so
// a libjpeg error jumps back over no destructor.

bool startEncoding(JpegCompression& c, const RowStream& rows, const JpegReencodeRequest& r, size_t expectedBytes) {
  if (setjmp(c.errors.jump)) return false;
  c.open(expectedBytes, r.sink);
  c.info.image_width = static_cast<JDIMENSION>(rows.width());
  c.info.image_height = static_cast<JDIMENSION>(rows.height());
  c.info.input_components = rows.channels();
  c.info.in_color_space = rows.layout() == RowStream::Layout::grey    ? JCS_GRAYSCALE
                          : rows.layout() == RowStream::Layout::ycbcr ? JCS_YCbCr
                          : rows.layout() == RowStream::Layout::rgba  ? JCS_EXT_RGBA
                                                                      : JCS_RGB;
  JpegEncoder::configure(c.info, r.quality, !r.exifApp1.empty());
  jpeg_start_compress(&c.info, TRUE);
  JpegEncoder::writeMarkers(c.info, r.exifApp1, r.iccProfile.get());
  return true;
}

}  // namespace

StatusOr<Bytes> JpegRowEncoder::encode(RowStream& rows, const JpegReencodeRequest& request, size_t expectedBytes) {
  if (rows.width() <= 0 || rows.height() <= 0) return Status::invalidArgument("cannot encode an empty image");
  if (request.exifApp1.size() > 65533) return Status::invalidArgument("cannot encode JPEG: the EXIF block is too large");
  auto c = std::make_unique<JpegCompression>();
  if (!startEncoding(*c, rows, request, expectedBytes)) return Status::internal("cannot encode JPEG: " + c->errors.text());
  const size_t stride = rows.stride();
  JpegCompression& compression = *c;
  const Status pumped = RowPump::run(
      rows, kStripRows,
      [&compression, stride](const std::uint8_t* strip, int n) {
        return compression.writeStrip(strip, n, stride) && !compression.sinkRefused;
      },
      Status::internal("cannot encode JPEG: " + std::string("the encoder stopped")));
  if (c->sinkRefused) return Status::unavailable("cannot write the JPEG: its bytes were not kept");
  RETURN_IF_ERROR(pumped);
  if (!c->finish()) return Status::internal("cannot encode JPEG: " + c->errors.text());
  if (c->sinkRefused) return Status::unavailable("cannot write the JPEG: its bytes were not kept");
  return std::move(c->out);
}

}  // namespace velqor
