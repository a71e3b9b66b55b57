#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>

#include "session/ShippedData.h"

namespace velqor {
namespace {
namespace fs = std::filesystem;

// Where the installed strings bundle is found: the environment override first,
// and a folder that lacks the entry never stops the search.
struct LookupCase {
  const char* name;
  bool overrideSet;
  bool overrideHasBundle;
  bool foundInOverride;
};

class ShippedDataLookup : public ::testing::TestWithParam<LookupCase> {
 protected:
  void SetUp() override {
    if (const char* old = std::getenv(ShippedData::kEnvironmentVariable)) saved_ = old;
    dir_ = fs::temp_directory_path() / ("velqor-shipped-" + std::to_string(::getpid()));
    fs::remove_all(dir_);
    fs::create_directories(dir_);
  }
  void TearDown() override {
    if (saved_)
      ::setenv(ShippedData::kEnvironmentVariable, saved_->c_str(), 1);
    else
      ::unsetenv(ShippedData::kEnvironmentVariable);
    fs::remove_all(dir_);
  }

  std::optional<std::string> saved_;
  fs::path dir_;
};

TEST_P(ShippedDataLookup, OverrideFirstThenTheInstallation) {
  const auto& c = GetParam();
  if (c.overrideHasBundle) fs::create_directories(dir_ / "Velqor.bundle" / "en.lproj");
  if (c.overrideSet)
    ::setenv(ShippedData::kEnvironmentVariable, dir_.c_str(), 1);
  else
    ::unsetenv(ShippedData::kEnvironmentVariable);

  const auto path = ShippedData::searchPath();
  ASSERT_GE(path.size(), 3u);
  EXPECT_EQ(path.front() == dir_.string(), c.overrideSet);
  auto found = ShippedData::find("Velqor.bundle");
  EXPECT_EQ(found && *found == (dir_ / "Velqor.bundle").string(), c.foundInOverride);
  EXPECT_FALSE(ShippedData::find("no-such-entry").has_value());
}

INSTANTIATE_TEST_SUITE_P(Folders, ShippedDataLookup,
                         ::testing::Values(LookupCase{"overrideWithBundle", true, true, true},
                                           LookupCase{"overrideWithoutBundle", true, false, false},
                                           LookupCase{"noOverride", false, true, false}),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace velqor
