#include "imaging/Resampler.h"

#include "imaging/ResampleWeights.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

namespace velqor {
namespace {

Bitmap horizontal(const Bitmap& s, int outW) {
  Bitmap d(outW, s.height, s.channels);
  const ResampleWeights c = ResampleWeights::forAxis(s.width, outW);
  for (int y = 0; y < s.height; ++y) c.horizontalRow(s.channels, s.row(y), d.row(y), outW);
  return d;
}

Bitmap vertical(const Bitmap& s, int outH) {
  Bitmap d(s.width, outH, s.channels);
  const ResampleWeights c = ResampleWeights::forAxis(s.height, outH);
  const size_t rowBytes = s.stride();
  std::vector<int> acc(rowBytes);
  for (int o = 0; o < outH; ++o) {
    std::fill(acc.begin(), acc.end(), 0);
    const std::int16_t* w = c.of(o);
    for (int k = 0; k < c.count[o]; ++k) {
      const std::uint8_t* src = s.row(c.start[o] + k);
      const int wk = w[k];
      for (size_t x = 0; x < rowBytes; ++x) acc[x] += wk * src[x];
    }
    std::uint8_t* dst = d.row(o);
    for (size_t x = 0; x < rowBytes; ++x) dst[x] = ResampleWeights::toByte(acc[x]);
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
    return b.width == width ? b : horizontal(b, width);
  };
  auto verticalPass = [&](const Bitmap& b) { return b.height == height ? b : vertical(b, height); };
  return heightFirst ? horizontalPass(verticalPass(source)) : verticalPass(horizontalPass(source));
}

}  // namespace velqor
