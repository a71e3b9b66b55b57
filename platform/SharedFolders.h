#pragma once

#include <filesystem>
#include <string_view>

#include "host/Status.h"

namespace velqor {

// The folders no tool of this project may ever write into or empty: the
// file-system root, the home folder and every folder that holds it, the
// shared scratch folders themselves (/tmp, /var/tmp, /dev/shm) and the system
// trees (/usr, /etc, /var, ...) with everything below them. The one list: the
// folder policy of the tools and the temporary directory the plug-in is given
// both ask here.
//
// Threads: any; reads the file system to follow links.
class SharedFolders {
 public:
  // Why `path` may never be written or emptied, or OK. Judged as written and
  // as its links resolve; both must be acceptable.
  static Status refuse(std::string_view path);
  // The path with links followed as far as it exists, made absolute.
  static std::filesystem::path resolve(std::string_view path);
  // `path` without trailing separators, lexically normal.
  static std::string plain(const std::filesystem::path& path);
  // True when `path` is `root` or lies below it (both plain).
  static bool atOrBelow(const std::string& path, const std::string& root);
};

}  // namespace velqor
