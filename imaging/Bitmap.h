#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace velqor {

// Interleaved 8-bit pixels, rows top to bottom with no padding: 3 channels
// (RGB) or 4 (RGBA, not premultiplied).
struct Bitmap {
  int width = 0;
  int height = 0;
  int channels = 4;
  std::vector<std::uint8_t> pixels;
  // The colour space the values are in, as ICC profile bytes (always an RGB
  // profile); none means sRGB. Shared and never modified: encoders write these
  // bytes unchanged.
  std::shared_ptr<const std::vector<std::uint8_t>> iccProfile;

  Bitmap() = default;
  Bitmap(int w, int h, int c) : width(w), height(h), channels(c), pixels(static_cast<std::size_t>(w) * h * c) {}

  std::size_t stride() const { return static_cast<std::size_t>(width) * channels; }
  std::uint8_t* row(int y) { return pixels.data() + stride() * y; }
  const std::uint8_t* row(int y) const { return pixels.data() + stride() * y; }
  bool empty() const { return width <= 0 || height <= 0; }
  // True when a pixel is not fully opaque.
  bool hasTransparency() const;
};

}  // namespace velqor
