#pragma once

#include <string>

#include "host/StatusOr.h"
#include "web/ContainedFiles.h"

namespace velqor {

// The files of one folder, served read-only by their URL path: an app
// developer's page or the host's own scripts. A path names a file only when,
// with every link resolved, it still lies inside the folder; "..", ".",
// hidden names (".git", ".env") and NUL bytes never reach the file system. A
// folder path ("" or ending in "/") means its index.html.
//
// Threads: any; the folder is fixed at construction.
class StaticFolder {
 public:
  explicit StaticFolder(std::string root);

  // NOT_FOUND for a missing, outside or non-regular file; INVALID_ARGUMENT for
  // a malformed path.
  StatusOr<ContainedFiles::Opened> open(const std::string& path) const;

  // The Content-Type of a file by its extension (application/octet-stream
  // for any it does not know).
  static std::string contentType(const std::string& path);

  const std::string& root() const { return root_; }

 private:
  std::string root_;
};

}  // namespace velqor
