#include <gtest/gtest.h>

#include "host/JsonReader.h"
#include "host/ValueJson.h"
#include "session/PatternMatcher.h"

namespace velqor {
namespace {

std::string nested(size_t depth, const char* open = "[", const char* close = "]") {
  std::string s;
  for (size_t i = 0; i < depth; ++i) s += open;
  for (size_t i = 0; i < depth; ++i) s += close;
  return s;
}

struct JsonCase {
  const char* name;
  std::string text;
  const char* refusal;  // part of the message; nullptr: read
};
void PrintTo(const JsonCase& c, std::ostream* os) { *os << c.name; }

class ArgumentText : public ::testing::TestWithParam<JsonCase> {};

// Argument lists are the JSON a user types on the command line and a page
// posts: the deepest ones are refused with a message, never a crash.
TEST_P(ArgumentText, IsReadOrRefusedWithAMessage) {
  const auto& c = GetParam();
  auto args = argumentsFromJson(c.text);
  if (c.refusal) {
    ASSERT_FALSE(args.ok());
    EXPECT_NE(args.status().message().find(c.refusal), std::string::npos) << args.status().message();
  } else {
    ASSERT_TRUE(args.ok()) << args.status().message();
    EXPECT_FALSE(valueToJson(Value(*args)).dump().empty());
  }
}

INSTANTIATE_TEST_SUITE_P(
    Texts, ArgumentText,
    ::testing::Values(JsonCase{"Plain", "[50, 1, 1, 200, 200]", nullptr},
                      JsonCase{"AtTheDepthLimit", nested(64), nullptr},
                      JsonCase{"OnePastTheLimit", nested(65), "more than 64 deep"},
                      JsonCase{"ThirtyThousandDeep", nested(30000), "more than 64 deep"},
                      JsonCase{"DeepObjects", "[" + nested(20000, "{\"a\":", "}") + "]", "more than 64 deep"},
                      JsonCase{"BracketsInsideStrings", "[\"" + std::string(100000, '[') + "\"]", nullptr},
                      JsonCase{"EscapedQuoteThenDeep", "[\"\\\"\", " + nested(100) + "]", "more than 64 deep"},
                      JsonCase{"UnclosedDeep", std::string(500, '['), "more than 64 deep"},
                      JsonCase{"NotJson", "[1,", "not valid JSON"},
                      JsonCase{"NotAnArray", "{}", "must be a JSON array"},
                      JsonCase{"PastTheSizeLimit", "[\"" + std::string(65 << 20, 'a') + "\"]", "the limit is"}),
    [](const auto& info) { return std::string(info.param.name); });

struct PatternCase {
  const char* name;
  std::string pattern;
  std::string text;
  bool matches;
  const char* refusal;
};
void PrintTo(const PatternCase& c, std::ostream* os) { *os << c.name; }

class ExpectationPattern : public ::testing::TestWithParam<PatternCase> {};

// Patterns that make a backtracking engine hang or overflow its stack finish
// here with the right answer.
TEST_P(ExpectationPattern, MatchesWithoutBacktracking) {
  const auto& c = GetParam();
  auto found = PatternMatcher::search(c.pattern, c.text);
  if (c.refusal) {
    ASSERT_FALSE(found.ok());
    EXPECT_NE(found.status().message().find(c.refusal), std::string::npos) << found.status().message();
  } else {
    ASSERT_TRUE(found.ok()) << found.status().message();
    EXPECT_EQ(*found, c.matches);
  }
}

const std::string kDataUrl = "data:image/jpeg;base64," + std::string(6 << 20, 'A') + "\n";

INSTANTIATE_TEST_SUITE_P(
    Patterns, ExpectationPattern,
    ::testing::Values(PatternCase{"Prefix", "^file://", "file:///tmp/x.jpg", true, nullptr},
                      PatternCase{"NoMatch", "\\.png$", "file:///tmp/x.jpg", false, nullptr},
                      PatternCase{"NestedQuantifiers", "^(a+)+$", std::string(5000, 'a') + "!", false, nullptr},
                      PatternCase{"AnyCharOrNewlineOverADataUrl", "^(.|\\n)*$", kDataUrl, true, nullptr},
                      PatternCase{"OnlyTheFirstMiBIsSearched", "\\n", kDataUrl, false, nullptr},
                      PatternCase{"UnclosedGroup", "(a+", "aaa", false, "invalid regex"},
                      PatternCase{"TooLong", std::string(2000, 'a'), "a", false, "limited to"}),
    [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace velqor
