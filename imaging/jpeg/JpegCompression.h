#pragma once

#include <algorithm>
#include <cstdint>

#include "host/Value.h"
#include "imaging/ByteSink.h"
#include "imaging/jpeg/LibjpegErrors.h"

namespace velqor {

// One libjpeg compressor writing into `out` or a sink, owned outside the setjmp
// frame of the calls that drive it (errors return through `errors`). The
// output grows in place, so the finished file is never copied.
//
// Usage: `if (setjmp(c.errors.jump)) return false; c.open(expectedBytes);`, then
// set the parameters and compress in the same frame.
//
// Threads: one thread at a time.
struct JpegCompression {
  // The destination manager that knows its owner (client_data stays free).
  struct Destination : jpeg_destination_mgr {
    JpegCompression* owner = nullptr;
  };

  jpeg_compress_struct info{};
  LibjpegErrors errors;
  Destination destination{};
  Bytes out;
  ByteSink* sink = nullptr;
  bool sinkRefused = false;
  bool created = false;

  JpegCompression() = default;
  JpegCompression(const JpegCompression&) = delete;
  JpegCompression& operator=(const JpegCompression&) = delete;
  ~JpegCompression() {
    if (created) jpeg_destroy_compress(&info);
  }

  // Rows handed to libjpeg at a time by the streaming encoders: one 4:2:0 MCU row.
  static constexpr int kStripRows = 16;
  static constexpr size_t kGrowthStep = 1 << 20;
  static constexpr size_t kSinkBuffer = 256 << 10;

  // Writes `rows` (at most kStripRows) rows that lie `stride` bytes apart;
  // false when libjpeg reported an error.
  bool writeStrip(const std::uint8_t* strip, int rows, size_t stride) {
    if (setjmp(errors.jump)) return false;
    JSAMPROW pointers[kStripRows];
    for (int i = 0; i < rows; ++i) pointers[i] = const_cast<JSAMPROW>(strip + stride * static_cast<size_t>(i));
    jpeg_write_scanlines(&info, pointers, static_cast<JDIMENSION>(rows));
    return true;
  }

  bool finish() {
    if (setjmp(errors.jump)) return false;
    jpeg_finish_compress(&info);
    return true;
  }

  // Into `out`: its capacity is reserved from `expectedBytes` but filled a
  // step at a time, so the memory in use follows the bytes written, never the
  // estimate. With a sink, through a buffer of kSinkBuffer bytes handed over
  // each time it fills; `sinkRefused` once the sink said no (the rest is
  // dropped, and the caller reports the failure after finishing).
  void open(size_t expectedBytes, ByteSink* to = nullptr) {
    errors.attach(reinterpret_cast<j_common_ptr>(&info));
    jpeg_create_compress(&info);
    created = true;
    destination.owner = this;
    sink = to;
    if (sink) {
      out.resize(kSinkBuffer);
    } else {
      out.reserve(std::max<size_t>(expectedBytes, 64 << 10));
      out.resize(std::min(out.capacity(), kGrowthStep));
    }
    destination.next_output_byte = out.data();
    destination.free_in_buffer = out.size();
    destination.init_destination = [](j_compress_ptr) {};
    destination.empty_output_buffer = [](j_compress_ptr c) -> boolean {
      // Called only when the whole buffer is full.
      auto& self = *static_cast<Destination*>(c->dest)->owner;
      if (self.sink) {
        self.handOver(self.out.size());
        self.destination.next_output_byte = self.out.data();
        self.destination.free_in_buffer = self.out.size();
        return TRUE;
      }
      const size_t used = self.out.size();
      if (used == self.out.capacity()) self.out.reserve(used * 2);
      self.out.resize(std::min(self.out.capacity(), used + kGrowthStep));
      self.destination.next_output_byte = self.out.data() + used;
      self.destination.free_in_buffer = self.out.size() - used;
      return TRUE;
    };
    destination.term_destination = [](j_compress_ptr c) {
      auto& self = *static_cast<Destination*>(c->dest)->owner;
      const size_t used = self.out.size() - self.destination.free_in_buffer;
      if (!self.sink) {
        self.out.resize(used);
        return;
      }
      self.handOver(used);
      Bytes().swap(self.out);
    };
    info.dest = &destination;
  }

 private:
  void handOver(size_t bytes) {
    if (bytes > 0 && !sinkRefused && !(*sink)(out.data(), bytes)) sinkRefused = true;
  }
};

}  // namespace velqor
