#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <map>
#include <random>
#include <set>
#include <sstream>

#include "host/FileBytes.h"
#include "host/ManualExecutor.h"
#include "platform/PhotoLibraryAdapters.h"
#include "platform/linux/LibraryFolder.h"
#include "platform/linux/SqlitePhotoLibrary.h"
#include "tests/RecordingLog.h"
#include "tests/TestDirectory.h"

extern char** environ;

namespace velqor {
namespace {

using testing::TestDirectory;

// A library whose completions say exactly what a test scripts.
class ScriptedLibrary final : public PhotoLibrary {
 public:
  bool success = true;
  std::optional<PlatformError> error;
  ImageDataResult image;
  int calls = 0;

  void performChanges(ChangeBlock, ChangeDone done) override { done(success, error); }
  std::vector<std::shared_ptr<Asset>> fetchAssetsWithALAssetURLs(const std::vector<Url>&) override { return {}; }
  void requestImageDataAndOrientation(const std::shared_ptr<Asset>&, const std::optional<Dictionary>& options,
                                      ImageDataHandler handler) override {
    receivedOptions = options;
    ++calls;
    handler(image);
  }
  void saveVideoAtPathToSavedPhotosAlbum(const std::string&) override {}
  std::optional<Dictionary> receivedOptions;
};

struct ChangeCase {
  const char* name;
  bool success;
  std::optional<PlatformError> error;
  bool expectOk;
  bool expectValue;
};
void PrintTo(const ChangeCase& c, std::ostream* os) { *os << c.name; }
class ChangeAdapter : public ::testing::TestWithParam<ChangeCase> {};

TEST_P(ChangeAdapter, ReportsTheFlagOrTheLibrarysError) {
  const auto& c = GetParam();
  ScriptedLibrary library;
  library.success = c.success;
  library.error = c.error;
  ManualExecutor exec;
  std::optional<Outcome<bool>> got;
  auto run = [&]() -> Task<void> {
    auto change = PhotoLibraryAdapters::performChangesAsync(library, exec, nullptr, [](AssetChangeRequests&) {});
    got.emplace(co_await std::move(change));
  };
  startDetached(exec, run());
  exec.runUntilIdle();
  ASSERT_TRUE(got);
  ASSERT_EQ(got->ok(), c.expectOk);
  if (c.expectOk) {
    EXPECT_EQ(got->value(), c.expectValue);
  } else {
    EXPECT_EQ(got->error(), *c.error);
  }
}

const PlatformError kLibraryError{"PHPhotosErrorDomain", 3300, "The disk is full."};
INSTANTIATE_TEST_SUITE_P(Outcomes, ChangeAdapter,
                         ::testing::Values(ChangeCase{"success", true, std::nullopt, true, true},
                                           ChangeCase{"noSuccess", false, std::nullopt, true, false},
                                           ChangeCase{"errorWins", true, kLibraryError, false, false},
                                           ChangeCase{"errorAndFalse", false, kLibraryError, false, false}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(ImageDataAdapter, FailsWithTheFixedErrorOnlyWhenThereAreNoBytes) {
  ScriptedLibrary library;
  ManualExecutor exec;
  auto fetch = [&](ImageDataResult scripted) {
    library.image = std::move(scripted);
    std::optional<Outcome<ImageDataResult>> got;
    auto run = [&]() -> Task<void> {
      auto request = PhotoLibraryAdapters::requestImageDataAndOrientationAsync(library, exec, nullptr, nullptr,
                                                                               std::nullopt);
      got.emplace(co_await std::move(request));
    };
    startDetached(exec, run());
    exec.runUntilIdle();
    return *got;
  };
  auto none = fetch(ImageDataResult{});
  ASSERT_FALSE(none.ok());
  EXPECT_EQ(none.error(), (PlatformError{"PHImageManagerError", 0, "Failed to fetch image data"}));
  EXPECT_FALSE(library.receivedOptions.has_value());  // absent options passed on as absent

  ImageDataResult withError;
  withError.data = std::make_shared<const Bytes>(Bytes{1, 2, 3});
  withError.info = Dictionary{{"PHImageErrorKey", Value("degraded")}};
  auto bytes = fetch(withError);
  ASSERT_TRUE(bytes.ok());
  EXPECT_EQ(*bytes.value().data, (Bytes{1, 2, 3}));
}

class SqliteLibrary : public ::testing::Test {
 protected:
  std::shared_ptr<SqlitePhotoLibrary> open() {
    auto lib = SqlitePhotoLibrary::open(dir_.path("lib"));
    EXPECT_TRUE(lib.ok()) << lib.status();
    return lib.ok() ? *lib : nullptr;
  }
  TestDirectory dir_;
};

TEST_F(SqliteLibrary, SavesFindsAndHandsBackAssets) {
  auto lib = open();
  dir_.write("photo.png", std::string("\x89PNG\r\n\x1a\n", 8) + "rest");
  auto imported = lib->importFile(dir_.path("photo.png"));
  ASSERT_TRUE(imported.ok());
  EXPECT_THAT(imported->localIdentifier, ::testing::MatchesRegex("[0-9A-F-]{36}/L0/001"));
  EXPECT_EQ(imported->referenceUrl().absoluteString(),
            "assets-library://asset/asset.PNG?id=" + imported->uuid + "&ext=PNG");
  auto found = lib->fetchAssetsWithALAssetURLs({imported->referenceUrl()});
  ASSERT_EQ(found.size(), 1u);
  EXPECT_EQ(found[0]->localIdentifier(), imported->localIdentifier);
  std::optional<ImageDataResult> got;
  lib->requestImageDataAndOrientation(found[0], std::nullopt, [&](ImageDataResult r) { got = std::move(r); });
  lib->drain();
  ASSERT_TRUE(got && got->data);
  EXPECT_EQ(got->dataUTI, "public.png");
  EXPECT_TRUE(lib->remove(imported->localIdentifier).ok());
  EXPECT_TRUE(lib->list()->empty());
}

TEST_F(SqliteLibrary, CompletionsRunOnceOffTheCallersThread) {
  auto lib = open();
  std::atomic<int> done{0};
  std::thread::id completionThread;
  for (int i = 0; i < 20; ++i)
    lib->performChanges(
        [](AssetChangeRequests& r) {
          r.creationRequestForAsset().addResource(1, std::make_shared<const Bytes>(Bytes{'x'}));
        },
        [&](bool ok, std::optional<PlatformError>) {
          completionThread = std::this_thread::get_id();
          done += ok;
        });
  lib->drain();
  EXPECT_EQ(done.load(), 20);
  EXPECT_NE(completionThread, std::this_thread::get_id());
  EXPECT_EQ(lib->list()->size(), 20u);
}

TEST_F(SqliteLibrary, ACorruptIndexIsReportedNotRecreated) {
  std::filesystem::create_directories(dir_.path("lib"));
  dir_.write("lib/library.sqlite", std::string(4096, 'Z'));
  auto lib = SqlitePhotoLibrary::open(dir_.path("lib"));
  ASSERT_FALSE(lib.ok());
  EXPECT_THAT(lib.status().message(), ::testing::HasSubstr("library"));
  EXPECT_EQ(TestDirectory::read(dir_.path("lib/library.sqlite")), std::string(4096, 'Z'));
}

TEST_F(SqliteLibrary, AnUnusedLibraryIsNeverTouched) {
  {
    auto lib = SqlitePhotoLibrary::openLazily(dir_.path("lib"));
    EXPECT_TRUE(lib->idle());
  }
  EXPECT_FALSE(std::filesystem::exists(dir_.path("lib")));
  auto lib = SqlitePhotoLibrary::openLazily(dir_.path("lib"));
  auto listed = lib->list();
  ASSERT_TRUE(listed.ok()) << listed.status();
  EXPECT_TRUE(listed->empty());
  EXPECT_TRUE(std::filesystem::exists(dir_.path("lib/library.sqlite")));
}

TEST_F(SqliteLibrary, ALazyLibraryThatCannotOpenFailsEachUse) {
  std::filesystem::create_directories(dir_.path("lib"));
  dir_.write("lib/library.sqlite", std::string(4096, 'Z'));
  auto lib = SqlitePhotoLibrary::openLazily(dir_.path("lib"));
  std::optional<PlatformError> error;
  bool saved = true;
  lib->performChanges(
      [](AssetChangeRequests& r) { r.creationRequestForAsset().addResource(1, std::make_shared<const Bytes>(Bytes{'x'})); },
      [&](bool ok, std::optional<PlatformError> e) {
        saved = ok;
        error = std::move(e);
      });
  lib->drain();
  EXPECT_FALSE(saved);
  ASSERT_TRUE(error);
  EXPECT_THAT(error->localizedDescription, ::testing::HasSubstr("unusable"));
  EXPECT_THAT(lib->list().status().message(), ::testing::HasSubstr("unusable"));
  EXPECT_TRUE(lib->fetchAssetsWithALAssetURLs({*Url::fromString("assets-library://asset/asset.JPG?id=X&ext=JPG")}).empty());
  EXPECT_EQ(TestDirectory::read(dir_.path("lib/library.sqlite")), std::string(4096, 'Z'));
  EXPECT_TRUE(std::filesystem::is_empty(dir_.path("lib/staging")));
}

std::string helperPath() { return std::string(VELQOR_BINARY_DIR) + "/tests/library_crash_child"; }

// The helper's saves start within a few milliseconds; a sanitizer makes its
// start-up ten times slower, so the kill points spread ten times wider.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr int kKillWindowUs = 250'000;
#else
constexpr int kKillWindowUs = 25'000;
#endif

TEST_F(SqliteLibrary, KillNineOfTwoWritersLosesNoReportedSaveAndLeavesNoHalfEntry) {
  const char* env = std::getenv("VELQOR_CRASH_POINTS");
  const int points = env ? std::atoi(env) : 120;
  std::mt19937 rng(12345);
  std::set<std::string> reported;
  // Two processes save into the one directory at once, and both are killed.
  for (int p = 0; p < points; ++p) {
    std::vector<std::pair<pid_t, int>> children;
    for (int k = 0; k < 2; ++k) {
      int fds[2];
      ASSERT_EQ(::pipe(fds), 0);
      posix_spawn_file_actions_t actions;
      posix_spawn_file_actions_init(&actions);
      posix_spawn_file_actions_adddup2(&actions, fds[1], 1);
      posix_spawn_file_actions_addclose(&actions, fds[0]);
      std::string helper = helperPath(), dir = dir_.path("lib");
      char* argv[] = {helper.data(), dir.data(), nullptr};
      pid_t pid = 0;
      ASSERT_EQ(posix_spawn(&pid, helper.c_str(), &actions, nullptr, argv, environ), 0);
      posix_spawn_file_actions_destroy(&actions);
      ::close(fds[1]);
      children.emplace_back(pid, fds[0]);
    }
    std::this_thread::sleep_for(std::chrono::microseconds(std::uniform_int_distribution<int>(500, kKillWindowUs)(rng)));
    for (auto [pid, fd] : children) {
      ::kill(pid, SIGKILL);
      int status = 0;
      ::waitpid(pid, &status, 0);
      std::string out;
      char buf[4096];
      for (ssize_t n; (n = ::read(fd, buf, sizeof buf)) > 0;) out.append(buf, static_cast<size_t>(n));
      ::close(fd);
      std::istringstream lines(out);
      for (std::string id; std::getline(lines, id);)
        if (!id.empty()) reported.insert(id);
    }
  }
  auto lib = open();
  ASSERT_TRUE(lib);
  auto rows = *lib->list();
  std::set<std::string> present;
  for (const auto& r : rows) {
    present.insert(r.localIdentifier);
    auto bytes = FileBytes::read(r.file);
    ASSERT_TRUE(bytes.ok()) << "row without its file: " << r.localIdentifier;
    EXPECT_EQ(static_cast<std::int64_t>(bytes->size()), r.size) << "half-written file: " << r.localIdentifier;
    EXPECT_EQ(std::string(bytes->begin(), bytes->begin() + 6), "asset ");
  }
  for (const auto& id : reported) EXPECT_TRUE(present.count(id)) << "reported save lost: " << id;
  EXPECT_TRUE(std::filesystem::is_empty(dir_.path("lib/staging")));
  size_t files = 0;
  for (auto& e : std::filesystem::directory_iterator(dir_.path("lib/assets"))) files += e.is_regular_file();
  EXPECT_EQ(files, rows.size()) << "a file without its row";
  EXPECT_GT(reported.size(), 0u);
  RecordProperty("reportedSaves", static_cast<int>(reported.size()));
}

// ---- an index the library did not write ------------------------------------

constexpr const char* kGood = "0A1B2C3D-0000-4000-8000-00000000000A";
constexpr const char* kTable =
    "CREATE TABLE assets (local_id TEXT PRIMARY KEY, uuid TEXT UNIQUE NOT NULL, ext TEXT NOT NULL,"
    " video INTEGER NOT NULL, size INTEGER NOT NULL, created REAL NOT NULL);";

// Runs SQL on a database file as another program would.
void runSql(const std::string& path, const std::string& sql) {
  sqlite3* db = nullptr;
  ASSERT_EQ(sqlite3_open(path.c_str(), &db), SQLITE_OK);
  char* err = nullptr;
  const int rc = sqlite3_exec(db, sql.c_str(), nullptr, nullptr, &err);
  EXPECT_EQ(rc, SQLITE_OK) << (err ? err : "");
  sqlite3_free(err);
  sqlite3_close(db);
}

std::string row(const std::string& id, const std::string& uuid, const std::string& rest) {
  return "INSERT INTO assets VALUES(" + id + ", " + uuid + ", " + rest + ");";
}

// Bytes and modification time: what "untouched" means for a file.
struct FileState {
  std::string bytes;
  std::int64_t mtimeNs = -1;
  bool operator==(const FileState&) const = default;
};
FileState stateOf(const std::string& path) {
  struct stat st {};
  if (::lstat(path.c_str(), &st) != 0) return {};
  return {TestDirectory::read(path), st.st_mtim.tv_sec * 1'000'000'000LL + st.st_mtim.tv_nsec};
}

class ForeignIndex : public ::testing::Test {
 protected:
  void SetUp() override {
    std::filesystem::create_directories(dir_.path("lib/assets"));
    dir_.write(std::string("lib/assets/") + kGood + ".JPG", "\xFF\xD8\xFF good");
  }
  std::string db() const { return dir_.path("lib/library.sqlite"); }
  TestDirectory dir_;
};

struct BadRow {
  const char* name;
  std::string values;  // the row after the good one
  const char* reason;  // part of the logged reason
};
void PrintTo(const BadRow& c, std::ostream* os) { *os << c.name; }
class BadRows : public ForeignIndex, public ::testing::WithParamInterface<BadRow> {};

// Each row breaks one check and passes every other; the good row beside it is listed.
TEST_P(BadRows, AreSkippedWithAReasonAndTheRestIsListed) {
  const auto& c = GetParam();
  runSql(db(), std::string(kTable) + row("'" + std::string(kGood) + "/L0/001'", "'" + std::string(kGood) + "'",
                                         "'JPG', 0, 9, 1.5") + c.values);
  auto log = testing::RecordingLog::install();
  auto lib = SqlitePhotoLibrary::open(dir_.path("lib"));
  ASSERT_TRUE(lib.ok()) << lib.status();
  auto listed = (*lib)->list();
  log->uninstall();
  ASSERT_TRUE(listed.ok()) << listed.status();
  ASSERT_EQ(listed->size(), 1u);
  EXPECT_EQ(listed->front().uuid, kGood);
  bool logged = false;
  for (const auto& r : log->errors()) logged |= r.message.find(c.reason) != std::string::npos;
  EXPECT_TRUE(logged) << "no logged reason with \"" << c.reason << "\"";
}

const std::string kOther = "0A1B2C3D-0000-4000-8000-00000000000B";
const std::string kOtherId = "'" + kOther + "/L0/001'", kOtherUuid = "'" + kOther + "'";
INSTANTIATE_TEST_SUITE_P(
    Columns, BadRows,
    ::testing::Values(BadRow{"NullIdentifier", row("NULL", "'u1'", "'jpg', 0, 1, 1.0"), "uuid \"u1\""},
                      BadRow{"NullIdentifierOnly", row("NULL", kOtherUuid, "'JPG', 0, 1, 1.0"), "local_id is NULL"},
                      BadRow{"IdentifierOfAnotherAsset", row("'" + std::string(kGood) + "/L0/002'", kOtherUuid,
                                                             "'JPG', 0, 1, 1.0"), "does not name it"},
                      BadRow{"UuidAsBlob", row(kOtherId, "X'00FF'", "'JPG', 0, 1, 1.0"), "uuid is a blob"},
                      BadRow{"UuidLowerCase", row(kOtherId, "lower('" + kOther + "')", "'JPG', 0, 1, 1.0"),
                             "not an identifier"},
                      BadRow{"UuidOneTooLong", row(kOtherId, kOtherUuid.substr(0, 37) + "0'", "'JPG', 0, 1, 1.0"),
                             "uuid is 37 bytes"},
                      BadRow{"ExtensionClimbsOut", row(kOtherId, kOtherUuid, "'/../../xy', 0, 1, 1.0"),
                             "ext is 9 bytes"},
                      BadRow{"ExtensionUnknown", row(kOtherId, kOtherUuid, "'EXE', 0, 1, 1.0"), "not an extension"},
                      BadRow{"VideoTwo", row(kOtherId, kOtherUuid, "'JPG', 2, 1, 1.0"), "neither 0 nor 1"},
                      BadRow{"VideoAsText", row(kOtherId, kOtherUuid, "'JPG', 'yes', 1, 1.0"), "video of"},
                      BadRow{"SizeNegative", row(kOtherId, kOtherUuid, "'JPG', 0, -1, 1.0"), "negative"},
                      BadRow{"SizeAsReal", row(kOtherId, kOtherUuid, "'JPG', 0, 1.5, 1.0"), "size of"},
                      BadRow{"CreatedAsText", row(kOtherId, kOtherUuid, "'JPG', 0, 1, 'noon'"), "created of"}),
    [](const auto& info) { return std::string(info.param.name); });

struct Refusal {
  const char* name;
  std::string sql;
  const char* message;
};
void PrintTo(const Refusal& c, std::ostream* os) { *os << c.name; }
class RefusedIndex : public ForeignIndex, public ::testing::WithParamInterface<Refusal> {};

TEST_P(RefusedIndex, IsNeverAltered) {
  const auto& c = GetParam();
  runSql(db(), c.sql);
  const FileState before = stateOf(db());
  auto lib = SqlitePhotoLibrary::open(dir_.path("lib"));
  ASSERT_FALSE(lib.ok());
  EXPECT_THAT(lib.status().message(), ::testing::HasSubstr(c.message));
  EXPECT_EQ(stateOf(db()), before);
  EXPECT_FALSE(std::filesystem::exists(db() + "-wal"));
}

INSTANTIATE_TEST_SUITE_P(
    Layouts, RefusedIndex,
    ::testing::Values(
        Refusal{"NoConstraintsNullUuid",
                "CREATE TABLE assets (local_id, uuid, ext, video, size, created);" +
                    row("'a/L0/001'", "NULL", "'JPG', 0, 1, 1.0"), "of another layout"},
        Refusal{"AnotherProgramsDatabase", "PRAGMA application_id=1234; CREATE TABLE notes (body TEXT);",
                "not a photo library of this program"},
        Refusal{"AnotherProgramsIdOnOurTable", std::string("PRAGMA application_id=1234;") + kTable,
                "belongs to another program"},
        Refusal{"NewerVersion", std::string(kTable) + "PRAGMA application_id=1448168514; PRAGMA user_version=2;",
                "of version 2"},
        Refusal{"VersionWithoutOurId", std::string(kTable) + "PRAGMA user_version=1;", "(version 1)"},
        Refusal{"ATableBeside", std::string(kTable) + "CREATE TABLE extra (x);", "table \"extra\""},
        Refusal{"ATrigger", std::string(kTable) + "CREATE TRIGGER t AFTER INSERT ON assets BEGIN SELECT 1; END;",
                "trigger \"t\""},
        Refusal{"NoAssetsTable", "CREATE TABLE other (x);", "of another layout"}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(ForeignIndex, AnIndexOfTheEarlierReleaseIsKeptAndMarkedAsOurs) {
  runSql(db(), std::string(kTable) + row("'" + std::string(kGood) + "/L0/001'", "'" + std::string(kGood) + "'",
                                         "'JPG', 0, 9, 1.5"));
  {
    auto lib = SqlitePhotoLibrary::open(dir_.path("lib"));
    ASSERT_TRUE(lib.ok()) << lib.status();
    ASSERT_EQ((*lib)->list()->size(), 1u);
  }
  // Marked now: a version number alone would be refused on the next open otherwise.
  auto again = SqlitePhotoLibrary::open(dir_.path("lib"));
  ASSERT_TRUE(again.ok()) << again.status();
  EXPECT_EQ((*again)->list()->size(), 1u);
}

// ---- links and strangers' entries planted in the library's folder ----------

enum class Plant {
  databaseToOtherDatabase, databaseToEmptyFile, assetsToFolder, stagingToFolder, walToFile, lockToFile,
  assetToFile, stagedLinkUnderCommittedName, assetsOfAnotherUser, assetOfAnotherUser, databaseOfAnotherUser,
  databaseHardLinked, assetHardLinked
};
struct PlantCase {
  const char* name;
  Plant plant;
  bool opens;           // the library still opens (the bad entry is an asset's)
  const char* refusal;  // part of the refusal of the open, or of reading the asset
};
void PrintTo(const PlantCase& c, std::ostream* os) { *os << c.name; }

class PlantedEntries : public ::testing::TestWithParam<PlantCase> {
 protected:
  void SetUp() override {
    std::filesystem::create_directories(dir_.path("outside"));
    runSql(dir_.path("outside/other.sqlite"), "CREATE TABLE notes (body TEXT); INSERT INTO notes VALUES('mine');");
    dir_.write("outside/empty", "");
    dir_.write("outside/secret.txt", "not the library's");
    dir_.write("outside/folder/keep.txt", "keep");
    std::filesystem::create_directories(dir_.path("lib"));
  }
  std::map<std::string, FileState> outside() const {
    std::map<std::string, FileState> all;
    for (const auto& e : std::filesystem::recursive_directory_iterator(dir_.path("outside")))
      all[e.path().string()] = e.is_regular_file() ? stateOf(e.path().string()) : FileState{"folder", 0};
    return all;
  }
  // A library holding one saved photo; its file name.
  std::string saveOne() {
    dir_.write("photo.jpg", "\xFF\xD8\xFF photo");
    auto lib = SqlitePhotoLibrary::open(dir_.path("lib"));
    EXPECT_TRUE(lib.ok()) << lib.status();
    auto saved = (*lib)->importFile(dir_.path("photo.jpg"));
    EXPECT_TRUE(saved.ok()) << saved.status();
    uuid_ = saved->uuid;
    return saved->uuid + ".JPG";
  }
  void link(const std::string& target, const std::string& at) {
    std::error_code ec;
    std::filesystem::remove_all(dir_.path(at), ec);
    std::filesystem::create_symlink(dir_.path(target), dir_.path(at));
  }
  TestDirectory dir_;
  std::string uuid_;
};

TEST_P(PlantedEntries, AreRefusedAndNothingOutsideIsTouched) {
  const auto& c = GetParam();
  std::string asset;
  switch (c.plant) {
    case Plant::databaseToOtherDatabase: link("outside/other.sqlite", "lib/library.sqlite"); break;
    case Plant::databaseToEmptyFile: link("outside/empty", "lib/library.sqlite"); break;
    case Plant::assetsToFolder: link("outside/folder", "lib/assets"); break;
    case Plant::stagingToFolder: link("outside/folder", "lib/staging"); break;
    case Plant::walToFile: link("outside/secret.txt", "lib/library.sqlite-wal"); break;
    case Plant::lockToFile: link("outside/secret.txt", "lib/library.lock"); break;
    case Plant::assetToFile:
      asset = saveOne();
      link("outside/secret.txt", "lib/assets/" + asset);
      break;
    case Plant::stagedLinkUnderCommittedName:
      asset = saveOne();
      std::filesystem::remove(dir_.path("lib/assets/" + asset));
      link("outside/secret.txt", "lib/staging/" + asset);
      break;
    case Plant::assetsOfAnotherUser:
      std::filesystem::create_directories(dir_.path("lib/assets"));
      ASSERT_EQ(::lchown(dir_.path("lib/assets").c_str(), 65534, 65534), 0);
      break;
    case Plant::assetOfAnotherUser:
      asset = saveOne();
      ASSERT_EQ(::lchown(dir_.path("lib/assets/" + asset).c_str(), 65534, 65534), 0);
      break;
    case Plant::databaseHardLinked:
      std::filesystem::create_hard_link(dir_.path("outside/other.sqlite"), dir_.path("lib/library.sqlite"));
      break;
    case Plant::assetHardLinked:
      asset = saveOne();
      std::filesystem::remove(dir_.path("lib/assets/" + asset));
      std::filesystem::create_hard_link(dir_.path("outside/secret.txt"), dir_.path("lib/assets/" + asset));
      break;
    case Plant::databaseOfAnotherUser:
      runSql(dir_.path("lib/library.sqlite"), kTable);
      ASSERT_EQ(::lchown(dir_.path("lib/library.sqlite").c_str(), 65534, 65534), 0);
      break;
  }
  const auto before = outside();
  dir_.write("photo2.jpg", "\xFF\xD8\xFF second");
  auto lib = SqlitePhotoLibrary::open(dir_.path("lib"));
  if (!c.opens) {
    ASSERT_FALSE(lib.ok());
    EXPECT_THAT(lib.status().message(), ::testing::HasSubstr(c.refusal));
    // A lazily opened library fails the save the same way, writing nowhere.
    auto lazy = SqlitePhotoLibrary::openLazily(dir_.path("lib"));
    EXPECT_FALSE(lazy->importFile(dir_.path("photo2.jpg")).ok());
  } else {
    ASSERT_TRUE(lib.ok()) << lib.status();
    auto bytes = (*lib)->assetBytes(uuid_, 1 << 20);
    ASSERT_FALSE(bytes.ok()) << "read " << bytes->size() << " bytes through the planted entry";
    EXPECT_THAT(bytes.status().message(), ::testing::HasSubstr(c.refusal));
    EXPECT_TRUE((*lib)->list()->empty());
    EXPECT_TRUE((*lib)->fetchAssetsWithALAssetURLs({*Url::fromString("assets-library://asset/asset.JPG?id=" + uuid_)}).empty());
    EXPECT_TRUE((*lib)->importFile(dir_.path("photo2.jpg")).ok());  // the library itself still works
  }
  EXPECT_EQ(outside(), before);
  EXPECT_EQ(TestDirectory::read(dir_.path("outside/secret.txt")), "not the library's");
  if (c.plant == Plant::stagedLinkUnderCommittedName) {
    std::error_code ec;
    EXPECT_FALSE(std::filesystem::exists(std::filesystem::symlink_status(dir_.path("lib/assets/" + asset), ec)))
        << "recovery moved the link into assets/";
    EXPECT_FALSE(std::filesystem::exists(std::filesystem::symlink_status(dir_.path("lib/staging/" + asset), ec)));
  }
}

INSTANTIATE_TEST_SUITE_P(
    Entries, PlantedEntries,
    ::testing::Values(
        PlantCase{"IndexLinkedToAnotherProgramsDatabase", Plant::databaseToOtherDatabase, false, "symbolic link"},
        PlantCase{"IndexLinkedToAnEmptyFile", Plant::databaseToEmptyFile, false, "symbolic link"},
        PlantCase{"AssetsLinkedToAFolder", Plant::assetsToFolder, false, "symbolic link"},
        PlantCase{"StagingLinkedToAFolder", Plant::stagingToFolder, false, "symbolic link"},
        PlantCase{"LogLinkedToAFile", Plant::walToFile, false, "symbolic link"},
        PlantCase{"LockLinkedToAFile", Plant::lockToFile, false, "library.lock"},
        PlantCase{"AssetLinkedToAFile", Plant::assetToFile, true, "symbolic link"},
        PlantCase{"LinkStagedUnderACommittedName", Plant::stagedLinkUnderCommittedName, true, "no asset"},
        PlantCase{"AssetsOfAnotherUser", Plant::assetsOfAnotherUser, false, "belongs to user 65534"},
        PlantCase{"AssetOfAnotherUser", Plant::assetOfAnotherUser, true, "belongs to user 65534"},
        PlantCase{"IndexOfAnotherUser", Plant::databaseOfAnotherUser, false, "belongs to user 65534"},
        PlantCase{"IndexHardLinkedToAnotherProgramsDatabase", Plant::databaseHardLinked, false, "hard link"},
        PlantCase{"AssetHardLinkedToAFile", Plant::assetHardLinked, true, "hard link"}),
    [](const auto& info) { return std::string(info.param.name); });

// The folder's own refusals, each reached directly rather than behind the
// library's look-up that would refuse first.
TEST(LibraryFolderAlone, ReadsMovesAndWritesNothingThroughALink) {
  TestDirectory dir;
  dir.write("outside/secret.txt", "not the library's");
  auto folder = LibraryFolder::open(dir.path("lib"));
  ASSERT_TRUE(folder.ok()) << folder.status();
  const std::string name = std::string(kGood) + ".JPG";
  std::filesystem::create_symlink(dir.path("outside/secret.txt"), dir.path("lib/assets/" + name));
  std::filesystem::create_symlink(dir.path("outside/secret.txt"), dir.path("lib/staging/" + name));
  const FileState before = stateOf(dir.path("outside/secret.txt"));

  auto read = folder->readAsset(name, 1 << 20);
  ASSERT_FALSE(read.ok());
  EXPECT_THAT(read.status().message(), ::testing::HasSubstr("symbolic link"));
  EXPECT_THAT(folder->checkAsset(name).message(), ::testing::HasSubstr("symbolic link"));
  std::filesystem::remove(dir.path("lib/assets/" + name));
  EXPECT_FALSE(folder->moveIntoAssets(name).ok());
  EXPECT_FALSE(std::filesystem::exists(std::filesystem::symlink_status(dir.path("lib/assets/" + name))));
  const std::string data = "written";
  EXPECT_FALSE(folder->writeStaging(name, std::span(reinterpret_cast<const std::uint8_t*>(data.data()), data.size())).ok());
  EXPECT_EQ(stateOf(dir.path("outside/secret.txt")), before);

  // A plain file of ours goes through every one of them.
  folder->removeStaging(name);
  ASSERT_TRUE(folder->writeStaging(name, std::span(reinterpret_cast<const std::uint8_t*>(data.data()), data.size())).ok());
  ASSERT_TRUE(folder->moveIntoAssets(name).ok());
  auto back = folder->readAsset(name, 1 << 20);
  ASSERT_TRUE(back.ok()) << back.status();
  EXPECT_EQ(std::string(back->begin(), back->end()), data);
  EXPECT_FALSE(folder->readAsset(name, data.size() - 1).ok());  // one byte over the limit
  EXPECT_TRUE(folder->readAsset(name, data.size()).ok());       // exactly the limit
}

}  // namespace
}  // namespace velqor
