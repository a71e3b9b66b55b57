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

// Texts are made when a case runs: the largest are tens of megabytes, which
// every run of the test program would otherwise build and copy at start-up.
using Text = std::string (*)();

struct JsonCase {
  const char* name;
  Text text;
  const char* refusal;  // part of the message; nullptr: read
};
void PrintTo(const JsonCase& c, std::ostream* os) { *os << c.name; }

class ArgumentText : public ::testing::TestWithParam<JsonCase> {};

// Argument lists are the JSON a user types on the command line and a page
// posts: the deepest ones are refused with a message, never a crash.
TEST_P(ArgumentText, IsReadOrRefusedWithAMessage) {
  const auto& c = GetParam();
  auto args = argumentsFromJson(c.text());
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
    ::testing::Values(JsonCase{"Plain", [] { return std::string("[50, 1, 1, 200, 200]"); }, nullptr},
                      JsonCase{"AtTheDepthLimit", [] { return nested(64); }, nullptr},
                      JsonCase{"OnePastTheLimit", [] { return nested(65); }, "more than 64 deep"},
                      JsonCase{"ThirtyThousandDeep", [] { return nested(30000); }, "more than 64 deep"},
                      JsonCase{"DeepObjects", [] { return "[" + nested(20000, "{\"a\":", "}") + "]"; }, "more than 64 deep"},
                      JsonCase{"BracketsInsideStrings", [] { return "[\"" + std::string(100000, '[') + "\"]"; }, nullptr},
                      JsonCase{"EscapedQuoteThenDeep", [] { return "[\"\\\"\", " + nested(100) + "]"; }, "more than 64 deep"},
                      JsonCase{"UnclosedDeep", [] { return std::string(500, '['); }, "more than 64 deep"},
                      JsonCase{"NotJson", [] { return std::string("[1,"); }, "not valid JSON"},
                      JsonCase{"NotAnArray", [] { return std::string("{}"); }, "must be a JSON array"},
                      JsonCase{"PastTheSizeLimit", [] { return "[\"" + std::string(65 << 20, 'a') + "\"]"; }, "the limit is"}),
    [](const auto& info) { return std::string(info.param.name); });

struct PatternCase {
  const char* name;
  std::string pattern;
  Text text;
  bool matches;
  const char* refusal;
};
void PrintTo(const PatternCase& c, std::ostream* os) { *os << c.name; }

class ExpectationPattern : public ::testing::TestWithParam<PatternCase> {};

// Patterns that make a backtracking engine hang or overflow its stack finish
// here with the right answer.
TEST_P(ExpectationPattern, MatchesWithoutBacktracking) {
  const auto& c = GetParam();
  auto found = PatternMatcher::search(c.pattern, c.text());
  if (c.refusal) {
    ASSERT_FALSE(found.ok());
    EXPECT_NE(found.status().message().find(c.refusal), std::string::npos) << found.status().message();
  } else {
    ASSERT_TRUE(found.ok()) << found.status().message();
    EXPECT_EQ(*found, c.matches);
  }
}

std::string dataUrl() { return "data:image/jpeg;base64," + std::string(6 << 20, 'A') + "\n"; }

INSTANTIATE_TEST_SUITE_P(
    Patterns, ExpectationPattern,
    ::testing::Values(PatternCase{"Prefix", "^file://", [] { return std::string("file:///tmp/x.jpg"); }, true, nullptr},
                      PatternCase{"NoMatch", "\\.png$", [] { return std::string("file:///tmp/x.jpg"); }, false, nullptr},
                      PatternCase{"NestedQuantifiers", "^(a+)+$", [] { return std::string(5000, 'a') + "!"; }, false, nullptr},
                      PatternCase{"AnyCharOrNewlineOverADataUrl", "^(.|\\n)*$", dataUrl, true, nullptr},
                      PatternCase{"OnlyTheFirstMiBIsSearched", "\\n", dataUrl, false, nullptr},
                      PatternCase{"UnclosedGroup", "(a+", [] { return std::string("aaa"); }, false, "invalid regex"},
                      PatternCase{"TooLong", std::string(2000, 'a'), [] { return std::string("a"); }, false, "limited to"}),
    [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace velqor
