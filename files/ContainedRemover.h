#pragma once

#include <string>

namespace velqor {

// Removes an entry below a root directory, with its contents when it is a
// directory, without ever following a symbolic link: a link is removed as a
// link, and a link in the middle of the path makes the removal fail. Nothing
// outside the root can be touched.
//
// Threads: any; no state.
class ContainedRemover {
 public:
  // 0 on success, else the errno of the first failure.
  static int remove(const std::string& root, const std::string& relativePath);
};

}  // namespace velqor
