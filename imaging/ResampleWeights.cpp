#include "imaging/ResampleWeights.h"

#include <algorithm>
#include <cmath>

namespace velqor {

ResampleWeights ResampleWeights::forAxis(int in, int out) {
  ResampleWeights c;
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

}  // namespace velqor
