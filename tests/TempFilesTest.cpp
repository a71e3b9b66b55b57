#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <regex>
#include <set>
#include <thread>

#include "files/StampFormatter.h"
#include "files/TempFiles.h"
#include "host/ManualExecutor.h"
#include "tests/FixedClock.h"
#include "tests/RecordingLog.h"
#include "tests/TestDirectory.h"

namespace velqor {
namespace {

namespace fs = std::filesystem;
using testing::FixedClock;
using testing::RecordingLog;
using testing::TestDirectory;

struct StampCase {
  const char* name;
  int hour, minute, second;
  const char* timeZone;
  const char* expected;
};
void PrintTo(const StampCase& c, std::ostream* os) { *os << c.name; }

class Stamp : public ::testing::TestWithParam<StampCase> {};

TEST_P(Stamp, UsesTheTwelveHourClockWithoutAmPm) {
  const auto& c = GetParam();
  UserLocale locale{{"en"}, "en_US", c.timeZone, nullptr};
  EXPECT_EQ(StampFormatter::format(FixedClock::utc(2024, 1, 31, c.hour, c.minute, c.second), locale),
            c.expected);
}

INSTANTIATE_TEST_SUITE_P(
    Clock, Stamp,
    ::testing::Values(StampCase{"afternoon", 13, 30, 5, "UTC", "20240131013005"},
                      StampCase{"sameAsMorning", 1, 30, 5, "UTC", "20240131013005"},
                      StampCase{"midnight", 0, 0, 0, "UTC", "20240131120000"},
                      StampCase{"noon", 12, 0, 0, "UTC", "20240131120000"},
                      StampCase{"userZoneAhead", 23, 30, 0, "Asia/Tokyo", "20240201083000"},
                      StampCase{"userZoneBehind", 3, 0, 0, "America/New_York", "20240130100000"}),
    [](const auto& info) { return std::string(info.param.name); });

class TempFilesFixture : public ::testing::Test {
 protected:
  void SetUp() override {
    fs::create_directories(dir_.path("tmp"));
    PlatformServices s;
    s.mainQueue = std::make_shared<ManualExecutor>();
    s.clock = std::make_shared<FixedClock>(FixedClock::utc(2024, 1, 31, 13, 30, 5));
    s.locale = UserLocale{{"en"}, "en_US", "UTC", nullptr};
    auto tmp = TemporaryDirectory::open(dir_.path("tmp"));
    ASSERT_TRUE(tmp.ok());
    s.temporaryDirectory = std::make_shared<const TemporaryDirectory>(*tmp);
    core_ = std::make_shared<PluginCore>(s, std::make_shared<ViewControllerSlot>());
  }
  std::string tmp() const { return dir_.path("tmp"); }

  TestDirectory dir_;
  std::shared_ptr<PluginCore> core_;
};

TEST_F(TempFilesFixture, NamesFollowTheDocumentedForm) {
  EXPECT_EQ(TempFiles::tempFilePath(*core_, "jpg"), tmp() + "/velqor_photo_20240131013005.jpg");
  EXPECT_EQ(TempFiles::tempFilePath(*core_, ""), tmp() + "/velqor_photo_20240131013005.");
  EXPECT_EQ(TempFiles::tempFilePath(*core_, "tar.gz"), tmp() + "/velqor_photo_20240131013005.tar.gz");
}

TEST_F(TempFilesFixture, NeverNamesAnExistingFile) {
  dir_.write("tmp/velqor_photo_20240131013005.jpg");
  std::string second = TempFiles::tempFilePath(*core_, "jpg");
  EXPECT_EQ(second, tmp() + "/velqor_photo_20240131013005_2.jpg");
  auto written = TempFiles::writeNew(second, std::vector<std::uint8_t>{1, 2, 3}, tmp());
  ASSERT_TRUE(written.ok()) << written.status();
  EXPECT_EQ(TempFiles::tempFilePath(*core_, "jpg"), tmp() + "/velqor_photo_20240131013005_3.jpg");
  EXPECT_EQ(TestDirectory::read(dir_.path("tmp/velqor_photo_20240131013005.jpg")), "x");
}

TEST_F(TempFilesFixture, WriterNeverReplacesAFileTakenMeanwhile) {
  std::string path = TempFiles::tempFilePath(*core_, "png");
  dir_.write("tmp/velqor_photo_20240131013005.png", "someone else's");
  auto written = TempFiles::writeNew(path, std::vector<std::uint8_t>{'o', 'k'}, tmp());
  ASSERT_TRUE(written.ok());
  EXPECT_NE(*written, path);
  EXPECT_EQ(TestDirectory::read(path), "someone else's");
  EXPECT_EQ(TestDirectory::read(*written), "ok");
}

TEST_F(TempFilesFixture, WriterRefusesNamesThatLeaveTheDirectory) {
  dir_.write("outside/keep", "keep");
  fs::create_directories(tmp() + "/velqor_photo_x.d");
  for (const std::string ext : {"d/../../outside/keep", "/../../outside/new"}) {
    auto written = TempFiles::writeNew(tmp() + "/velqor_photo_x." + ext, std::vector<std::uint8_t>{1}, tmp());
    EXPECT_FALSE(written.ok()) << ext;
  }
  EXPECT_EQ(TestDirectory::read(dir_.path("outside/keep")), "keep");
  EXPECT_FALSE(fs::exists(dir_.path("outside/new")));
}

TEST_F(TempFilesFixture, ManyThreadsInOneSecondGetDistinctCompleteFiles) {
  constexpr int kThreads = 8, kPerThread = 1250;
  std::vector<std::thread> threads;
  std::mutex m;
  std::set<std::string> paths;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < kPerThread; ++i) {
        std::string body = std::to_string(t) + ":" + std::to_string(i) + std::string(512, 'p');
        auto written = TempFiles::writeNew(TempFiles::tempFilePath(*core_, "jpg"),
                                           std::span(reinterpret_cast<const std::uint8_t*>(body.data()), body.size()),
                                           tmp());
        ASSERT_TRUE(written.ok()) << written.status();
        std::lock_guard l(m);
        paths.insert(*written);
      }
    });
  }
  for (auto& th : threads) th.join();
  ASSERT_EQ(paths.size(), size_t{kThreads * kPerThread});
  std::set<std::string> bodies;
  for (const auto& p : paths) bodies.insert(TestDirectory::read(p));
  EXPECT_EQ(bodies.size(), paths.size());  // none overwritten, none truncated
  size_t files = 0;
  for (auto& e : fs::directory_iterator(tmp())) files += e.path().filename().string()[0] != '.';
  EXPECT_EQ(files, paths.size());  // and no staging leftovers
}

struct DirCase {
  const char* name;
  std::function<void(const TestDirectory&)> layout;
  bool success;
  std::vector<std::string> remaining;  // relative to tmp/, after cleanup
  std::string logged;                  // after "Failed to delete: <tmp>/"; empty: no line
};
void PrintTo(const DirCase& c, std::ostream* os) { *os << c.name; }

class Cleanup : public TempFilesFixture, public ::testing::WithParamInterface<DirCase> {};

std::vector<std::string> listTree(const std::string& root) {
  std::vector<std::string> out;
  std::error_code ec;
  for (auto it = fs::recursive_directory_iterator(root, ec); !ec && it != fs::recursive_directory_iterator();
       it.increment(ec))
    out.push_back(fs::relative(it->path(), root).string());
  std::sort(out.begin(), out.end());
  return out;
}

TEST_P(Cleanup, RemovesEverythingItCanAndAnswersOnce) {
  const auto& c = GetParam();
  c.layout(dir_);
  auto log = RecordingLog::install();
  auto answers = std::make_shared<AnswerLog>();
  auto cmd = std::make_shared<VelqorCommand>("c", "cleanup", Array{});
  CallBackManager cb(cmd, nullptr, answers);
  TempFiles::cleanup(*core_, cb);
  log->uninstall();

  ASSERT_EQ(answers->size(), 1u);
  auto a = answers->answers()[0];
  if (c.success) {
    EXPECT_EQ(a.status, CommandStatus::OK);
    EXPECT_TRUE(std::holds_alternative<std::monostate>(a.payload));
  } else {
    EXPECT_EQ(a.status, CommandStatus::UNABLE_FILE_REMOVE);
    EXPECT_EQ(a.messageText(), "One or more files failed to be deleted.");
  }
  EXPECT_EQ(listTree(tmp()), c.remaining);
  auto errors = log->errors();
  ASSERT_EQ(errors.size(), c.logged.empty() ? 0u : 1u);
  for (const auto& e : errors) {
    EXPECT_EQ(e.message, "Failed to delete: " + tmp() + "/" + c.logged);
    EXPECT_EQ(e.line, 187);
    EXPECT_EQ(e.funcName, "cleanup(_:)");
    EXPECT_EQ(e.filename, "VelqorCameraPlugin");
    EXPECT_EQ(e.tag, "");
  }
  // Nothing outside the temporary directory was touched.
  if (fs::exists(dir_.path("outside/keep"))) {
    EXPECT_EQ(TestDirectory::read(dir_.path("outside/keep")), "keep");
  }
}

INSTANTIATE_TEST_SUITE_P(
    Layouts, Cleanup,
    ::testing::Values(
        DirCase{"empty", [](auto&) {}, true, {}, ""},
        DirCase{"anyNames", [](auto& d) {
                  d.write("tmp/velqor_photo_1.jpg");
                  d.write("tmp/other.txt");
                  d.write("tmp/.hidden");
                }, true, {}, ""},
        DirCase{"nested", [](auto& d) {
                  d.write("tmp/a/b/c.mov");
                  d.write("tmp/a/d.jpg");
                  d.write("tmp/z.png");
                }, true, {}, ""},
        DirCase{"symlinkOut", [](auto& d) {
                  d.write("outside/keep", "keep");
                  fs::create_symlink(d.path("outside/keep"), d.path("tmp/link"));
                  fs::create_directory_symlink(d.path("outside"), d.path("tmp/linkdir"));
                }, true, {}, ""},
        DirCase{"spaceStopsTheRun", [](auto& d) {
                  d.write("tmp/a.jpg");
                  d.write("tmp/b c.jpg");
                  d.write("tmp/d.jpg");
                }, false, {"b c.jpg", "d.jpg"},
                "b c.jpg (error: \u201Cb%20c.jpg\u201D couldn\u2019t be removed because it doesn\u2019t exist."},
        DirCase{"percentName", [](auto& d) { d.write("tmp/100%.jpg"); }, false, {"100%.jpg"},
                "100%.jpg (error: \u201C100%25.jpg\u201D couldn\u2019t be removed because it doesn\u2019t exist."},
        DirCase{"nonUtf8Name", [](auto& d) { d.write("tmp/caf\xe9.jpg"); }, false, {"caf\xe9.jpg"},
                "caf\xe9.jpg (error: \u201Ccaf%E9.jpg\u201D couldn\u2019t be removed because it doesn\u2019t exist."},
        DirCase{"newlineName", [](auto& d) { d.write("tmp/a\nb"); }, false, {"a\nb"},
                "a\nb (error: \u201Ca%0Ab\u201D couldn\u2019t be removed because it doesn\u2019t exist."}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(TempFilesFixture, CleanupOfAMissingOrFileDirectoryAnswersTheRemoveError) {
  fs::remove_all(tmp());
  auto answers = std::make_shared<AnswerLog>();
  CallBackManager cb(std::make_shared<VelqorCommand>("c", "cleanup", Array{}), nullptr, answers);
  TempFiles::cleanup(*core_, cb);
  dir_.write("tmp", "a file, not a directory");
  TempFiles::cleanup(*core_, cb);
  ASSERT_EQ(answers->size(), 2u);
  for (const auto& a : answers->answers()) EXPECT_EQ(a.status, CommandStatus::UNABLE_FILE_REMOVE);
}

TEST_F(TempFilesFixture, CleanupStopsAtAReadOnlySubdirectory) {
  if (::geteuid() == 0) GTEST_SKIP() << "root ignores directory permissions";
  dir_.write("tmp/ro/x");
  fs::permissions(tmp() + "/ro", fs::perms::owner_read | fs::perms::owner_exec);
  auto answers = std::make_shared<AnswerLog>();
  CallBackManager cb(std::make_shared<VelqorCommand>("c", "cleanup", Array{}), nullptr, answers);
  TempFiles::cleanup(*core_, cb);
  EXPECT_EQ(answers->answers().at(0).status, CommandStatus::UNABLE_FILE_REMOVE);
}

struct DirCheck {
  const char* path;
  bool accepted;
};
void PrintTo(const DirCheck& c, std::ostream* os) { *os << c.path; }
class TemporaryDirectoryChoice : public ::testing::TestWithParam<DirCheck> {};

TEST_P(TemporaryDirectoryChoice, RefusesSharedDirectories) {
  EXPECT_EQ(TemporaryDirectory::validate(GetParam().path).ok(), GetParam().accepted);
}

INSTANTIATE_TEST_SUITE_P(Paths, TemporaryDirectoryChoice,
                         ::testing::Values(DirCheck{"/", false}, DirCheck{"//", false},
                                           DirCheck{"/tmp", false}, DirCheck{"/tmp/", false},
                                           DirCheck{"/tmp/../tmp", false}, DirCheck{"/var/tmp", false},
                                           DirCheck{"/etc", false}, DirCheck{"/usr", false},
                                           DirCheck{"", false}, DirCheck{"/var/lib", false},
                                           DirCheck{"/usr/local/share", false}, DirCheck{"/var/tmp/velqor-x", true},
                                           DirCheck{"/tmp/velqor-x/tmp", true}));

TEST(TemporaryDirectoryHome, IsRefused) {
  const char* home = std::getenv("HOME");
  if (!home) GTEST_SKIP() << "HOME is not set";
  EXPECT_FALSE(TemporaryDirectory::validate(home).ok());
  EXPECT_FALSE(TemporaryDirectory::validate(std::string(home) + "/.").ok());
}

// ---- the writer's names at their edges ---------------------------------------

struct SeriesCase {
  const char* name;
  std::vector<std::string> taken;  // files already in the directory
  std::string requested;
  std::string written;  // the name the bytes land under
};
void PrintTo(const SeriesCase& c, std::ostream* os) { *os << c.name; }
class WriterSeries : public TempFilesFixture, public ::testing::WithParamInterface<SeriesCase> {};

TEST_P(WriterSeries, ContinuesOnlyOurOwnNumberedNames) {
  const auto& c = GetParam();
  for (const auto& t : c.taken) dir_.write("tmp/" + t, "earlier");
  auto written = TempFiles::writeNew(tmp() + "/" + c.requested, std::vector<std::uint8_t>{'n', 'e', 'w'}, tmp());
  ASSERT_TRUE(written.ok()) << written.status();
  EXPECT_EQ(*written, tmp() + "/" + c.written);
  EXPECT_EQ(TestDirectory::read(*written), "new");
  for (const auto& t : c.taken) EXPECT_EQ(TestDirectory::read(tmp() + "/" + t), "earlier") << t;
}

INSTANTIATE_TEST_SUITE_P(
    Names, WriterSeries,
    ::testing::Values(
        SeriesCase{"Free", {}, "velqor_photo_S.jpg", "velqor_photo_S.jpg"},
        SeriesCase{"FirstTaken", {"velqor_photo_S.jpg"}, "velqor_photo_S.jpg", "velqor_photo_S_2.jpg"},
        SeriesCase{"SixDigitsContinue", {"velqor_photo_S_999999.jpg"}, "velqor_photo_S_999999.jpg",
                   "velqor_photo_S_1000000.jpg"},
        SeriesCase{"SevenDigitsAreTheName", {"velqor_photo_S_1000000.jpg"}, "velqor_photo_S_1000000.jpg",
                   "velqor_photo_S_1000000_2.jpg"},
        SeriesCase{"SomeoneElsesNumberedName", {"holiday_pictures_3.jpg"}, "holiday_pictures_3.jpg",
                   "holiday_pictures_3_2.jpg"},
        SeriesCase{"NoExtension", {"velqor_photo_S"}, "velqor_photo_S", "velqor_photo_S_2"}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(TempFilesFixture, WriterTakesOnlyAPlainNameInTheDirectoryItself) {
  dir_.write("outside/keep", "keep");
  for (const std::string name : {"", ".", ".."}) {
    auto written = TempFiles::writeNew(tmp() + "/" + name, std::vector<std::uint8_t>{1}, tmp());
    EXPECT_FALSE(written.ok()) << "\"" << name << "\"";
  }
  // A sibling folder is refused; a link to the directory itself reaches it and is accepted.
  EXPECT_FALSE(TempFiles::writeNew(dir_.path("outside/new.jpg"), std::vector<std::uint8_t>{1}, tmp()).ok());
  EXPECT_FALSE(fs::exists(dir_.path("outside/new.jpg")));
  fs::create_symlink(tmp(), dir_.path("link-to-tmp"));
  auto linked = TempFiles::writeNew(dir_.path("link-to-tmp/velqor_photo_L.jpg"), std::vector<std::uint8_t>{1}, tmp());
  ASSERT_TRUE(linked.ok()) << linked.status();
  EXPECT_TRUE(fs::is_regular_file(tmp() + "/velqor_photo_L.jpg"));
  EXPECT_EQ(TestDirectory::read(dir_.path("outside/keep")), "keep");
  size_t staging = 0;
  for (const auto& e : fs::directory_iterator(tmp())) staging += e.path().filename().string().rfind(".velqor-staging-", 0) == 0;
  EXPECT_EQ(staging, 0u) << "a refused write left its staging file";
}

}  // namespace
}  // namespace velqor
