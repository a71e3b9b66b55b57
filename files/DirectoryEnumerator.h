#pragma once

#include <optional>
#include <string>
#include <vector>

#include "host/UniqueFd.h"

namespace velqor {

// Yields the paths of all entries below a directory, relative to it, a
// directory before its contents. It descends into a directory only when its
// turn comes, so a directory removed after it was yielded contributes nothing
// more. Symbolic links are yielded as entries and never followed; names in one
// directory come in byte order so runs are repeatable.
//
// Threads: one thread at a time.
class DirectoryEnumerator {
 public:
  // None when the path is not a directory that can be opened.
  static std::optional<DirectoryEnumerator> open(const std::string& directory);

  // The next relative path; none at the end.
  std::optional<std::string> nextObject();

 private:
  struct Level {
    UniqueFd fd;
    std::string prefix;
    std::vector<std::string> names;
    size_t next = 0;
  };
  static std::optional<Level> readLevel(UniqueFd fd, std::string prefix);

  std::vector<Level> stack_;
  std::optional<std::string> pendingDescent_;
};

}  // namespace velqor
