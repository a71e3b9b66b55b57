#include "imaging/codecs/PngRowEncoder.h"

#include <spng.h>

#include <cstring>
#include <string>

#include "imaging/RowPump.h"

namespace velqor {
namespace {

struct SpngDeleter {
  void operator()(spng_ctx* c) const noexcept { spng_ctx_free(c); }
};
using SpngContext = std::unique_ptr<spng_ctx, SpngDeleter>;

constexpr int kStripRows = 16;

struct Output {
  PngRowEncoder::Sink* sink;
  bool failed = false;
};

int writeOut(spng_ctx*, void* user, void* data, size_t length) {
  auto* out = static_cast<Output*>(user);
  if (!(*out->sink)(static_cast<const std::uint8_t*>(data), length)) {
    out->failed = true;
    return SPNG_IO_ERROR;
  }
  return 0;
}

std::uint8_t colourType(RowStream::Layout layout) {
  switch (layout) {
    case RowStream::Layout::grey: return SPNG_COLOR_TYPE_GRAYSCALE;
    case RowStream::Layout::rgba: return SPNG_COLOR_TYPE_TRUECOLOR_ALPHA;
    default: return SPNG_COLOR_TYPE_TRUECOLOR;
  }
}

Status failure(const char* what, int rc) { return Status::internal(std::string(what) + spng_strerror(rc)); }

}  // namespace

Status PngRowEncoder::encode(RowStream& rows, const std::shared_ptr<const Bytes>& iccProfile, Sink sink) {
  if (rows.layout() == RowStream::Layout::ycbcr) return Status::invalidArgument("cannot encode YCbCr rows as PNG");
  if (rows.width() <= 0 || rows.height() <= 0) return Status::invalidArgument("cannot encode an empty image");
  SpngContext ctx(spng_ctx_new(SPNG_CTX_ENCODER));
  if (!ctx) return Status::internal("cannot start a PNG encoder");
  Output output{&sink};
  if (int rc = spng_set_png_stream(ctx.get(), writeOut, &output); rc != 0) return failure("cannot encode PNG: ", rc);
  // The same trade as PngCodec::encode: level 1 over Paeth-filtered rows.
  spng_set_option(ctx.get(), SPNG_IMG_COMPRESSION_LEVEL, 1);
  spng_set_option(ctx.get(), SPNG_FILTER_CHOICE, SPNG_FILTER_CHOICE_PAETH);
  spng_ihdr ihdr{};
  ihdr.width = static_cast<std::uint32_t>(rows.width());
  ihdr.height = static_cast<std::uint32_t>(rows.height());
  ihdr.bit_depth = 8;
  ihdr.color_type = colourType(rows.layout());
  if (int rc = spng_set_ihdr(ctx.get(), &ihdr); rc != 0) return failure("cannot encode PNG: ", rc);
  if (iccProfile && !iccProfile->empty()) {
    spng_iccp iccp{};
    std::strncpy(iccp.profile_name, "ICC Profile", sizeof iccp.profile_name - 1);
    iccp.profile_len = iccProfile->size();
    // spng keeps the pointer and reads the profile while encoding, within this call.
    iccp.profile = const_cast<char*>(reinterpret_cast<const char*>(iccProfile->data()));
    if (int rc = spng_set_iccp(ctx.get(), &iccp); rc != 0) return failure("cannot encode PNG profile: ", rc);
  }
  if (int rc = spng_encode_image(ctx.get(), nullptr, 0, SPNG_FMT_PNG, SPNG_ENCODE_PROGRESSIVE | SPNG_ENCODE_FINALIZE);
      rc != 0)
    return failure("cannot encode PNG: ", rc);
  const size_t stride = rows.stride();
  int last = 0;
  spng_ctx* c = ctx.get();
  Status pumped = RowPump::run(
      rows, kStripRows,
      [c, stride, &last](const std::uint8_t* strip, int n) {
        for (int i = 0; i < n; ++i) {
          last = spng_encode_row(c, strip + stride * static_cast<size_t>(i), stride);
          if (last != 0 && last != SPNG_EOI) return false;
        }
        return true;
      },
      Status::internal("cannot encode PNG"));
  if (output.failed) return Status::unavailable("cannot write the PNG");
  if (!pumped.ok()) return last != 0 && last != SPNG_EOI ? failure("cannot encode PNG: ", last) : pumped;
  if (last != SPNG_EOI) return Status::internal("cannot encode PNG: the image did not end");
  return Status::okStatus();
}

StatusOr<Bytes> PngRowEncoder::encode(RowStream& rows, const std::shared_ptr<const Bytes>& iccProfile) {
  Bytes out;
  // Raw rows compress to about half at level 1; start there so the buffer seldom moves.
  out.reserve(rows.stride() * static_cast<size_t>(rows.height()) / 2);
  RETURN_IF_ERROR(encode(rows, iccProfile, [&out](const std::uint8_t* data, size_t size) {
    out.insert(out.end(), data, data + size);
    return true;
  }));
  return out;
}

}  // namespace velqor
