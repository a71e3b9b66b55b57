#include "imaging/jpeg/JpegSkeleton.h"

#include <algorithm>
#include <cstring>
#include <optional>

#include "imaging/jpeg/JpegDecompression.h"

namespace velqor {
namespace {

constexpr std::uint8_t kMarkerPrefix = 0xFF;
constexpr std::uint8_t kStartOfImage = 0xD8;
constexpr std::uint8_t kEndOfImage = 0xD9;

// Markers that stand alone, without a length: TEM, RST0-RST7, SOI, EOI.
bool standsAlone(std::uint8_t code) { return code == 0x01 || (code >= 0xD0 && code <= 0xD9); }

// The position of the code byte of the next marker at or after `from`, by the
// decoder's rule: an 0xFF, any further 0xFF fill bytes, then a non-zero code.
// Everything skipped (compressed data, stuffed 0xFF 0x00, stray bytes) is what
// the decoder reads as data or discards with a warning.
std::optional<std::size_t> nextMarker(std::span<const std::uint8_t> b, std::size_t from) {
  std::size_t p = from;
  while (p < b.size()) {
    const void* prefix = std::memchr(b.data() + p, kMarkerPrefix, b.size() - p);
    if (!prefix) return std::nullopt;
    p = static_cast<std::size_t>(static_cast<const std::uint8_t*>(prefix) - b.data());
    while (p < b.size() && b[p] == kMarkerPrefix) ++p;
    if (p >= b.size()) return std::nullopt;
    if (b[p] != 0x00) return p;
    ++p;
  }
  return std::nullopt;
}

bool isFrameHeader(std::uint8_t code) {
  // SOF0-SOF15 except DHT (C4), JPG (C8) and DAC (CC).
  return code >= 0xC0 && code <= 0xCF && code != 0xC4 && code != 0xC8 && code != 0xCC;
}

// Shrinks a frame header (the bytes after its marker: length, precision,
// height, width, components) to one MCU; leaves one it cannot read as it is.
void shrinkToOneMcu(std::uint8_t* segment, std::size_t size) {
  if (size < 8) return;
  const std::size_t components = segment[7];
  if (components == 0 || size < 8 + 3 * components) return;
  int hMax = 0, vMax = 0;
  for (std::size_t c = 0; c < components; ++c) {
    const int h = segment[8 + 3 * c + 1] >> 4, v = segment[8 + 3 * c + 1] & 0x0F;
    if (h < 1 || h > 4 || v < 1 || v > 4) return;  // the decoder refuses these itself
    hMax = std::max(hMax, h);
    vMax = std::max(vMax, v);
  }
  const int height = 8 * vMax, width = 8 * hMax;
  segment[3] = static_cast<std::uint8_t>(height >> 8);
  segment[4] = static_cast<std::uint8_t>(height & 0xFF);
  segment[5] = static_cast<std::uint8_t>(width >> 8);
  segment[6] = static_cast<std::uint8_t>(width & 0xFF);
}

// Decodes the whole of `stream` at the smallest scale. Its own setjmp frame
// holds only trivial locals: an error jumps back over no destructor.
bool decodesWhole(JpegDecompression& d, std::span<const std::uint8_t> stream) {
  if (setjmp(d.errors.jump)) return false;
  d.open(stream);
  d.info.scale_num = 1;
  d.info.scale_denom = 8;
  const bool inks = d.info.jpeg_color_space == JCS_CMYK || d.info.jpeg_color_space == JCS_YCCK;
  d.info.out_color_space = inks ? JCS_CMYK : JCS_RGB;
  jpeg_start_decompress(&d.info);
  JSAMPARRAY row = (*d.info.mem->alloc_sarray)(reinterpret_cast<j_common_ptr>(&d.info), JPOOL_IMAGE,
                                               d.info.output_width * static_cast<JDIMENSION>(d.info.output_components), 1);
  while (d.info.output_scanline < d.info.output_height)
    if (jpeg_read_scanlines(&d.info, row, 1) == 0) return false;  // a memory source never suspends
  jpeg_finish_decompress(&d.info);
  return true;
}

}  // namespace

Status JpegSkeleton::check(std::span<const std::uint8_t> bytes) {
  const Bytes skeleton = of(bytes);
  JpegDecompression d;
  if (!decodesWhole(d, skeleton)) return Status::dataLoss("cannot decode JPEG: " + d.errors.text());
  return Status::okStatus();
}

Bytes JpegSkeleton::of(std::span<const std::uint8_t> b) {
  if (b.size() < 2 || b[0] != kMarkerPrefix || b[1] != kStartOfImage) return Bytes(b.begin(), b.end());
  Bytes out{kMarkerPrefix, kStartOfImage};
  std::size_t p = 2;
  bool shrunk = false;
  while (auto at = nextMarker(b, p)) {
    const std::uint8_t code = b[*at];
    out.push_back(kMarkerPrefix);
    out.push_back(code);
    p = *at + 1;
    if (code == kEndOfImage) break;  // the decoder reads no further
    if (standsAlone(code)) continue;
    if (p + 2 > b.size()) {
      out.insert(out.end(), b.begin() + static_cast<std::ptrdiff_t>(p), b.end());
      break;
    }
    // The declared length counts its own two bytes; a length under two is
    // skipped as two, as the decoder's handlers that accept it do.
    const std::size_t length = std::max<std::size_t>(2, (std::size_t{b[p]} << 8) | b[p + 1]);
    const std::size_t end = std::min(b.size(), p + length);
    const std::size_t start = out.size();
    out.insert(out.end(), b.begin() + static_cast<std::ptrdiff_t>(p), b.begin() + static_cast<std::ptrdiff_t>(end));
    if (isFrameHeader(code) && !shrunk) {
      shrinkToOneMcu(out.data() + start, out.size() - start);
      shrunk = true;  // a second frame header is the decoder's error to find, as it stands
    }
    p = end;
  }
  return out;
}

}  // namespace velqor
