#include "imaging/codecs/GifCodec.h"

#include <gif_lib.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

namespace velqor {
namespace {

constexpr std::uint64_t kLzwPixelsPerByte = 2731;
constexpr std::uint64_t kBlankPixels = 4u << 20;

struct Reader {
  std::span<const std::uint8_t> bytes;
  std::size_t at = 0;
};

int readFrom(GifFileType* gif, GifByteType* out, int wanted) {
  auto* r = static_cast<Reader*>(gif->UserData);
  const std::size_t n = std::min<std::size_t>(static_cast<std::size_t>(std::max(wanted, 0)), r->bytes.size() - r->at);
  std::memcpy(out, r->bytes.data() + r->at, n);
  r->at += n;
  return static_cast<int>(n);
}

struct GifDeleter {
  void operator()(GifFileType* g) const noexcept {
    int error = 0;
    DGifCloseFile(g, &error);
  }
};
using GifFile = std::unique_ptr<GifFileType, GifDeleter>;

// The decoder and its reader together: the reader must outlive every read.
struct Opened {
  std::unique_ptr<Reader> reader;
  GifFile gif;
};

Status gifError(const char* what, int code) {
  const char* text = GifErrorString(code);
  return Status::dataLoss(std::string("cannot decode GIF") + what + ": " + (text ? text : "giflib error"));
}

StatusOr<Opened> open(std::span<const std::uint8_t> bytes) {
  Opened o;
  o.reader = std::make_unique<Reader>(Reader{bytes});
  int error = 0;
  o.gif.reset(DGifOpen(o.reader.get(), readFrom, &error));
  if (!o.gif) return gifError(" header", error);
  return o;
}

Status checkSize(const char* what, long width, long height, const DecodeLimits& limits) {
  if (width <= 0 || height <= 0) return Status::dataLoss(std::string("cannot decode GIF: empty ") + what);
  const std::uint64_t pixels = static_cast<std::uint64_t>(width) * static_cast<std::uint64_t>(height);
  if (pixels > limits.maxPixels || pixels * 4 > limits.maxBytes)
    return Status::resourceExhausted("cannot decode: GIF " + std::string(what) + " " + std::to_string(width) + "x" +
                                     std::to_string(height) + " exceeds the pixel limit of " +
                                     std::to_string(limits.maxPixels));
  return Status::okStatus();
}

// The transparent colour index a graphic control block names, or -1.
int transparentIndex(const GifByteType* block) {
  if (!block || block[0] < 4) return -1;
  return (block[1] & 0x01) ? block[4] : -1;
}

// Skips to the first frame, noting its graphic control block on the way.
Status toFirstFrame(GifFileType* gif, int& transparent) {
  for (;;) {
    GifRecordType type = UNDEFINED_RECORD_TYPE;
    if (DGifGetRecordType(gif, &type) == GIF_ERROR) return gifError("", gif->Error);
    if (type == IMAGE_DESC_RECORD_TYPE) return Status::okStatus();
    if (type == TERMINATE_RECORD_TYPE) return Status::dataLoss("cannot decode GIF: it holds no frame");
    if (type != EXTENSION_RECORD_TYPE) return Status::dataLoss("cannot decode GIF: unexpected record");
    int code = 0;
    GifByteType* block = nullptr;
    if (DGifGetExtension(gif, &code, &block) == GIF_ERROR) return gifError("", gif->Error);
    if (code == GRAPHICS_EXT_FUNC_CODE) transparent = transparentIndex(block);
    while (block)
      if (DGifGetExtensionNext(gif, &block) == GIF_ERROR) return gifError("", gif->Error);
  }
}

// The rows of a frame in the order they are stored (interlaced: four passes).
std::vector<int> rowOrder(int height, bool interlaced) {
  std::vector<int> rows;
  rows.reserve(static_cast<std::size_t>(height));
  if (!interlaced) {
    for (int y = 0; y < height; ++y) rows.push_back(y);
    return rows;
  }
  static const int kStart[4] = {0, 4, 2, 1}, kStep[4] = {8, 8, 4, 2};
  for (int pass = 0; pass < 4; ++pass)
    for (int y = kStart[pass]; y < height; y += kStep[pass]) rows.push_back(y);
  return rows;
}

// Reads the first frame's rows in stored order, handing each to `row` with its
// frame row number; only one row of the frame is held at a time.
template <typename RowFn>
Status readFirstFrame(const Bytes& bytes, const DecodeLimits& limits, RowFn&& row) {
  ASSIGN_OR_RETURN(Opened o, open(bytes));
  GifFileType* gif = o.gif.get();
  int transparent = -1;
  RETURN_IF_ERROR(toFirstFrame(gif, transparent));
  if (DGifGetImageDesc(gif) == GIF_ERROR) return gifError(" frame", gif->Error);
  const GifImageDesc& frame = gif->Image;
  RETURN_IF_ERROR(checkSize("frame", frame.Width, frame.Height, limits));
  const ColorMapObject* map = frame.ColorMap ? frame.ColorMap : gif->SColorMap;
  if (!map || !map->Colors) return Status::dataLoss("cannot decode GIF: the frame has no colour table");
  std::vector<GifPixelType> line(static_cast<std::size_t>(frame.Width));
  for (int y : rowOrder(frame.Height, frame.Interlace)) {
    if (DGifGetLine(gif, line.data(), frame.Width) == GIF_ERROR) return gifError(" frame", gif->Error);
    row(frame, *map, transparent, y, line);
  }
  return Status::okStatus();
}

class GifSource final : public ImageSource {
 public:
  GifSource(std::shared_ptr<const Bytes> bytes, int w, int h, DecodeLimits limits)
      : bytes_(std::move(bytes)), w_(w), h_(h), limits_(limits) {}
  int width() const override { return w_; }
  int height() const override { return h_; }
  std::string typeName() const override { return "gif"; }
  std::shared_ptr<const Bytes> iccProfile() const override { return nullptr; }
  Status checkDecode(int, int) const override { return Status::okStatus(); }

  // The frame's data decodes, read a row at a time: no screen is allocated.
  Status checkPixels() const override {
    return readFirstFrame(*bytes_, limits_, [](const GifImageDesc&, const ColorMapObject&, int, int,
                                               const std::vector<GifPixelType>&) {});
  }

  StatusOr<Bitmap> decode(int, int) const override {
    Bitmap out(w_, h_, 4);  // zeroed: the uncovered screen stays transparent
    RETURN_IF_ERROR(readFirstFrame(
        *bytes_, limits_,
        [&](const GifImageDesc& frame, const ColorMapObject& map, int transparent, int y,
            const std::vector<GifPixelType>& line) {
          const long screenY = static_cast<long>(frame.Top) + y;
          if (screenY < 0 || screenY >= h_) return;
          for (int x = 0; x < frame.Width; ++x) {
            const long screenX = static_cast<long>(frame.Left) + x;
            const int index = line[static_cast<std::size_t>(x)];
            // An index past the colour table has no colour: it stays transparent.
            if (screenX < 0 || screenX >= w_ || index == transparent || index >= map.ColorCount) continue;
            std::uint8_t* p = out.row(static_cast<int>(screenY)) + screenX * 4;
            p[0] = map.Colors[index].Red, p[1] = map.Colors[index].Green, p[2] = map.Colors[index].Blue, p[3] = 255;
          }
        }));
    return out;
  }

 private:
  std::shared_ptr<const Bytes> bytes_;
  int w_, h_;
  DecodeLimits limits_;
};

}  // namespace

bool GifCodec::looksLike(std::span<const std::uint8_t> b) {
  return b.size() >= 6 && (std::memcmp(b.data(), "GIF87a", 6) == 0 || std::memcmp(b.data(), "GIF89a", 6) == 0);
}

StatusOr<std::shared_ptr<const ImageSource>> GifCodec::source(std::shared_ptr<const Bytes> bytes,
                                                               const DecodeLimits& limits) {
  if (!bytes || !looksLike(*bytes)) return Status::invalidArgument("cannot decode: not a GIF file");
  ASSIGN_OR_RETURN(Opened o, open(*bytes));
  const int w = o.gif->SWidth, h = o.gif->SHeight;
  RETURN_IF_ERROR(checkSize("screen", w, h, limits));
  // The screen is what a decode allocates, yet a tiny file may declare a huge
  // one around a one-pixel frame. LZW with 12-bit codes draws at most about
  // 2730 pixels per byte; a screen beyond that (and a blank allowance) is
  // refused before its memory is taken.
  const std::uint64_t screen = static_cast<std::uint64_t>(w) * static_cast<std::uint64_t>(h);
  if (screen > kBlankPixels + kLzwPixelsPerByte * bytes->size())
    return Status::dataLoss("cannot decode GIF: a " + std::to_string(w) + "x" + std::to_string(h) + " screen is more than " +
                            std::to_string(bytes->size()) + " bytes can fill");
  return std::shared_ptr<const ImageSource>(std::make_shared<GifSource>(std::move(bytes), w, h, limits));
}

}  // namespace velqor
