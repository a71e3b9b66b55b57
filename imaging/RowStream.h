#pragma once

#include <cstddef>
#include <cstdint>

#include "host/Status.h"

namespace velqor {

// Pixels of one image handed out top to bottom, a few rows at a time, so a
// full-size image can go from decoder to encoder without a whole bitmap.
//
// Threads: one thread at a time (a pump may hand the stream to its producer
// thread, which then is the only caller).
class RowStream {
 public:
  // What the channels of a row hold: the encoders write each as it is.
  enum class Layout { grey, rgb, rgba, ycbcr };

  virtual ~RowStream() = default;
  virtual int width() const = 0;
  virtual int height() const = 0;
  virtual Layout layout() const = 0;
  // Fills `rows` rows (each width() * channels() bytes, no padding) with the
  // next rows of the image; false when they could not be had (status() says why).
  virtual bool read(std::uint8_t* out, int rows) = 0;
  // Ok, or why the last read failed.
  virtual Status status() const = 0;

  int channels() const { return channelsOf(layout()); }
  std::size_t stride() const { return static_cast<std::size_t>(width()) * static_cast<std::size_t>(channels()); }
  static int channelsOf(Layout layout) { return layout == Layout::grey ? 1 : layout == Layout::rgba ? 4 : 3; }
};

}  // namespace velqor
