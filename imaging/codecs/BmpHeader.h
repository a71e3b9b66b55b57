#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "host/StatusOr.h"
#include "imaging/ImageSource.h"

namespace velqor {

// What a BMP file's headers say about its pixels, read and checked without
// touching them: the OS/2 v1 core header (12 bytes), the Windows info header
// (40) and its longer forms (52 and 56 with the bit masks inside, OS/2 v2's 64,
// V4's 108 and V5's 124); 1, 2, 4 and 8 bits through a palette, 16, 24 and 32
// bits direct; uncompressed, bit fields (with or without alpha), RLE8 and RLE4.
//
// `read` refuses, with the reason, what cannot be drawn and what the limits
// or the file's own length rule out: an uncompressed image whose rows the file
// does not hold, and a run-length image claiming far more pixels than its data
// could fill. So the memory a decode takes always follows from the bytes.
//
// Threads: any; a plain value.
struct BmpHeader {
  enum class Coding { raw, bitFields, rle8, rle4 };

  // One colour channel inside a direct pixel: where its bits sit.
  struct Channel {
    std::uint32_t mask = 0;
    int shift = 0;
    int bits = 0;
    // The channel's value in a pixel on 0-255: v x 255 / max, rounded down.
    std::uint8_t from(std::uint32_t pixel) const;
  };

  int width = 0;
  int height = 0;
  bool topDown = false;
  int bitsPerPixel = 0;
  Coding coding = Coding::raw;
  std::array<Channel, 4> channels;  // red, green, blue, alpha (for 16 and 32 bits)
  bool hasAlpha = false;
  std::vector<std::array<std::uint8_t, 3>> palette;  // RGB, at most 256 entries
  std::size_t dataOffset = 0;
  std::size_t dataSize = 0;  // the bytes from dataOffset to the end of the file

  // Bytes in one stored row of an uncompressed image, padding included.
  std::size_t rowStride() const;
  int outputChannels() const { return hasAlpha ? 4 : 3; }

  static StatusOr<BmpHeader> read(std::span<const std::uint8_t> file, const DecodeLimits& limits);
};

}  // namespace velqor
