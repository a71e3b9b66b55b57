#pragma once

#include <cstdint>
#include <string>

#include "host/Url.h"

namespace velqor {

// One row of the photo library's index, as checked when it was read.
//
// Threads: a plain value.
struct AssetRecord {
  std::string localIdentifier;  // "UUID/L0/001"
  std::string uuid;             // 36 characters: upper-case hex digits and four '-'
  std::string extension;        // "JPG", "PNG", "HEIC", "MOV", "MP4", "M4V", "DAT"
  bool video = false;
  std::int64_t size = 0;
  double created = 0;           // seconds since the epoch
  std::string file;             // absolute path of the asset's bytes
  // The file's name inside assets/.
  std::string fileName() const { return uuid + "." + extension; }
  Url referenceUrl() const;
};

}  // namespace velqor
