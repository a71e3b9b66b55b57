#include "imaging/codecs/BmpHeader.h"

#include <algorithm>
#include <bit>
#include <climits>
#include <string>

namespace velqor {
namespace {

constexpr std::size_t kFileHeader = 14;
constexpr std::uint32_t kCoreHeader = 12;
constexpr std::uint32_t kInfoHeader = 40;
constexpr std::uint32_t kOs2Header = 64;

// Compression values of the info header.
constexpr std::uint32_t kRgb = 0, kRle8 = 1, kRle4 = 2, kBitFields = 3, kAlphaBitFields = 6;

// A run-length pair (two bytes) draws at most 255 pixels; a delta escape can
// skip more, and an early end of bitmap leaves the rest blank. Beyond this many
// pixels per byte of data, plus a blank allowance, the file cannot be a
// picture worth its memory.
constexpr std::uint64_t kRlePixelsPerByte = 128;
constexpr std::uint64_t kRleBlankPixels = 1u << 20;

std::uint32_t u16(std::span<const std::uint8_t> b, std::size_t at) {
  return static_cast<std::uint32_t>(b[at]) | static_cast<std::uint32_t>(b[at + 1]) << 8;
}
std::uint32_t u32(std::span<const std::uint8_t> b, std::size_t at) {
  return u16(b, at) | u16(b, at + 2) << 16;
}

Status broken(const std::string& why) { return Status::dataLoss("cannot decode BMP: " + why); }

// A channel from its mask; the bits must be contiguous and fit the pixel.
StatusOr<BmpHeader::Channel> channelOf(std::uint32_t mask, int bitsPerPixel) {
  BmpHeader::Channel c;
  if (mask == 0) return c;
  if (bitsPerPixel < 32 && (mask >> bitsPerPixel) != 0) return broken("a colour mask lies outside the pixel");
  c.mask = mask;
  c.shift = std::countr_zero(mask);
  c.bits = std::popcount(mask);
  if (c.bits != 32 && (mask >> c.shift) != (std::uint32_t{1} << c.bits) - 1)
    return broken("a colour mask is not one run of bits");
  return c;
}

}  // namespace

std::uint8_t BmpHeader::Channel::from(std::uint32_t pixel) const {
  if (bits == 0) return 255;
  const std::uint64_t top = (std::uint64_t{1} << bits) - 1;
  return static_cast<std::uint8_t>(((pixel & mask) >> shift) * 255 / top);
}

std::size_t BmpHeader::rowStride() const {
  return (static_cast<std::size_t>(width) * static_cast<std::size_t>(bitsPerPixel) + 31) / 32 * 4;
}

StatusOr<BmpHeader> BmpHeader::read(std::span<const std::uint8_t> file, const DecodeLimits& limits) {
  if (file.size() < kFileHeader + 4 || file[0] != 'B' || file[1] != 'M')
    return Status::invalidArgument("cannot decode: not a BMP file");
  const std::uint32_t headerSize = u32(file, kFileHeader);
  const bool core = headerSize == kCoreHeader;
  const bool known = core || headerSize == kInfoHeader || headerSize == 52 || headerSize == 56 ||
                     headerSize == kOs2Header || headerSize == 108 || headerSize == 124;
  if (!known) return broken("unknown header size " + std::to_string(headerSize));
  if (file.size() < kFileHeader + headerSize) return broken("the header is cut short");
  const std::size_t h = kFileHeader;

  BmpHeader out;
  std::int64_t height = 0;
  std::uint32_t compression = kRgb, colorsUsed = 0;
  if (core) {
    out.width = static_cast<int>(u16(file, h + 4));
    height = u16(file, h + 6);
    out.bitsPerPixel = static_cast<int>(u16(file, h + 10));
  } else {
    out.width = static_cast<std::int32_t>(u32(file, h + 4));
    height = static_cast<std::int32_t>(u32(file, h + 8));
    out.bitsPerPixel = static_cast<int>(u16(file, h + 14));
    compression = u32(file, h + 16);
    colorsUsed = u32(file, h + 32);
  }
  if (out.width <= 0 || height == 0 || height == INT_MIN) return broken("empty or impossible size");
  out.topDown = height < 0;
  out.height = static_cast<int>(height < 0 ? -height : height);

  const int bpp = out.bitsPerPixel;
  const bool indexed = bpp == 1 || bpp == 2 || bpp == 4 || bpp == 8;
  if (!indexed && bpp != 16 && bpp != 24 && bpp != 32)
    return broken("unsupported bit depth " + std::to_string(bpp));
  // OS/2 v2 numbers its own codings 3 and 4 (Huffman, 24-bit RLE); neither is drawn here.
  if (headerSize == kOs2Header && compression > kRle4) return broken("unsupported OS/2 compression");

  std::size_t tableEnd = kFileHeader + headerSize;  // masks after a plain info header, then the palette
  std::uint32_t masks[4] = {0, 0, 0, 0};
  switch (compression) {
    case kRgb:
      out.coding = Coding::raw;
      break;
    case kRle8:
    case kRle4:
      if (bpp != (compression == kRle8 ? 8 : 4)) return broken("run-length coding does not match the bit depth");
      out.coding = compression == kRle8 ? Coding::rle8 : Coding::rle4;
      break;
    case kBitFields:
    case kAlphaBitFields: {
      if (bpp != 16 && bpp != 24 && bpp != 32) return broken("bit fields need 16, 24 or 32 bits");
      out.coding = Coding::bitFields;
      int count = compression == kAlphaBitFields ? 4 : 3;
      std::size_t at = h + 40;
      if (headerSize != kInfoHeader) count = std::min<int>(count, static_cast<int>(headerSize - 40) / 4);
      if (headerSize == kInfoHeader) {
        // The masks follow a plain info header.
        at = tableEnd;
        tableEnd += 4u * count;
        if (file.size() < tableEnd) return broken("the colour masks are cut short");
      }
      for (int i = 0; i < count; ++i) masks[i] = u32(file, at + 4u * i);
      if (headerSize >= 56) masks[3] = u32(file, h + 52);
      break;
    }
    default:
      return broken("unsupported compression " + std::to_string(compression));
  }

  if (!indexed) {
    if (out.coding == Coding::raw || (masks[0] == 0 && masks[1] == 0 && masks[2] == 0 && masks[3] == 0)) {
      // The standard layouts: 5-5-5 for 16 bits, blue-green-red bytes above,
      // and for bit fields that name no channel, 8-bit alpha on top as well.
      const bool fiveBits = bpp == 16;
      masks[0] = fiveBits ? 0x7C00 : 0xFF0000;
      masks[1] = fiveBits ? 0x03E0 : 0x00FF00;
      masks[2] = fiveBits ? 0x001F : 0x0000FF;
      masks[3] = out.coding == Coding::bitFields && bpp == 32 ? 0xFF000000u : 0;
    }
    for (std::size_t i = 0; i < 4; ++i) {
      ASSIGN_OR_RETURN(out.channels[i], channelOf(masks[i], bpp));
    }
    // Alpha only at 32 bits: a 16-bit alpha mask is ignored, as Pillow ignores it.
    out.hasAlpha = bpp == 32 && out.channels[3].bits > 0;
  }

  const std::size_t fileOffset = u32(file, 10);
  if (fileOffset > file.size()) return broken("the pixel data lies past the end of the file");
  if (indexed) {
    // A short palette has fewer entries than the depth allows: the count the
    // header names, or what fits before the pixel data.
    const std::size_t entrySize = core ? 3 : 4;
    std::size_t entries = std::size_t{1} << bpp;
    if (colorsUsed != 0 && colorsUsed < entries) entries = colorsUsed;
    std::size_t end = file.size();
    if (fileOffset > tableEnd) end = fileOffset;
    entries = std::min(entries, end > tableEnd ? (end - tableEnd) / entrySize : 0);
    out.palette.reserve(entries);
    for (std::size_t i = 0; i < entries; ++i) {
      const std::size_t at = tableEnd + i * entrySize;
      out.palette.push_back({file[at + 2], file[at + 1], file[at]});
    }
    tableEnd += entries * entrySize;
  }
  out.dataOffset = fileOffset != 0 ? fileOffset : tableEnd;
  out.dataSize = file.size() - out.dataOffset;

  const std::uint64_t pixels = static_cast<std::uint64_t>(out.width) * static_cast<std::uint64_t>(out.height);
  if (pixels > limits.maxPixels || pixels * static_cast<std::uint64_t>(out.outputChannels()) > limits.maxBytes)
    return Status::resourceExhausted("cannot decode: " + std::to_string(out.width) + "x" + std::to_string(out.height) +
                                     " exceeds the pixel limit of " + std::to_string(limits.maxPixels));
  if (out.coding == Coding::rle8 || out.coding == Coding::rle4) {
    if (pixels > kRleBlankPixels + kRlePixelsPerByte * out.dataSize)
      return broken(std::to_string(out.width) + "x" + std::to_string(out.height) + " is more than " +
                    std::to_string(out.dataSize) + " bytes of run-length data can fill");
  } else {
    // Every row but the last with its padding, the last at least up to its final pixel.
    const std::uint64_t lastRow = (static_cast<std::uint64_t>(out.width) * static_cast<std::uint64_t>(bpp) + 7) / 8;
    const std::uint64_t needed = static_cast<std::uint64_t>(out.rowStride()) * (out.height - 1) + lastRow;
    if (out.dataSize < needed)
      return broken("the file holds " + std::to_string(out.dataSize) + " bytes of pixels where " +
                    std::to_string(needed) + " are needed");
  }
  return out;
}

}  // namespace velqor
