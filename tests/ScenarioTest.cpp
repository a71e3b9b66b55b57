#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "cli/ScenarioRunner.h"

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

TEST(ScenarioFiles, ABrokenScenarioIsAClearError) {
  const std::string dir = std::string(VELQOR_BINARY_DIR) + "/scenario-tests";
  fs::create_directories(dir);
  for (const std::string text : {"{", "[1]", R"({"steps":[{"call":"noSuchCall"}]})",
                                 R"({"device":{"cameraAccess":"sometimes"}})", R"({"inputs":{"x":{"kind":"gif"}}})"}) {
    const std::string file = dir + "/broken.json";
    std::ofstream(file) << text;
    auto result = ScenarioRunner::run(file, dir);
    EXPECT_FALSE(result.ok()) << text;
  }
}

}  // namespace
}  // namespace velqor
