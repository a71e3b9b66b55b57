#pragma once

#include <string>
#include <vector>

#include "host/StatusOr.h"
#include "host/UniqueFd.h"

namespace velqor {

// Opens files for the web host's file route, and only files that really lie
// inside one of a fixed set of directories: the path is resolved with every
// symbolic link followed, and the result must still be below a root. Names
// with "..", NUL bytes or relative paths never reach the file system. Only
// media files (images and movies, by name) are opened: never a database,
// journal or lock file that shares a root.
//
// Threads: any; the roots are fixed at construction.
class ContainedFiles {
 public:
  // Roots that do not exist (yet) are kept by name and match nothing until they do.
  explicit ContainedFiles(std::vector<std::string> roots);

  struct Opened {
    UniqueFd fd;
    std::string path;  // the resolved path
    std::int64_t size = 0;
  };
  // NOT_FOUND for anything outside the roots, missing, or not a regular file;
  // INVALID_ARGUMENT for a malformed name.
  StatusOr<Opened> open(const std::string& requested) const;

  // The content type a browser needs for a file of this name.
  static std::string contentType(const std::string& path);

 private:
  std::vector<std::string> roots_;
};

}  // namespace velqor
