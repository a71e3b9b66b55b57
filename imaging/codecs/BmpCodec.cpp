#include "imaging/codecs/BmpCodec.h"

#include <algorithm>
#include <cstring>
#include <string>

#include "imaging/codecs/BmpHeader.h"

namespace velqor {
namespace {

// Writes one image row at a time, whichever way up the file stores them.
class PixelWriter {
 public:
  PixelWriter(const BmpHeader& header, Bitmap& out) : header_(header), out_(out) {}

  // The image row that the file's `storedRow` (0 = first stored) is.
  std::uint8_t* row(int storedRow) {
    return out_.row(header_.topDown ? storedRow : header_.height - 1 - storedRow);
  }

  // The colour of a palette index. An index past the palette has no colour
  // in the file; it shows as the grey of its own value (as Pillow shows it),
  // never as memory the file did not fill.
  void index(std::uint8_t* p, unsigned i) const {
    if (i < header_.palette.size()) {
      std::memcpy(p, header_.palette[i].data(), 3);
    } else {
      p[0] = p[1] = p[2] = static_cast<std::uint8_t>(i);
    }
  }

  void direct(std::uint8_t* p, std::uint32_t pixel) const {
    for (std::size_t c = 0; c < 3; ++c) p[c] = header_.channels[c].from(pixel);
    if (header_.hasAlpha) p[3] = header_.channels[3].from(pixel);
  }

 private:
  const BmpHeader& header_;
  Bitmap& out_;
};

void decodeRaw(const BmpHeader& header, std::span<const std::uint8_t> data, Bitmap& out) {
  PixelWriter writer(header, out);
  const int bpp = header.bitsPerPixel, channels = out.channels;
  const std::size_t stride = header.rowStride();
  for (int r = 0; r < header.height; ++r) {
    const std::uint8_t* in = data.data() + stride * static_cast<std::size_t>(r);
    std::uint8_t* p = writer.row(r);
    for (int x = 0; x < header.width; ++x, p += channels) {
      if (bpp <= 8) {
        const std::size_t bit = static_cast<std::size_t>(x) * static_cast<std::size_t>(bpp);
        const unsigned byte = in[bit / 8];
        writer.index(p, (byte >> (8 - bpp - static_cast<int>(bit % 8))) & ((1u << bpp) - 1));
        continue;
      }
      const std::uint8_t* q = in + static_cast<std::size_t>(x) * static_cast<std::size_t>(bpp / 8);
      std::uint32_t pixel = q[0] | static_cast<std::uint32_t>(q[1]) << 8;
      if (bpp >= 24) pixel |= static_cast<std::uint32_t>(q[2]) << 16;
      if (bpp == 32) pixel |= static_cast<std::uint32_t>(q[3]) << 24;
      writer.direct(p, pixel);
    }
  }
}

// RLE8 and RLE4: runs of one index (two alternating ones for RLE4), literal
// runs padded to a whole 16-bit word, and escapes for the end of a row, the
// end of the image and a jump ahead. Pixels no run reaches keep palette entry
// 0. Runs past the row's end are cut there; data ending without an
// end-of-image escape ends the image.
void decodeRle(const BmpHeader& header, std::span<const std::uint8_t> data, Bitmap& out) {
  PixelWriter writer(header, out);
  const bool four = header.coding == BmpHeader::Coding::rle4;
  const int channels = out.channels;
  std::uint8_t blank[4] = {0, 0, 0, 255};
  writer.index(blank, 0);
  for (int r = 0; r < header.height; ++r) {
    std::uint8_t* p = writer.row(r);
    for (int x = 0; x < header.width; ++x) std::memcpy(p + static_cast<std::size_t>(x) * channels, blank, channels);
  }
  auto put = [&](int row, int x, unsigned index) {
    if (x < header.width) writer.index(writer.row(row) + static_cast<std::size_t>(x) * channels, index);
  };
  std::size_t at = 0;
  int x = 0, row = 0;
  while (row < header.height && at + 2 <= data.size()) {
    const unsigned count = data[at], value = data[at + 1];
    at += 2;
    if (count > 0) {
      for (unsigned i = 0; i < count && x < header.width; ++i, ++x)
        put(row, x, four ? (i % 2 == 0 ? value >> 4 : value & 0x0F) : value);
      continue;
    }
    if (value == 0) {  // end of row
      x = 0, ++row;
    } else if (value == 1) {  // end of image
      break;
    } else if (value == 2) {  // jump right and up
      if (at + 2 > data.size()) break;
      x = std::min(header.width, x + data[at]);
      row += data[at + 1];
      at += 2;
    } else {  // a literal run of `value` pixels
      const std::size_t bytes = four ? (value + 1) / 2 : value;
      if (at + bytes > data.size()) break;
      for (unsigned i = 0; i < value; ++i, ++x) {
        const unsigned byte = data[at + (four ? i / 2 : i)];
        put(row, x, four ? (i % 2 == 0 ? byte >> 4 : byte & 0x0F) : byte);
      }
      x = std::min(x, header.width);
      at += bytes + (bytes % 2);
    }
  }
}

class BmpSource final : public ImageSource {
 public:
  BmpSource(std::shared_ptr<const Bytes> bytes, BmpHeader header) : bytes_(std::move(bytes)), header_(std::move(header)) {}
  int width() const override { return header_.width; }
  int height() const override { return header_.height; }
  std::string typeName() const override { return "bmp"; }
  std::shared_ptr<const Bytes> iccProfile() const override { return nullptr; }
  Status checkDecode(int, int) const override { return Status::okStatus(); }
  // The header checked that the data can be drawn, every byte of it: an
  // uncompressed image holds all its rows, and a run-length one draws
  // whatever its runs say.
  Status checkPixels() const override { return Status::okStatus(); }

  StatusOr<Bitmap> decode(int, int) const override {
    Bitmap out(header_.width, header_.height, header_.outputChannels());
    const auto data = std::span<const std::uint8_t>(*bytes_).subspan(header_.dataOffset);
    if (header_.coding == BmpHeader::Coding::rle8 || header_.coding == BmpHeader::Coding::rle4)
      decodeRle(header_, data, out);
    else
      decodeRaw(header_, data, out);
    return out;
  }

 private:
  std::shared_ptr<const Bytes> bytes_;
  BmpHeader header_;
};

}  // namespace

bool BmpCodec::looksLike(std::span<const std::uint8_t> b) { return b.size() >= 14 && b[0] == 'B' && b[1] == 'M'; }

StatusOr<std::shared_ptr<const ImageSource>> BmpCodec::source(std::shared_ptr<const Bytes> bytes,
                                                               const DecodeLimits& limits) {
  if (!bytes || !looksLike(*bytes)) return Status::invalidArgument("cannot decode: not a BMP file");
  ASSIGN_OR_RETURN(BmpHeader header, BmpHeader::read(*bytes, limits));
  return std::shared_ptr<const ImageSource>(std::make_shared<BmpSource>(std::move(bytes), std::move(header)));
}

}  // namespace velqor
