#pragma once

#include <algorithm>
#include <cstdint>

#include "host/Value.h"
#include "imaging/jpeg/LibjpegErrors.h"

namespace velqor {

// One libjpeg compressor writing into `out`, owned outside the setjmp frame of
// the calls that drive it (errors return through `errors`). The output grows
// in place, so the finished file is never copied.
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
  bool created = false;

  JpegCompression() = default;
  JpegCompression(const JpegCompression&) = delete;
  JpegCompression& operator=(const JpegCompression&) = delete;
  ~JpegCompression() {
    if (created) jpeg_destroy_compress(&info);
  }

  // Rows handed to libjpeg at a time by the streaming encoders: one 4:2:0 MCU row.
  static constexpr int kStripRows = 16;

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

  void open(size_t expectedBytes) {
    errors.attach(reinterpret_cast<j_common_ptr>(&info));
    jpeg_create_compress(&info);
    created = true;
    destination.owner = this;
    out.resize(std::max<size_t>(expectedBytes, 64 << 10));
    destination.next_output_byte = out.data();
    destination.free_in_buffer = out.size();
    destination.init_destination = [](j_compress_ptr) {};
    destination.empty_output_buffer = [](j_compress_ptr c) -> boolean {
      // Called only when the whole buffer is full: double it.
      auto& self = *static_cast<Destination*>(c->dest)->owner;
      const size_t used = self.out.size();
      self.out.resize(used * 2);
      self.destination.next_output_byte = self.out.data() + used;
      self.destination.free_in_buffer = self.out.size() - used;
      return TRUE;
    };
    destination.term_destination = [](j_compress_ptr c) {
      auto& self = *static_cast<Destination*>(c->dest)->owner;
      self.out.resize(self.out.size() - self.destination.free_in_buffer);
    };
    info.dest = &destination;
  }
};

}  // namespace velqor
