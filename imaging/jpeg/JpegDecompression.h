#pragma once

#include <cstdint>
#include <span>

#include "imaging/jpeg/LibjpegErrors.h"

namespace velqor {

// One libjpeg decompressor over bytes in memory, owned outside the setjmp
// frame of the calls that drive it: errors return through `errors`, a
// progressive file stops at kMaxScans scans (a hostile file can hold
// thousands), and the coefficient buffers always stay in memory.
//
// Usage: `if (setjmp(d.errors.jump)) return false; d.open(bytes);` and then any
// libjpeg call in the same frame. The bytes must outlive the object.
//
// Threads: one thread at a time.
struct JpegDecompression {
  static constexpr int kMaxScans = 500;

  jpeg_decompress_struct info{};
  LibjpegErrors errors;
  jpeg_progress_mgr progress{};
  bool created = false;

  JpegDecompression() = default;
  JpegDecompression(const JpegDecompression&) = delete;
  JpegDecompression& operator=(const JpegDecompression&) = delete;
  ~JpegDecompression() {
    if (created) jpeg_destroy_decompress(&info);
  }

  // Creates the decompressor and reads the header; jumps on a bad header.
  void open(std::span<const std::uint8_t> bytes) {
    errors.attach(reinterpret_cast<j_common_ptr>(&info));
    jpeg_create_decompress(&info);
    created = true;
    // Backing store would fail here: keep every buffer in memory whatever JPEGMEM says.
    info.mem->max_memory_to_use = 0;
    progress.progress_monitor = [](j_common_ptr c) {
      auto* d = reinterpret_cast<j_decompress_ptr>(c);
      if (d->input_scan_number <= kMaxScans) return;
      auto* self = reinterpret_cast<LibjpegErrors*>(c->err);
      std::snprintf(self->message, sizeof self->message, "more than %d scans", kMaxScans);
      std::longjmp(self->jump, 1);
    };
    info.progress = &progress;
    jpeg_mem_src(&info, bytes.data(), static_cast<unsigned long>(bytes.size()));
    jpeg_read_header(&info, TRUE);
  }
};

}  // namespace velqor
