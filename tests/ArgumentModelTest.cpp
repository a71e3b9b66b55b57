#include <gtest/gtest.h>

#include "host/ValueJson.h"
#include "host/VelqorCommand.h"

namespace velqor {
namespace {

struct ModelCase {
  const char* json;
  std::optional<std::int64_t> integer;
  std::optional<double> floating;
  std::optional<bool> boolean;
};

void PrintTo(const ModelCase& c, std::ostream* os) { *os << c.json; }

class ArgumentModel : public ::testing::TestWithParam<ModelCase> {};

TEST_P(ArgumentModel, ClassifiesEachJsonValue) {
  const auto& c = GetParam();
  auto args = argumentsFromJson(std::string("[") + c.json + "]");
  ASSERT_TRUE(args.ok());
  VelqorCommand cmd("id", "takePicture", *args);
  const Value* v = cmd.argument(0);
  if (!c.integer && !c.floating && !c.boolean) {
    if (v) {
      EXPECT_FALSE(v->asInteger() || v->asFloat() || v->asBool());
    }
    return;
  }
  ASSERT_NE(v, nullptr);
  EXPECT_EQ(v->asInteger(), c.integer);
  EXPECT_EQ(v->asFloat(), c.floating);
  EXPECT_EQ(v->asBool(), c.boolean);
}

INSTANTIATE_TEST_SUITE_P(
    Values, ArgumentModel,
    ::testing::Values(ModelCase{"3", 3, 3.0, {}}, ModelCase{"-7", -7, -7.0, {}},
                      ModelCase{"3.0", 3, 3.0, {}}, ModelCase{"1e3", 1000, 1000.0, {}},
                      ModelCase{"2.5", {}, 2.5, {}},
                      ModelCase{"18446744073709551615", {}, 18446744073709551615.0, {}},
                      ModelCase{"true", {}, {}, true}, ModelCase{"false", {}, {}, false},
                      ModelCase{"\"1\"", {}, {}, {}}, ModelCase{"null", {}, {}, {}},
                      ModelCase{"[1]", {}, {}, {}}, ModelCase{"{\"a\":1}", {}, {}, {}}));

TEST(ArgumentList, MissingIndicesAreAbsent) {
  VelqorCommand cmd("id", "takePicture", Array{1, Value()});
  EXPECT_NE(cmd.argument(0), nullptr);
  EXPECT_EQ(cmd.argument(1), nullptr);
  EXPECT_EQ(cmd.argument(2), nullptr);
  EXPECT_EQ(cmd.argument(-1), nullptr);
}

TEST(ArgumentList, RejectsWhatIsNotAJsonArray) {
  EXPECT_FALSE(argumentsFromJson("{").ok());
  EXPECT_FALSE(argumentsFromJson("{\"a\": 1}").ok());
  EXPECT_FALSE(argumentsFromJson("").ok());
  EXPECT_TRUE(argumentsFromJson("[]").ok());
}

}  // namespace
}  // namespace velqor
