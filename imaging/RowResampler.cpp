#include "imaging/RowResampler.h"

#include <algorithm>
#include <cstring>

namespace velqor {

RowResampler::RowResampler(int inWidth, int inHeight, int channels, int outWidth, int outHeight)
    : vertical_(ResampleWeights::forAxis(inHeight, outHeight)),
      horizontal_(ResampleWeights::forAxis(inWidth, outWidth)),
      inWidth_(inWidth),
      channels_(channels),
      outWidth_(outWidth),
      narrow_(static_cast<size_t>(inWidth) * channels),
      out_(outWidth, outHeight, channels) {}

void RowResampler::push(const std::uint8_t* row) {
  const int r = nextSource_++;
  const int outHeight = out_.height;
  while (nextOpen_ < outHeight && vertical_.start[nextOpen_] <= r) {
    std::vector<int> sums;
    if (!spare_.empty()) {
      sums = std::move(spare_.back());
      spare_.pop_back();
    }
    sums.assign(narrow_.size(), 0);
    open_.push_back(std::move(sums));
    ++nextOpen_;
  }
  const size_t rowBytes = narrow_.size();
  for (size_t i = 0; i < open_.size(); ++i) {
    const int o = firstOpen_ + static_cast<int>(i);
    const int k = r - vertical_.start[o];
    if (k < 0 || k >= vertical_.count[o]) continue;
    const int wk = vertical_.of(o)[k];
    int* sums = open_[i].data();
    for (size_t x = 0; x < rowBytes; ++x) sums[x] += wk * row[x];
  }
  while (!open_.empty() && vertical_.start[firstOpen_] + vertical_.count[firstOpen_] - 1 <= r) {
    finish(firstOpen_++, open_.front());
    spare_.push_back(std::move(open_.front()));
    open_.pop_front();
  }
}

void RowResampler::finish(int outRow, const std::vector<int>& sums) {
  for (size_t x = 0; x < narrow_.size(); ++x) narrow_[x] = ResampleWeights::toByte(sums[x]);
  if (outWidth_ == inWidth_)
    std::memcpy(out_.row(outRow), narrow_.data(), narrow_.size());
  else
    horizontal_.horizontalRow(channels_, narrow_.data(), out_.row(outRow), outWidth_);
}

Bitmap RowResampler::take() {
  // Windows end in order, so nothing is left open once every row came; a short
  // feed leaves its unfinished rows with the sums they have.
  while (!open_.empty()) {
    finish(firstOpen_++, open_.front());
    open_.pop_front();
  }
  return std::move(out_);
}

}  // namespace velqor
