#include "platform/Resampler.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

namespace velqor {
namespace {

// For each output coordinate: the first source index and 14-bit fixed-point
// weights over a contiguous window.
struct Contributions {
  std::vector<int> start;
  std::vector<int> count;
  std::vector<std::int16_t> weights;  // `maxTaps` per output coordinate
  int maxTaps = 0;
};

constexpr int kShift = 14;

Contributions contributions(int in, int out) {
  Contributions c;
  const double scale = static_cast<double>(out) / in;
  const double support = scale < 1.0 ? 1.0 / scale : 1.0;  // triangle radius in source pixels
  c.maxTaps = static_cast<int>(std::ceil(support)) * 2 + 1;
  c.start.resize(out);
  c.count.resize(out);
  c.weights.assign(static_cast<size_t>(out) * c.maxTaps, 0);
  std::vector<double> w(c.maxTaps);
  for (int o = 0; o < out; ++o) {
    const double center = (o + 0.5) / scale - 0.5;
    int lo = static_cast<int>(std::floor(center - support)) + 1;
    int hi = static_cast<int>(std::ceil(center + support)) - 1;
    lo = std::max(lo, 0);
    hi = std::min(hi, in - 1);
    if (hi < lo) lo = hi = std::clamp(static_cast<int>(std::lround(center)), 0, in - 1);
    int n = std::min(hi - lo + 1, c.maxTaps);
    double sum = 0;
    for (int k = 0; k < n; ++k) {
      double d = std::abs((lo + k) - center) / support;
      w[k] = d < 1.0 ? 1.0 - d : 0.0;
      sum += w[k];
    }
    if (sum <= 0) {
      w[0] = 1;
      sum = 1;
      n = 1;
    }
    int total = 0;
    std::int16_t* dst = &c.weights[static_cast<size_t>(o) * c.maxTaps];
    for (int k = 0; k < n; ++k) {
      dst[k] = static_cast<std::int16_t>(std::lround(w[k] / sum * (1 << kShift)));
      total += dst[k];
    }
    // Put the rounding error on the largest weight so every row sums to one.
    int biggest = static_cast<int>(std::max_element(dst, dst + n) - dst);
    dst[biggest] = static_cast<std::int16_t>(dst[biggest] + ((1 << kShift) - total));
    c.start[o] = lo;
    c.count[o] = n;
  }
  return c;
}

inline std::uint8_t clampByte(int v) {
  v = (v + (1 << (kShift - 1))) >> kShift;
  return static_cast<std::uint8_t>(v < 0 ? 0 : (v > 255 ? 255 : v));
}

template <int C>
Bitmap horizontal(const Bitmap& s, int outW) {
  Bitmap d(outW, s.height, C);
  Contributions c = contributions(s.width, outW);
  for (int y = 0; y < s.height; ++y) {
    const std::uint8_t* src = s.row(y);
    std::uint8_t* dst = d.row(y);
    for (int o = 0; o < outW; ++o) {
      const std::int16_t* w = &c.weights[static_cast<size_t>(o) * c.maxTaps];
      const std::uint8_t* p = src + static_cast<size_t>(c.start[o]) * C;
      int acc[C] = {};
      for (int k = 0; k < c.count[o]; ++k, p += C)
        for (int ch = 0; ch < C; ++ch) acc[ch] += w[k] * p[ch];
      for (int ch = 0; ch < C; ++ch) dst[o * C + ch] = clampByte(acc[ch]);
    }
  }
  return d;
}

Bitmap vertical(const Bitmap& s, int outH) {
  Bitmap d(s.width, outH, s.channels);
  Contributions c = contributions(s.height, outH);
  const size_t rowBytes = s.stride();
  std::vector<int> acc(rowBytes);
  for (int o = 0; o < outH; ++o) {
    std::fill(acc.begin(), acc.end(), 0);
    const std::int16_t* w = &c.weights[static_cast<size_t>(o) * c.maxTaps];
    for (int k = 0; k < c.count[o]; ++k) {
      const std::uint8_t* src = s.row(c.start[o] + k);
      const int wk = w[k];
      for (size_t x = 0; x < rowBytes; ++x) acc[x] += wk * src[x];
    }
    std::uint8_t* dst = d.row(o);
    for (size_t x = 0; x < rowBytes; ++x) dst[x] = clampByte(acc[x]);
  }
  return d;
}

}  // namespace

Bitmap Resampler::resize(const Bitmap& source, int width, int height) {
  if (source.empty() || width <= 0 || height <= 0) return Bitmap(std::max(width, 0), std::max(height, 0), source.channels);
  if (width == source.width && height == source.height) return source;
  // The vertical pass works on whole rows and vectorizes; run it first whenever it
  // shrinks, so the slower horizontal pass sees fewer rows.
  const bool heightFirst = height < source.height;
  auto horizontalPass = [&](const Bitmap& b) {
    if (b.width == width) return b;
    switch (b.channels) {
      case 4: return horizontal<4>(b, width);
      case 3: return horizontal<3>(b, width);
      default: return horizontal<1>(b, width);
    }
  };
  auto verticalPass = [&](const Bitmap& b) { return b.height == height ? b : vertical(b, height); };
  return heightFirst ? horizontalPass(verticalPass(source)) : verticalPass(horizontalPass(source));
}

}  // namespace velqor
