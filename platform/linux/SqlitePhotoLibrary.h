#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "host/StatusOr.h"
#include "host/ThreadPool.h"
#include "platform/PhotoLibrary.h"
#include "platform/linux/AssetRecord.h"
#include "platform/linux/LibraryFolder.h"

struct sqlite3;

namespace velqor {

// A real photo library: asset files in a directory plus an index in SQLite
// (WAL mode, one transaction per change block).
//
// Saving is crash-safe: bytes go to a staging file that is flushed to disk,
// then the row is committed, then the file is renamed into place and the
// directory flushed; only then is the save reported. Opening the library
// finishes a rename a crash interrupted, and discards staging files that no
// committed row claims, so no half entry ever shows up. Several processes may
// use one directory: SQLite serializes the transactions.
//
// Threads: callable from any thread. Change blocks and completions run on the
// library's own queue thread.
class SqlitePhotoLibrary final : public PhotoLibrary, public std::enable_shared_from_this<SqlitePhotoLibrary> {
 public:
  // Opens now: the directory, the index and its recovery; an error says why.
  static StatusOr<std::shared_ptr<SqlitePhotoLibrary>> open(const std::string& directory);
  // Opens on first use instead: a capture that never reads or saves a picture
  // touches neither the directory nor the index. A library that then cannot
  // be opened fails that use (a change reports the error, a lookup finds
  // nothing, the administration calls return it).
  static std::shared_ptr<SqlitePhotoLibrary> openLazily(const std::string& directory);
  // $XDG_STATE_HOME/velqor-camera/library, beside (never inside) the temporary directory.
  static std::string defaultPath();
  ~SqlitePhotoLibrary() override;

  void performChanges(ChangeBlock block, ChangeDone done) override;
  std::vector<std::shared_ptr<Asset>> fetchAssetsWithALAssetURLs(const std::vector<Url>& urls) override;
  void requestImageDataAndOrientation(const std::shared_ptr<Asset>& asset, const std::optional<Dictionary>& options,
                                      ImageDataHandler handler) override;
  void saveVideoAtPathToSavedPhotosAlbum(const std::string& path) override;

  // Administration, synchronous.
  StatusOr<std::vector<AssetRecord>> list();
  StatusOr<AssetRecord> importFile(const std::string& path);
  StatusOr<std::shared_ptr<Asset>> asset(const std::string& localIdentifierOrUuid);
  // The asset's bytes, read without following a link.
  StatusOr<Bytes> assetBytes(const std::string& localIdentifierOrUuid, std::uint64_t maxBytes);
  Status remove(const std::string& localIdentifier);
  // Waits until every queued change has run.
  void drain();
  bool idle() const;

  const std::string& directory() const { return directory_; }
  // What opening found and repaired: renames finished, leftovers discarded, rows dropped.
  struct Recovery {
    int finished = 0, discarded = 0, dropped = 0;
  };
  const Recovery& recovery() const { return recovery_; }

 private:
  explicit SqlitePhotoLibrary(std::string directory);
  // The directory, the index and the recovery, done once; every use of the
  // index asks first. Before any staging file is written too: recovery
  // discards staging files no row claims.
  Status ensureOpen();
  Status openDatabase();
  Status recover();
  // Checked rows of `sql` (kSelect plus a tail) with one optional text
  // parameter; rows that fail a check are logged and left out, and so are
  // rows whose file is not a plain file of the user's when `present`.
  StatusOr<std::vector<AssetRecord>> rows(const std::string& tail, const std::string* parameter, bool present);
  // Runs one statement with one text parameter; false on failure.
  bool execWith(const char* sql, const std::string& parameter);
  ThreadPool& queue();
  // A file already flushed to the staging directory, waiting for its row.
  struct Staged {
    std::string uuid, extension;
    std::int64_t size = 0;
    bool video = false;
  };
  StatusOr<std::vector<AssetRecord>> commit(std::vector<std::pair<std::shared_ptr<const Bytes>, bool>> resources,
                                            std::vector<std::string> uuids);
  StatusOr<std::vector<AssetRecord>> commitStaged(std::vector<Staged> staged);
  std::shared_ptr<Asset> makeAsset(const AssetRecord& record);

  std::string directory_;
  std::optional<LibraryFolder> folder_;  // set once ensureOpen succeeded
  std::mutex dbMutex_;
  sqlite3* db_ = nullptr;
  Recovery recovery_;
  std::once_flag opened_;
  Status openStatus_;
  mutable std::mutex queueMutex_;
  std::unique_ptr<ThreadPool> queue_;  // made on first use
};

}  // namespace velqor
