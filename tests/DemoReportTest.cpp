#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "host/FileBytes.h"
#include "imaging/codecs/LinuxImageCodec.h"
#include "session/DemoReport.h"
#include "session/ScenarioRunner.h"
#include "TestDirectory.h"

namespace velqor {
namespace {

namespace fs = std::filesystem;
using testing::TestDirectory;

// A report over some scenarios: shipped ones by file name and written ones by
// their text. `shows` must all appear in index.html, `hides` none of them.
struct ReportCase {
  std::string name;
  std::vector<std::string> shipped;
  std::vector<std::pair<std::string, std::string>> written;
  std::vector<std::string> shows;
  std::vector<std::string> hides;
  friend void PrintTo(const ReportCase& c, std::ostream* os) { *os << c.name; }
};

class DemoReportTest : public ::testing::TestWithParam<ReportCase> {
 protected:
  // Runs every scenario of the case, as `velqor-camera demo` does, and returns the report's text.
  std::string reportFor(const ReportCase& c) {
    std::vector<std::string> files;
    for (const auto& s : c.shipped) files.push_back(std::string(VELQOR_SOURCE_DIR) + "/scenarios/" + s + ".json");
    for (const auto& [name, text] : c.written) {
      dir_.write("scenarios/" + name + ".json", text);
      files.push_back(dir_.path("scenarios/" + name + ".json"));
    }
    std::vector<ScenarioResult> results;
    for (const auto& f : files) results.push_back(ScenarioRunner::runOrExplain(f, dir_.path("out/runs")));
    auto path = DemoReport::write(results, dir_.path("out"));
    EXPECT_TRUE(path.ok()) << path.status();
    return path.ok() ? TestDirectory::read(*path) : std::string();
  }

  TestDirectory dir_;
};

TEST_P(DemoReportTest, TellsAPersonWhatHappened) {
  const auto& c = GetParam();
  const std::string html = reportFor(c);
  for (const auto& s : c.shows) EXPECT_NE(html.find(s), std::string::npos) << "missing: " << s;
  for (const auto& s : c.hides) EXPECT_EQ(html.find(s), std::string::npos) << "should not show: " << s;
}

INSTANTIATE_TEST_SUITE_P(
    Reports, DemoReportTest,
    ::testing::Values(
        ReportCase{"MalformedBesideGood",
                   {"camera-photo-file"},
                   {{"broken", "{\"steps\": [ {\"call\": "}},
                   {"1 passed, 1 failed", "href=\"#camera-photo-file\"", "href=\"#broken\"",
                    "<span class=\"verdict pass\">pass</span>", "<span class=\"verdict fail\">not run</span>",
                    "broken.json: not a JSON object", "<section class=\"scenario failed\" id=\"broken\">",
                    "Could not be run"},
                   {}},
        ReportCase{"WrongTypeDeepInside",
                   {"cancel-camera"},
                   {{"typo", R"({"name": "typo", "user": {"edit": "all of it", "pick": "x"}, "steps": []})"}},
                   {"href=\"#cancel-camera\"", "href=\"#typo\"", "Could not be run"},
                   {}},
        ReportCase{"OptionsByName",
                   {"camera-photo-data-url"},
                   {},
                   {"DATA_URL · CAMERA · JPEG · PICTURE", "a data URL (image/jpeg, ", "<details class=\"fold\">"},
                   {"\"destinationType\":", "\"sourceType\":"}},
        ReportCase{"CropsAndFixes",
                   {"library-pick-edited", "camera-location"},
                   {},
                   {"picks the sample photo from the library", "crops it to 600 × 400 at (100, 100)",
                    "a location fix arrives at -33.5, 151.2, 25 m", "FILE_URI · PHOTOLIBRARY", "editing allowed",
                    "with location"},
                   {}},
        ReportCase{"AlertAndOpenCommand",
                   {"camera-denied-settings"},
                   {},
                   {"camera access denied", "taps “settings” on the alert", "class=\"screen-card alert\"",
                    "class=\"alert-button tapped\"", "first stays open (the settings page was opened",
                    "→ tapped", "data-style=\"default\">Settings</span>", "data-style=\"default\">Cancel</span>"},
                   {"--tap"}},
        ReportCase{"PickerSetUp",
                   {"camera-video-file", "no-camera"},
                   {},
                   {"video capture, rear camera", "records a video", "MPEG-4 movie", "sources: library, album only"},
                   {}},
        ReportCase{"InputsBesideOutputs",
                   {"camera-photo-file"},
                   {},
                   {"In: what the user gave", "Out: what the plug-in wrote",
                    "1600 × 1200 JPEG, orientation 6 (turn 90° clockwise to view)", "<img src=\"thumb-0.jpg\""},
                   {}}),
    [](const auto& info) { return info.param.name; });

// Thumbnails are real pictures: a landscape photo stored with orientation 6
// shows as a portrait, a movie as its first frame, each at most 240 pixels on
// its longer side and with more than one colour in it.
struct ThumbnailCase {
  std::string scenario;
  std::string thumbnail;
  int width;
  int height;
  friend void PrintTo(const ThumbnailCase& c, std::ostream* os) { *os << c.scenario << " " << c.thumbnail; }
};

class DemoReportThumbnails : public ::testing::TestWithParam<ThumbnailCase> {};

TEST_P(DemoReportThumbnails, AreUprightPicturesOfTheFiles) {
  const auto& c = GetParam();
  TestDirectory dir;
  auto result = ScenarioRunner::runOrExplain(std::string(VELQOR_SOURCE_DIR) + "/scenarios/" + c.scenario + ".json",
                                             dir.path("out/runs"));
  ASSERT_TRUE(result.passed) << (result.differences.empty() ? "" : result.differences.front());
  ASSERT_TRUE(DemoReport::write({result}, dir.path("out")).ok());
  auto bytes = FileBytes::read(dir.path("out/" + c.thumbnail));
  ASSERT_TRUE(bytes.ok()) << bytes.status();
  LinuxImageCodec codec;
  auto image = codec.imageWithData(std::make_shared<const Bytes>(std::move(*bytes)));
  ASSERT_TRUE(image);
  EXPECT_EQ(image->size().width, c.width);
  EXPECT_EQ(image->size().height, c.height);
  auto bitmap = image->cgImage();
  ASSERT_TRUE(bitmap);
  const auto [lo, hi] = std::minmax_element(bitmap->pixels.begin(), bitmap->pixels.end());
  EXPECT_GT(*hi - *lo, 64) << "a flat thumbnail";
}

INSTANTIATE_TEST_SUITE_P(Files, DemoReportThumbnails,
                         ::testing::Values(ThumbnailCase{"camera-photo-file", "thumb-0.jpg", 180, 240},
                                           ThumbnailCase{"camera-video-file", "thumb-0.jpg", 240, 180},
                                           ThumbnailCase{"camera-video-file", "thumb-1.jpg", 240, 180}));

// A data URL of hundreds of kilobytes stays folded: the report keeps a few
// thousand characters of it, not the whole answer.
TEST(DemoReportFolding, KeepsTheReportSmallWhenAnswersAreHuge) {
  TestDirectory dir;
  auto result = ScenarioRunner::runOrExplain(std::string(VELQOR_SOURCE_DIR) + "/scenarios/camera-video-data-url.json",
                                             dir.path("out/runs"));
  ASSERT_FALSE(result.answers.empty());
  const size_t answerSize = result.answers[0].dump().size();
  ASSERT_GT(answerSize, 20'000u);
  auto path = DemoReport::write({result}, dir.path("out"));
  ASSERT_TRUE(path.ok());
  EXPECT_LT(fs::file_size(*path), 30'000u) << "the answer was " << answerSize << " characters";
  EXPECT_NE(TestDirectory::read(*path).find("more characters not shown"), std::string::npos);
}

}  // namespace
}  // namespace velqor
