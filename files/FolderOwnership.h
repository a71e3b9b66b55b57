#pragma once

#include <string>

#include "host/Status.h"

namespace velqor {

// Which folders this tool created, so that a later run may write into them or
// empty them without asking. The record is a small text file kept outside
// every folder it lists (cleanup removes every entry of the folder it
// empties); each line holds a folder's device, inode and resolved path, so a
// folder that was removed and made again by someone else is not mistaken for
// ours.
//
// Threads: any; every call reads or appends the file anew. Appends are single
// small writes to a file opened O_APPEND, so two processes never interleave a
// line.
class FolderOwnership {
 public:
  explicit FolderOwnership(std::string recordFile);
  // $XDG_STATE_HOME/velqor-camera/created-folders, or ~/.local/state/... .
  static FolderOwnership atDefaultPlace();

  // True when `resolvedFolder` is listed and still the same folder on disk.
  bool created(const std::string& resolvedFolder) const;
  // Adds the folder (which must exist) to the record.
  Status record(const std::string& resolvedFolder) const;

  const std::string& recordFile() const { return recordFile_; }

 private:
  std::string recordFile_;
};

}  // namespace velqor
