#include <gtest/gtest.h>

#include "host/ValueJson.h"
#include "host/VelqorCommand.h"

namespace velqor {
namespace {

struct ModelCase {
  const char* json;
  bool present;  // null stands for an absent argument
  std::optional<std::int64_t> integer;
  std::optional<double> floating;
  std::optional<bool> boolean;
  std::optional<std::string> text;
};

void PrintTo(const ModelCase& c, std::ostream* os) { *os << c.json; }

class ArgumentModel : public ::testing::TestWithParam<ModelCase> {};

TEST_P(ArgumentModel, ClassifiesEachJsonValue) {
  const auto& c = GetParam();
  auto args = argumentsFromJson(std::string("[") + c.json + "]");
  ASSERT_TRUE(args.ok());
  VelqorCommand cmd("id", "takePicture", *args);
  const Value* v = cmd.argument(0);
  ASSERT_EQ(v != nullptr, c.present);
  if (!v) return;
  EXPECT_EQ(v->asInteger(), c.integer);
  EXPECT_EQ(v->asFloat(), c.floating);
  EXPECT_EQ(v->asBool(), c.boolean);
  EXPECT_EQ(v->asString() ? std::optional<std::string>(*v->asString()) : std::nullopt, c.text);
}

INSTANTIATE_TEST_SUITE_P(
    Values, ArgumentModel,
    ::testing::Values(ModelCase{"3", true, 3, 3.0, {}, {}}, ModelCase{"-7", true, -7, -7.0, {}, {}},
                      ModelCase{"3.0", true, 3, 3.0, {}, {}}, ModelCase{"1e3", true, 1000, 1000.0, {}, {}},
                      ModelCase{"2.5", true, {}, 2.5, {}, {}},
                      ModelCase{"18446744073709551615", true, {}, 18446744073709551615.0, {}, {}},
                      ModelCase{"true", true, {}, {}, true, {}}, ModelCase{"false", true, {}, {}, false, {}},
                      ModelCase{"\"1\"", true, {}, {}, {}, "1"}, ModelCase{"null", false, {}, {}, {}, {}},
                      ModelCase{"[1]", true, {}, {}, {}, {}}, ModelCase{"{\"a\":1}", true, {}, {}, {}, {}}));

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
