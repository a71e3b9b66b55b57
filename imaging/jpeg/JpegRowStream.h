#pragma once

#include <memory>
#include <span>

#include "host/StatusOr.h"
#include "imaging/RowStream.h"

namespace velqor {

struct JpegDecompression;

// The rows of a JPEG at its stored size, decoded a few scanlines at a time:
// RGB (or YCbCr as stored, for a re-encode that converts nothing) for a
// three-component YCbCr file, grey for a grey one. Other files (CMYK, YCCK,
// RGB-coded) are not taken. A baseline file needs only a few rows of memory;
// a progressive one holds its coefficients (two bytes a sample), which the
// caller bounds with `coefficientBytes` first.
//
// Threads: one thread at a time. The bytes must outlive the stream.
class JpegRowStream final : public RowStream {
 public:
  // failedPrecondition for a file this stream does not take; dataLoss for a
  // header that does not decode.
  static StatusOr<std::unique_ptr<JpegRowStream>> open(std::span<const std::uint8_t> jpeg, bool keepYcbcr);
  ~JpegRowStream() override;

  int width() const override { return width_; }
  int height() const override { return height_; }
  Layout layout() const override { return layout_; }
  bool read(std::uint8_t* out, int rows) override;
  Status status() const override { return status_; }

  // What decoding holds besides a few rows: the whole coefficient image of a
  // progressive file, nothing for a baseline one.
  std::uint64_t heldBytes() const { return heldBytes_; }

 private:
  JpegRowStream() = default;

  std::unique_ptr<JpegDecompression> d_;
  int width_ = 0, height_ = 0;
  Layout layout_ = Layout::rgb;
  bool started_ = false;
  std::uint64_t heldBytes_ = 0;
  Status status_;
};

}  // namespace velqor
