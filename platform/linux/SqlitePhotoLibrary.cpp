#include "platform/linux/SqlitePhotoLibrary.h"

#include <fcntl.h>
#include <sqlite3.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <random>

#include "host/FileBytes.h"
#include "host/VLog.h"
#include "host/UniqueFd.h"
#include "imaging/metadata/ExifOrientation.h"
#include "platform/linux/LibraryIndexFormat.h"

namespace velqor {
namespace fs = std::filesystem;

namespace {

constexpr const char* kErrorDomain = "PHPhotosErrorDomain";

struct StatementDeleter {
  void operator()(sqlite3_stmt* s) const noexcept { sqlite3_finalize(s); }
};
using Statement = std::unique_ptr<sqlite3_stmt, StatementDeleter>;

std::string newUuid() {
  thread_local std::mt19937_64 rng(std::random_device{}() ^
                                   static_cast<std::uint64_t>(std::chrono::steady_clock::now().time_since_epoch().count()));
  std::uint64_t a = rng(), b = rng();
  a = (a & 0xFFFFFFFFFFFF0FFFull) | 0x0000000000004000ull;  // version 4
  b = (b & 0x3FFFFFFFFFFFFFFFull) | 0x8000000000000000ull;  // variant
  char buf[40];
  std::snprintf(buf, sizeof buf, "%08X-%04X-%04X-%04X-%012llX", static_cast<unsigned>(a >> 32),
                static_cast<unsigned>((a >> 16) & 0xFFFF), static_cast<unsigned>(a & 0xFFFF),
                static_cast<unsigned>(b >> 48), static_cast<unsigned long long>(b & 0xFFFFFFFFFFFFull));
  return buf;
}

std::string extensionFor(const Bytes& b) {
  if (b.size() >= 3 && b[0] == 0xFF && b[1] == 0xD8 && b[2] == 0xFF) return "JPG";
  if (b.size() >= 8 && b[0] == 0x89 && b[1] == 'P' && b[2] == 'N' && b[3] == 'G') return "PNG";
  if (b.size() >= 12 && std::memcmp(b.data() + 4, "ftyp", 4) == 0) {
    std::string brand(reinterpret_cast<const char*>(b.data() + 8), 4);
    if (brand == "qt  ") return "MOV";
    if (brand == "heic" || brand == "heix" || brand == "mif1") return "HEIC";
    return "MP4";
  }
  return "DAT";
}

bool isVideoExtension(const std::string& ext) { return ext == "MOV" || ext == "MP4" || ext == "M4V"; }

std::string utiFor(const std::string& ext) {
  if (ext == "JPG") return "public.jpeg";
  if (ext == "PNG") return "public.png";
  if (ext == "HEIC") return "public.heic";
  if (ext == "MOV") return "com.apple.quicktime-movie";
  return "public.mpeg-4";
}

// Holds the library's lock file: shared while saving, exclusive while repairing.
class LibraryLock {
 public:
  LibraryLock(const LibraryFolder& folder, bool exclusive) : fd_(folder.openLock()) {
    if (fd_.valid()) {
      while (::flock(fd_.get(), exclusive ? LOCK_EX : LOCK_SH) != 0 && errno == EINTR) {
      }
    }
  }

 private:
  UniqueFd fd_;
};

class LibraryAsset final : public Asset {
 public:
  explicit LibraryAsset(AssetRecord r) : record_(std::move(r)) {}
  const std::string& localIdentifier() const override { return record_.localIdentifier; }
  bool isVideo() const override { return record_.video; }
  const std::string& extension() const override { return record_.extension; }
  Url referenceUrl() const override { return record_.referenceUrl(); }
  std::string filePath() const override { return record_.file; }
  const AssetRecord& record() const { return record_; }

 private:
  AssetRecord record_;
};

class CreationRequest final : public AssetCreationRequest {
 public:
  void addResource(std::int64_t type, std::shared_ptr<const Bytes> data) override {
    if (!data) return;
    if (uuid.empty()) uuid = newUuid();
    resources.emplace_back(std::move(data), type == resourceTypeVideo);
  }
  std::optional<std::string> placeholderLocalIdentifier() const override {
    if (uuid.empty()) return std::nullopt;
    return uuid + "/L0/001";
  }
  std::string uuid;
  std::vector<std::pair<std::shared_ptr<const Bytes>, bool>> resources;
};

class ChangeRequests final : public AssetChangeRequests {
 public:
  AssetCreationRequest& creationRequestForAsset() override {
    requests.push_back(std::make_unique<CreationRequest>());
    return *requests.back();
  }
  std::vector<std::unique_ptr<CreationRequest>> requests;
};

void logSkipped(const Status& why, const char* operation) {
  VLog::error("", why.message(), "SqlitePhotoLibrary", __LINE__, operation);
}

}  // namespace

Url AssetRecord::referenceUrl() const {
  return *Url::fromString("assets-library://asset/asset." + extension + "?id=" + uuid + "&ext=" + extension);
}

std::string SqlitePhotoLibrary::defaultPath() {
  const char* state = std::getenv("XDG_STATE_HOME");
  if (state && *state == '/') return std::string(state) + "/velqor-camera/library";
  const char* home = std::getenv("HOME");
  return std::string(home && *home ? home : "/root") + "/.local/state/velqor-camera/library";
}

SqlitePhotoLibrary::SqlitePhotoLibrary(std::string directory) : directory_(std::move(directory)) {}

SqlitePhotoLibrary::~SqlitePhotoLibrary() {
  queue_.reset();  // runs what is queued, then joins
  if (db_) sqlite3_close(db_);
}

StatusOr<std::shared_ptr<SqlitePhotoLibrary>> SqlitePhotoLibrary::open(const std::string& directory) {
  auto lib = openLazily(directory);
  RETURN_IF_ERROR(lib->ensureOpen());
  return lib;
}

std::shared_ptr<SqlitePhotoLibrary> SqlitePhotoLibrary::openLazily(const std::string& directory) {
  return std::shared_ptr<SqlitePhotoLibrary>(
      new SqlitePhotoLibrary(fs::absolute(directory).lexically_normal().string()));
}

Status SqlitePhotoLibrary::ensureOpen() {
  std::call_once(opened_, [this] {
    openStatus_ = [this]() -> Status {
      ASSIGN_OR_RETURN(LibraryFolder folder, LibraryFolder::open(directory_));
      if (!folder.openLock().valid())
        return Status::failedPrecondition("refusing " + directory_ + "/library.lock: " + std::strerror(errno));
      folder_.emplace(std::move(folder));
      RETURN_IF_ERROR(openDatabase());
      return recover();
    }();
  });
  return openStatus_;
}

ThreadPool& SqlitePhotoLibrary::queue() {
  std::lock_guard lock(queueMutex_);
  if (!queue_) queue_ = std::make_unique<ThreadPool>(1, "photo-library");
  return *queue_;
}

bool SqlitePhotoLibrary::idle() const {
  std::lock_guard lock(queueMutex_);
  return !queue_ || queue_->idle();
}

Status SqlitePhotoLibrary::openDatabase() {
  const std::string path = directory_ + "/" + LibraryFolder::kDatabase;
  ASSIGN_OR_RETURN(bool exists, folder_->checkDatabase());
  if (!exists) RETURN_IF_ERROR(folder_->createDatabase());
  const auto identity = folder_->databaseIdentity();
  // SQLite opens by path; the file was just checked through the folder's
  // descriptor, and SQLite refuses a link in its place.
  if (!identity || sqlite3_open_v2(path.c_str(), &db_, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOFOLLOW | SQLITE_OPEN_FULLMUTEX,
                                   nullptr) != SQLITE_OK)
    return Status::unavailable("cannot open the photo library index " + path + ": " +
                               (db_ ? sqlite3_errmsg(db_) : "it is not a plain file"));
  if (folder_->databaseIdentity() != identity)
    return Status::failedPrecondition("refusing " + path + ": it was replaced while being opened");
  sqlite3_busy_timeout(db_, 10000);
  return LibraryIndexFormat::adopt(db_, path);
}

Status SqlitePhotoLibrary::recover() {
  LibraryLock lock(*folder_, /*exclusive=*/true);
  std::lock_guard guard(dbMutex_);
  for (const std::string& name : folder_->stagingNames()) {
    const std::string uuid = name.substr(0, name.find('.'));
    bool committed = false;
    if (LibraryIndexFormat::fileNameShape(name)) {
      sqlite3_stmt* raw = nullptr;
      sqlite3_prepare_v2(db_, "SELECT 1 FROM assets WHERE uuid = ?", -1, &raw, nullptr);
      Statement s(raw);
      sqlite3_bind_text(raw, 1, uuid.c_str(), -1, SQLITE_TRANSIENT);
      committed = raw && sqlite3_step(raw) == SQLITE_ROW;
    }
    // Only a plain file of ours moves into assets/; a link left under a
    // committed name is removed as a link.
    if (committed && !folder_->assetEntryExists(name) && folder_->moveIntoAssets(name).ok()) {
      ++recovery_.finished;
    } else {
      folder_->removeStaging(name);
      ++recovery_.discarded;
    }
  }
  folder_->syncAssets();
  std::vector<AssetRecord> found;
  {
    sqlite3_stmt* raw = nullptr;
    sqlite3_prepare_v2(db_, LibraryIndexFormat::kSelect, -1, &raw, nullptr);
    Statement s(raw);
    while (raw && sqlite3_step(raw) == SQLITE_ROW) {
      auto record = LibraryIndexFormat::rowFrom(raw, directory_);
      if (record.ok()) found.push_back(std::move(*record));
    }
  }
  for (const auto& r : found) {
    if (folder_->assetEntryExists(r.fileName())) continue;
    sqlite3_stmt* raw = nullptr;
    sqlite3_prepare_v2(db_, "DELETE FROM assets WHERE uuid = ?", -1, &raw, nullptr);
    Statement s(raw);
    sqlite3_bind_text(raw, 1, r.uuid.c_str(), -1, SQLITE_TRANSIENT);
    sqlite3_step(raw);
    ++recovery_.dropped;
  }
  return Status::okStatus();
}

StatusOr<std::vector<AssetRecord>> SqlitePhotoLibrary::rows(const std::string& tail, const std::string* parameter,
                                                            bool present) {
  std::lock_guard guard(dbMutex_);
  sqlite3_stmt* raw = nullptr;
  sqlite3_prepare_v2(db_, (std::string(LibraryIndexFormat::kSelect) + tail).c_str(), -1, &raw, nullptr);
  Statement s(raw);
  if (!raw) return Status::unavailable(std::string("cannot read the photo library: ") + sqlite3_errmsg(db_));
  if (parameter) sqlite3_bind_text(raw, 1, parameter->c_str(), -1, SQLITE_TRANSIENT);
  std::vector<AssetRecord> out;
  int rc;
  while ((rc = sqlite3_step(raw)) == SQLITE_ROW) {
    auto record = LibraryIndexFormat::rowFrom(raw, directory_);
    if (!record.ok()) {
      logSkipped(record.status(), "list()");
      continue;
    }
    if (present) {
      if (Status why = folder_->checkAsset(record->fileName()); !why.ok()) {
        logSkipped(Status::dataLoss("skipping asset " + record->uuid + ": " + why.message()), "list()");
        continue;
      }
    }
    out.push_back(std::move(*record));
  }
  if (rc != SQLITE_DONE) return Status::unavailable(std::string("cannot read the photo library: ") + sqlite3_errmsg(db_));
  return out;
}

bool SqlitePhotoLibrary::execWith(const char* sql, const std::string& parameter) {
  sqlite3_stmt* raw = nullptr;
  sqlite3_prepare_v2(db_, sql, -1, &raw, nullptr);
  Statement s(raw);
  if (!raw) return false;
  sqlite3_bind_text(raw, 1, parameter.c_str(), -1, SQLITE_TRANSIENT);
  return sqlite3_step(raw) == SQLITE_DONE;
}

StatusOr<std::vector<AssetRecord>> SqlitePhotoLibrary::commit(
    std::vector<std::pair<std::shared_ptr<const Bytes>, bool>> resources, std::vector<std::string> uuids) {
  RETURN_IF_ERROR(ensureOpen());
  // Held from the first staged byte: a process opening the library meanwhile
  // must not take our staging files for a crash's leftovers.
  LibraryLock lock(*folder_, /*exclusive=*/false);
  std::vector<Staged> staged;
  for (size_t i = 0; i < resources.size(); ++i) {
    const std::string ext = extensionFor(*resources[i].first);
    if (Status s = folder_->writeStaging(uuids[i] + "." + ext, *resources[i].first); !s.ok()) {
      for (const auto& st : staged) folder_->removeStaging(st.uuid + "." + st.extension);
      return s;
    }
    staged.push_back({uuids[i], ext, static_cast<std::int64_t>(resources[i].first->size()),
                      resources[i].second || isVideoExtension(ext)});
  }
  return commitStaged(std::move(staged));
}

StatusOr<std::vector<AssetRecord>> SqlitePhotoLibrary::commitStaged(std::vector<Staged> staged) {
  LibraryLock lock(*folder_, /*exclusive=*/false);
  auto discardStaged = [&] {
    for (const auto& st : staged) folder_->removeStaging(st.uuid + "." + st.extension);
  };
  const double now = std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
  std::vector<AssetRecord> records;
  for (const auto& st : staged) {
    AssetRecord r;
    r.uuid = st.uuid;
    r.localIdentifier = r.uuid + "/L0/001";
    r.extension = st.extension;
    r.video = st.video;
    r.size = st.size;
    r.created = now;
    r.file = directory_ + "/assets/" + r.fileName();
    records.push_back(r);
  }
  {
    std::lock_guard guard(dbMutex_);
    char* err = nullptr;
    if (sqlite3_exec(db_, "BEGIN IMMEDIATE", nullptr, nullptr, &err) != SQLITE_OK) {
      std::string m = err ? err : "busy";
      sqlite3_free(err);
      discardStaged();
      return Status::unavailable("the photo library index is not writable: " + m);
    }
    for (const auto& r : records) {
      sqlite3_stmt* raw = nullptr;
      sqlite3_prepare_v2(db_, "INSERT INTO assets VALUES (?, ?, ?, ?, ?, ?)", -1, &raw, nullptr);
      Statement s(raw);
      sqlite3_bind_text(raw, 1, r.localIdentifier.c_str(), -1, SQLITE_TRANSIENT);
      sqlite3_bind_text(raw, 2, r.uuid.c_str(), -1, SQLITE_TRANSIENT);
      sqlite3_bind_text(raw, 3, r.extension.c_str(), -1, SQLITE_TRANSIENT);
      sqlite3_bind_int(raw, 4, r.video ? 1 : 0);
      sqlite3_bind_int64(raw, 5, r.size);
      sqlite3_bind_double(raw, 6, r.created);
      if (!raw || sqlite3_step(raw) != SQLITE_DONE) {
        std::string m = sqlite3_errmsg(db_);
        sqlite3_exec(db_, "ROLLBACK", nullptr, nullptr, nullptr);
        discardStaged();
        return Status::unavailable("cannot save to the photo library: " + m);
      }
    }
    if (sqlite3_exec(db_, "COMMIT", nullptr, nullptr, &err) != SQLITE_OK) {
      std::string m = err ? err : "commit failed";
      sqlite3_free(err);
      sqlite3_exec(db_, "ROLLBACK", nullptr, nullptr, nullptr);
      discardStaged();
      return Status::unavailable("cannot save to the photo library: " + m);
    }
  }
  // Committed: the rows stand. A crash from here on is finished by recover().
  for (const auto& record : records) {
    const Status moved = folder_->moveIntoAssets(record.fileName());
    if (moved.ok()) continue;
    std::lock_guard guard(dbMutex_);
    for (const auto& r : records) execWith("DELETE FROM assets WHERE uuid = ?", r.uuid);
    return Status::dataLoss("the saved file went missing before it was in place: " + moved.message());
  }
  folder_->syncAssets();
  return records;
}

void SqlitePhotoLibrary::performChanges(ChangeBlock block, ChangeDone done) {
  auto self = shared_from_this();
  queue().post([self, block = std::move(block), done = std::move(done)]() mutable {
    ChangeRequests requests;
    block(requests);
    std::vector<std::pair<std::shared_ptr<const Bytes>, bool>> resources;
    std::vector<std::string> uuids;
    for (const auto& r : requests.requests)
      for (const auto& res : r->resources) {
        resources.push_back(res);
        uuids.push_back(r->uuid);
      }
    if (resources.empty()) {
      // Nothing to create: the change reports no success, and no error.
      done(false, std::nullopt);
      return;
    }
    auto saved = self->commit(std::move(resources), std::move(uuids));
    if (!saved.ok()) {
      done(false, PlatformError{kErrorDomain, 3300, saved.status().message()});
      return;
    }
    done(true, std::nullopt);
  });
}

std::shared_ptr<Asset> SqlitePhotoLibrary::makeAsset(const AssetRecord& record) {
  return std::make_shared<LibraryAsset>(record);
}

std::vector<std::shared_ptr<Asset>> SqlitePhotoLibrary::fetchAssetsWithALAssetURLs(const std::vector<Url>& urls) {
  std::vector<std::shared_ptr<Asset>> out;
  for (const auto& url : urls) {
    const std::string& s = url.absoluteString();
    if (s.rfind("assets-library://", 0) != 0) continue;
    size_t id = s.find("id=");
    if (id == std::string::npos) continue;
    std::string uuid = s.substr(id + 3, s.find('&', id) == std::string::npos ? std::string::npos : s.find('&', id) - id - 3);
    if (auto a = asset(uuid); a.ok()) out.push_back(*a);
  }
  return out;
}

StatusOr<std::shared_ptr<Asset>> SqlitePhotoLibrary::asset(const std::string& idOrUuid) {
  RETURN_IF_ERROR(ensureOpen());
  const std::string uuid = idOrUuid.substr(0, idOrUuid.find('/'));
  ASSIGN_OR_RETURN(auto found, rows(" WHERE uuid = ?", &uuid, /*present=*/false));
  if (found.empty()) return Status::notFound("no asset " + idOrUuid.substr(0, 128) + " in the photo library");
  RETURN_IF_ERROR(folder_->checkAsset(found.front().fileName()));
  return makeAsset(found.front());
}

StatusOr<Bytes> SqlitePhotoLibrary::assetBytes(const std::string& idOrUuid, std::uint64_t maxBytes) {
  ASSIGN_OR_RETURN(auto found, asset(idOrUuid));
  return folder_->readAsset(std::static_pointer_cast<LibraryAsset>(found)->record().fileName(), maxBytes);
}

void SqlitePhotoLibrary::requestImageDataAndOrientation(const std::shared_ptr<Asset>& asset,
                                                        const std::optional<Dictionary>&, ImageDataHandler handler) {
  auto self = shared_from_this();
  queue().post([self, asset, handler = std::move(handler)]() mutable {
    ImageDataResult result;
    result.info = Dictionary{};
    auto local = std::dynamic_pointer_cast<LibraryAsset>(asset);
    if (local && !local->isVideo()) {
      const Status opened = self->ensureOpen();
      auto bytes = opened.ok() ? self->folder_->readAsset(local->record().fileName(), 1ull << 31) : StatusOr<Bytes>(opened);
      if (bytes.ok()) {
        result.dataUTI = utiFor(local->extension());
        result.orientation = ExifOrientation::read(*bytes);
        result.data = std::make_shared<const Bytes>(std::move(*bytes));
      } else {
        (*result.info)["PHImageErrorKey"] = Value(bytes.status().message());
      }
    }
    handler(std::move(result));
  });
}

void SqlitePhotoLibrary::saveVideoAtPathToSavedPhotosAlbum(const std::string& path) {
  // The movie is copied into staging now, on disk rather than through memory,
  // so the caller may delete its file as soon as this returns.
  if (!ensureOpen().ok()) return;
  LibraryLock lock(*folder_, /*exclusive=*/false);
  const std::string uuid = newUuid();
  std::string ext = fs::path(path).extension().string();
  for (auto& c : ext) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  ext = ext == ".MP4" || ext == ".M4V" ? ext.substr(1) : "MOV";
  auto size = folder_->copyIntoStaging(path, uuid + "." + ext);
  if (!size.ok()) return;
  auto self = shared_from_this();
  queue().post([self, uuid, ext, size = *size] { self->commitStaged({{uuid, ext, size, true}}); });
}

StatusOr<std::vector<AssetRecord>> SqlitePhotoLibrary::list() {
  RETURN_IF_ERROR(ensureOpen());
  return rows(" ORDER BY created, uuid", nullptr, /*present=*/true);
}

StatusOr<AssetRecord> SqlitePhotoLibrary::importFile(const std::string& path) {
  ASSIGN_OR_RETURN(Bytes bytes, FileBytes::read(path, 1ull << 34));
  auto data = std::make_shared<const Bytes>(std::move(bytes));
  const bool video = isVideoExtension(extensionFor(*data));
  ASSIGN_OR_RETURN(auto records, commit({{data, video}}, {newUuid()}));
  return records.front();
}

Status SqlitePhotoLibrary::remove(const std::string& localIdentifier) {
  RETURN_IF_ERROR(ensureOpen());
  const std::string uuid = localIdentifier.substr(0, localIdentifier.find('/'));
  // A row whose file is missing or a link may still be removed; the link goes as a link.
  ASSIGN_OR_RETURN(auto found, rows(" WHERE uuid = ?", &uuid, /*present=*/false));
  if (found.empty()) return Status::notFound("no asset " + localIdentifier.substr(0, 128) + " in the photo library");
  {
    std::lock_guard guard(dbMutex_);
    if (!execWith("DELETE FROM assets WHERE uuid = ?", uuid))
      return Status::unavailable(std::string("cannot remove: ") + sqlite3_errmsg(db_));
  }
  folder_->removeAsset(found.front().fileName());
  return Status::okStatus();
}

void SqlitePhotoLibrary::drain() {
  ThreadPool* started = nullptr;
  {
    std::lock_guard lock(queueMutex_);
    started = queue_.get();
  }
  if (started) started->waitIdle();
}

}  // namespace velqor
