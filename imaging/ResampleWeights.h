#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace velqor {

// The filter of Resampler along one axis: for each output coordinate the
// first source index and 14-bit fixed-point weights over a contiguous window,
// summing to exactly one. A triangle widened by the reduction factor when
// shrinking, bilinear when enlarging.
struct ResampleWeights {
  static constexpr int kShift = 14;

  std::vector<int> start;
  std::vector<int> count;
  std::vector<std::int16_t> weights;  // `maxTaps` per output coordinate
  int maxTaps = 0;

  static ResampleWeights forAxis(int in, int out);
  const std::int16_t* of(int o) const { return &weights[static_cast<size_t>(o) * maxTaps]; }

  // A fixed-point sum back to a byte, rounded and clamped.
  static std::uint8_t toByte(int v) {
    v = (v + (1 << (kShift - 1))) >> kShift;
    return static_cast<std::uint8_t>(v < 0 ? 0 : (v > 255 ? 255 : v));
  }
  // One row's horizontal pass of `C` interleaved channels into `outWidth` pixels.
  template <int C>
  void horizontalRow(const std::uint8_t* src, std::uint8_t* dst, int outWidth) const {
    for (int o = 0; o < outWidth; ++o) {
      const std::int16_t* w = of(o);
      const std::uint8_t* p = src + static_cast<size_t>(start[o]) * C;
      int acc[C] = {};
      for (int k = 0; k < count[o]; ++k, p += C)
        for (int ch = 0; ch < C; ++ch) acc[ch] += w[k] * p[ch];
      for (int ch = 0; ch < C; ++ch) dst[o * C + ch] = toByte(acc[ch]);
    }
  }
  void horizontalRow(int channels, const std::uint8_t* src, std::uint8_t* dst, int outWidth) const {
    switch (channels) {
      case 4: return horizontalRow<4>(src, dst, outWidth);
      case 3: return horizontalRow<3>(src, dst, outWidth);
      default: return horizontalRow<1>(src, dst, outWidth);
    }
  }
};

}  // namespace velqor
