#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "host/StatusOr.h"
#include "host/UniqueFd.h"
#include "host/Value.h"

namespace velqor {

// The photo library's folder as descriptors: the folder itself, assets/ and
// staging/. Every entry below them is reached with openat from these
// descriptors and never through a symbolic link: a link (or an entry another
// user owns) where the library expects its own file or folder is refused, and
// removing an entry removes a link as a link. So a link planted in the folder
// can neither make the library write outside it nor read another file.
//
// Ownership: owns its three descriptors. Threads: any; the calls keep no state
// besides the descriptors, and the file system orders what they do.
class LibraryFolder {
 public:
  // The database's file and SQLite's files beside it.
  static constexpr const char* kDatabase = "library.sqlite";
  static constexpr std::array<const char*, 3> kDatabaseSidecars{"library.sqlite-wal", "library.sqlite-shm",
                                                               "library.sqlite-journal"};

  // Makes the folder and its two subfolders when missing and opens them; why
  // not, when one is a link, not a folder or not the user's.
  static StatusOr<LibraryFolder> open(const std::string& directory);

  const std::string& path() const { return path_; }
  int descriptor() const { return dir_.get(); }

  // The database file, checked without following a link: OK when it is a
  // plain file of the user's or absent (`exists` says which). SQLite's files
  // beside it are checked the same way.
  StatusOr<bool> checkDatabase() const;
  // Creates the empty database file unless something was made there meanwhile
  // (which the open that follows checks).
  Status createDatabase() const;
  // Device and inode of the database file as it is now, not following a link.
  std::optional<std::pair<std::uint64_t, std::uint64_t>> databaseIdentity() const;

  // Writes a new staging file (never replacing one) and flushes it.
  Status writeStaging(const std::string& name, std::span<const std::uint8_t> bytes) const;
  // Copies the file at `source` (the caller's) into a new staging file and flushes it.
  StatusOr<std::int64_t> copyIntoStaging(const std::string& source, const std::string& name) const;
  // Names in staging/, in no order.
  std::vector<std::string> stagingNames() const;
  // True when the staging entry is a plain file of the user's.
  bool stagedFile(const std::string& name) const;
  // Moves a staged file into assets/ under the same name; never moves a link
  // and never replaces an entry already there.
  Status moveIntoAssets(const std::string& name) const;
  void removeStaging(const std::string& name) const;

  // Whether assets/ holds any entry of that name (a link counts).
  bool assetEntryExists(const std::string& name) const;
  // OK when the asset is a plain file of the user's; else why not.
  Status checkAsset(const std::string& name) const;
  // The asset's bytes, opened without following a link.
  StatusOr<Bytes> readAsset(const std::string& name, std::uint64_t maxBytes) const;
  void removeAsset(const std::string& name) const;
  // Flushes assets/ so a rename survives a crash.
  void syncAssets() const;

  // The lock file, opened (made when missing) without following a link.
  UniqueFd openLock() const;

 private:
  LibraryFolder(std::string path, UniqueFd dir, UniqueFd assets, UniqueFd staging);

  std::string path_;
  UniqueFd dir_, assets_, staging_;
};

}  // namespace velqor
