#pragma once

#include <cstdint>
#include <string>

#include <span>

#include "host/StatusOr.h"
#include "host/Value.h"

namespace velqor {

// Whole-file reads and writes with clear errors.
class FileBytes {
 public:
  // Refuses files larger than `maxBytes` before reading them.
  static StatusOr<Bytes> read(const std::string& path, std::uint64_t maxBytes = 1ull << 32);
  // Writes through a temporary name in the same directory and renames it into place.
  static Status writeAtomically(const std::string& path, std::span<const std::uint8_t> bytes);
  // Writes every byte to `fd`, retrying interrupted and short writes; 0 or the errno.
  static int writeAll(int fd, std::span<const std::uint8_t> bytes);
};

}  // namespace velqor
