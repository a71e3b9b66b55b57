#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <random>
#include <set>
#include <sstream>

#include "host/FileBytes.h"
#include "host/ManualExecutor.h"
#include "platform/PhotoLibraryAdapters.h"
#include "platform/linux/SqlitePhotoLibrary.h"
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

}  // namespace
}  // namespace velqor
