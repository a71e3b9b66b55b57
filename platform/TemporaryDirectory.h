#pragma once

#include <string>

#include "host/StatusOr.h"

namespace velqor {

// The application's private temporary directory. `cleanup` deletes every entry
// in it, so it must never be a directory other programs share.
//
// Threads: immutable; any thread.
class TemporaryDirectory {
 public:
  // Refuses the file-system root, the home directory and shared system
  // directories; creates the directory (and its parents) when missing.
  static StatusOr<TemporaryDirectory> open(const std::string& path);
  // $XDG_STATE_HOME/velqor-camera/tmp, or ~/.local/state/velqor-camera/tmp.
  static std::string defaultPath();
  // Checks a path without touching the file system's contents.
  static Status validate(const std::string& path);

  // As the platform reports it: absolute, ending with "/".
  const std::string& path() const { return path_; }

 private:
  explicit TemporaryDirectory(std::string path) : path_(std::move(path)) {}
  std::string path_;
};

}  // namespace velqor
