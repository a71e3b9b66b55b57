#pragma once

#include <cstdint>
#include <deque>
#include <vector>

#include "imaging/Bitmap.h"
#include "imaging/ResampleWeights.h"

namespace velqor {

// Resampler::resize for a shrinking height, fed one source row at a time:
// each row is added into the output rows whose window holds it, and an output
// row is finished (back to bytes, then its horizontal pass) as soon as its
// window is complete. The pixels are Resampler's byte for byte, while only
// the output and the few open accumulator rows are held.
//
// Threads: one at a time.
class RowResampler {
 public:
  // `outHeight` must be below `inHeight`.
  RowResampler(int inWidth, int inHeight, int channels, int outWidth, int outHeight);

  // The next source row (inWidth x channels bytes).
  void push(const std::uint8_t* row);
  // The resized bitmap, once every source row was pushed.
  Bitmap take();

 private:
  void finish(int outRow, const std::vector<int>& sums);

  ResampleWeights vertical_, horizontal_;
  int inWidth_, channels_, outWidth_;
  int nextSource_ = 0;  // rows pushed so far
  int nextOpen_ = 0;    // the next output row whose window has not started
  int firstOpen_ = 0;   // the oldest output row still summing
  std::deque<std::vector<int>> open_;
  std::vector<std::vector<int>> spare_;
  std::vector<std::uint8_t> narrow_;
  Bitmap out_;
};

}  // namespace velqor
