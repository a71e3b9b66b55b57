#pragma once

#include <string>

#include "host/UniqueFd.h"

namespace velqor {

// Opens a file by a path that one resolution left without links, one folder
// at a time from `root` and never following a link: a folder on the way that
// was swapped for a link after the path was resolved is refused, not followed
// out of the root.
//
// Threads: any.
class LinkFreeOpen {
 public:
  // What `path` names, read-only and non-blocking (the caller checks that it
  // is a regular file); an invalid descriptor when `path` is not below `root`
  // or any part of it is a link or missing.
  static UniqueFd below(const std::string& root, const std::string& path);
};

}  // namespace velqor
