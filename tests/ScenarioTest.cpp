#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "session/ScenarioRunner.h"

namespace velqor {
namespace {

namespace fs = std::filesystem;

std::vector<std::string> scenarioFiles() {
  std::vector<std::string> files;
  for (auto& e : fs::directory_iterator(std::string(VELQOR_SOURCE_DIR) + "/scenarios"))
    if (e.path().extension() == ".json") files.push_back(e.path().string());
  std::sort(files.begin(), files.end());
  return files;
}

class Scenarios : public ::testing::TestWithParam<std::string> {};

// Every shipped scenario replays from the host's call to the answer and meets
// its expectations: answers, what the user saw, open commands, files left.
TEST_P(Scenarios, MeetTheirExpectations) {
  auto result = ScenarioRunner::run(GetParam(), std::string(VELQOR_BINARY_DIR) + "/scenario-tests");
  ASSERT_TRUE(result.ok()) << result.status();
  for (const auto& d : result->differences) ADD_FAILURE() << d;
  EXPECT_TRUE(result->watchdog.empty());
}

INSTANTIATE_TEST_SUITE_P(Shipped, Scenarios, ::testing::ValuesIn(scenarioFiles()), [](const auto& info) {
  std::string name = fs::path(info.param).stem().string();
  for (auto& c : name)
    if (!std::isalnum(static_cast<unsigned char>(c))) c = '_';
  return name;
});

struct BrokenScenario {
  std::string name;
  std::string text;
  std::string message;  // part of the error
};

class BrokenScenarios : public ::testing::TestWithParam<BrokenScenario> {};

// A scenario file that cannot be run is refused with a message, before any
// input is made, and never writes outside its work directory.
TEST_P(BrokenScenarios, AreRefusedWithAMessage) {
  const std::string dir = std::string(VELQOR_BINARY_DIR) + "/scenario-tests/broken-" + GetParam().name;
  fs::remove_all(dir);
  fs::create_directories(dir);
  const std::string file = dir + "/broken.json";
  std::ofstream(file) << GetParam().text;
  auto result = ScenarioRunner::run(file, dir + "/work");
  ASSERT_FALSE(result.ok()) << GetParam().text;
  EXPECT_NE(result.status().message().find(GetParam().message), std::string::npos) << result.status().message();
  for (const auto& e : fs::directory_iterator(dir))
    EXPECT_TRUE(e.path().filename() == "broken.json" || e.path().filename() == "work") << "wrote " << e.path();
}

INSTANTIATE_TEST_SUITE_P(
    Files, BrokenScenarios,
    ::testing::Values(
        BrokenScenario{"NotJson", "{", "not a JSON object"},
        BrokenScenario{"Array", "[1]", "not a JSON object"},
        BrokenScenario{"UnknownCall", R"({"steps":[{"call":"noSuchCall"}]})", "noSuchCall"},
        BrokenScenario{"UnknownAccess", R"({"device":{"cameraAccess":"sometimes"}})", "cameraAccess"},
        BrokenScenario{"UnknownKind", R"({"inputs":{"x":{"kind":"gif"}}})", "kind must be"},
        BrokenScenario{"NameNotString", R"({"name":3})", "must be strings"},
        BrokenScenario{"InputNameEscapes", R"({"inputs":{"../../x":{"kind":"png"}}})", "plain name"},
        BrokenScenario{"ExtensionEscapes", R"({"inputs":{"x":{"kind":"bytes","extension":"/../../../escaped.jpg"}}})",
                       "extension"},
        BrokenScenario{"HugeImage", R"({"inputs":{"x":{"kind":"camera-jpeg","width":60000,"height":60000}}})",
                       "1 to 8192"},
        BrokenScenario{"WidthIsText", R"({"inputs":{"x":{"kind":"png","width":"wide"}}})", "must be number"},
        BrokenScenario{"EndlessMovie", R"({"inputs":{"x":{"kind":"movie","seconds":1e9}}})", "seconds"},
        BrokenScenario{"UnknownSource", R"({"device":{"sources":["phone"]}})", "library, camera or album"},
        BrokenScenario{"SourceIsNumber", R"({"device":{"sources":[7]}})", "library, camera or album"},
        BrokenScenario{"SourceNumberPast64Bits", R"({"device":{"sources":["99999999999999999999"]}})", "device.sources"},
        BrokenScenario{"SourcesNotAList", R"({"device":{"sources":"camera"}})", "device.sources"},
        BrokenScenario{"EditOfWords", R"({"user":{"photo":"x.jpg","edit":["a","b","c","d"]}})", "user or location"},
        BrokenScenario{"CallNotAString", R"({"steps":[{"call":3}]})", "steps[0]"},
        BrokenScenario{"NestedTooDeep", "{\"steps\":" + std::string(30000, '[') + std::string(30000, ']') + "}",
                       "more than 64 deep"}),
    [](const auto& info) { return info.param.name; });

struct RegexExpectation {
  std::string name;
  std::string pattern;
  bool passes;
  std::string difference;  // part of the one difference when it fails
};

class RegexExpectations : public ::testing::TestWithParam<RegexExpectation> {};

// An expectation's regex is checked by a matcher that cannot backtrack: a
// broken pattern is a difference with its reason, not an abort.
TEST_P(RegexExpectations, AreCheckedWithoutAborting) {
  const std::string dir = std::string(VELQOR_BINARY_DIR) + "/scenario-tests/regex-" + GetParam().name;
  fs::remove_all(dir);
  fs::create_directories(dir);
  const std::string file = dir + "/regex.json";
  nlohmann::json scenario{{"steps", {{{"call", "cleanup"}}}},
                          {"expect", {{"answers", {{{"status", {{"regex", GetParam().pattern}}}}}}}}};
  std::ofstream(file) << scenario.dump();
  auto result = ScenarioRunner::run(file, dir + "/work");
  ASSERT_TRUE(result.ok()) << result.status().message();
  EXPECT_EQ(result->passed, GetParam().passes);
  if (!GetParam().passes) {
    ASSERT_EQ(result->differences.size(), 1u);
    EXPECT_NE(result->differences[0].find(GetParam().difference), std::string::npos) << result->differences[0];
  }
}

INSTANTIATE_TEST_SUITE_P(Patterns, RegexExpectations,
                         ::testing::Values(RegexExpectation{"Matches", "^O[K]$", true, ""},
                                           RegexExpectation{"AnythingAcrossLines", "^(.|\n)*$", true, ""},
                                           RegexExpectation{"DoesNotMatch", "^ERROR", false, "expected regex"},
                                           RegexExpectation{"UnclosedGroup", "(a+", false, "invalid regex"}),
                         [](const auto& info) { return info.param.name; });

}  // namespace
}  // namespace velqor
