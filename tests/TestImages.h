#pragma once

#include <cmath>
#include <cstdint>
#include <string>

#include "imaging/Bitmap.h"

namespace velqor::testing {

struct Rgb {
  int r, g, b;
  friend bool operator==(const Rgb&, const Rgb&) = default;
};
inline std::ostream& operator<<(std::ostream& os, const Rgb& c) {
  return os << "rgb(" << c.r << "," << c.g << "," << c.b << ")";
}

inline const Rgb kRed{255, 0, 0}, kGreen{0, 255, 0}, kBlue{0, 0, 255}, kWhite{255, 255, 255};

// A bitmap split into four solid quadrants: red, green / blue, white.
inline Bitmap quadrants(int w, int h, int channels = 4) {
  Bitmap b(w, h, channels);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      Rgb c = y < h / 2 ? (x < w / 2 ? kRed : kGreen) : (x < w / 2 ? kBlue : kWhite);
      std::uint8_t* p = b.row(y) + x * channels;
      p[0] = static_cast<std::uint8_t>(c.r);
      p[1] = static_cast<std::uint8_t>(c.g);
      p[2] = static_cast<std::uint8_t>(c.b);
      if (channels == 4) p[3] = 255;
    }
  return b;
}

// A bitmap whose every pixel is distinct: (x, y) -> (x * 16, y * 16, 77).
inline Bitmap numbered(int w, int h) {
  Bitmap b(w, h, 4);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      std::uint8_t* p = b.row(y) + x * 4;
      p[0] = static_cast<std::uint8_t>(x * 16);
      p[1] = static_cast<std::uint8_t>(y * 16);
      p[2] = 77;
      p[3] = 255;
    }
  return b;
}

inline Rgb pixel(const Bitmap& b, int x, int y) {
  const std::uint8_t* p = b.row(y) + x * b.channels;
  return {p[0], p[1], p[2]};
}

inline bool near(const Rgb& a, const Rgb& b, int tolerance = 3) {
  return std::abs(a.r - b.r) <= tolerance && std::abs(a.g - b.g) <= tolerance && std::abs(a.b - b.b) <= tolerance;
}

// Peak signal-to-noise ratio of two same-sized bitmaps over their RGB channels.
inline double psnr(const Bitmap& a, const Bitmap& b) {
  double sum = 0;
  size_t n = 0;
  for (int y = 0; y < a.height; ++y)
    for (int x = 0; x < a.width; ++x)
      for (int c = 0; c < 3; ++c) {
        double d = double(a.row(y)[x * a.channels + c]) - double(b.row(y)[x * b.channels + c]);
        sum += d * d;
        ++n;
      }
  if (sum == 0) return 99.0;
  return 10 * std::log10(255.0 * 255.0 / (sum / n));
}

}  // namespace velqor::testing
