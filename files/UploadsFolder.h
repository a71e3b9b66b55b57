#pragma once

#include <memory>
#include <string>

#include "files/FolderPolicy.h"
#include "host/StatusOr.h"
#include "host/UniqueFd.h"

namespace velqor {

// A private folder for the files a web page uploads, below a shared scratch
// folder (TMPDIR or /tmp), named "velqor-serve-XXXXXX". The running server
// holds a lock on it; a folder of that name whose lock nobody holds was left
// by a server that died, and is swept when the next one starts. The folder is
// removed, through FolderPolicy, when its owner goes.
//
// Threads: create and destroy on one thread; path() from any.
class UploadsFolder {
 public:
  // Sweeps stale folders below `base`, then makes and locks a new one.
  static StatusOr<std::unique_ptr<UploadsFolder>> create(const std::string& base);
  // TMPDIR when it is set, else /tmp.
  static std::string defaultBase();
  // Removes every unlocked "velqor-serve-*" folder of this user below `base`;
  // returns how many.
  static size_t sweepStale(const ResolvedFolder& base);
  ~UploadsFolder();

  const std::string& path() const { return path_; }

 private:
  UploadsFolder(ResolvedFolder base, std::string path, UniqueFd lock)
      : base_(std::move(base)), path_(std::move(path)), lock_(std::move(lock)) {}

  ResolvedFolder base_;
  std::string path_;
  UniqueFd lock_;
};

}  // namespace velqor
