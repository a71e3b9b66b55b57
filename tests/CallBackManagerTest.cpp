#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/CallBackManager.h"
#include "host/Base64.h"
#include "host/ValueJson.h"

namespace velqor {
namespace {

class PlatformThing : public PlatformObject {
 public:
  std::string kindName() const override { return "image"; }
};

class AnswerChannel : public ::testing::Test {
 protected:
  std::shared_ptr<CallBackManager> manager(const std::string& id) {
    auto cmd = std::make_shared<VelqorCommand>(id, "takePicture", Array{});
    return std::make_shared<CallBackManager>(cmd, nullptr, log_);
  }
  std::shared_ptr<AnswerLog> log_ = std::make_shared<AnswerLog>();
};

TEST_F(AnswerChannel, FirstFinalAnswerCountsAndASecondIsFlagged) {
  auto cb = manager("c1");
  cb->error(CommandStatus::NO_PERMISSION, "has no access to PhotoLibrary.", false);
  EXPECT_TRUE(log_->isAnswered("c1"));
  EXPECT_TRUE(log_->doubleAnswers().empty());
  cb->success(Dictionary{{"callbackURI", "x"}}, false);
  ASSERT_EQ(log_->doubleAnswers().size(), 1u);
  EXPECT_EQ(log_->doubleAnswers()[0].status, CommandStatus::OK);
  EXPECT_EQ(log_->answersFor("c1").size(), 2u);
}

TEST_F(AnswerChannel, KeptCallbacksMayAnswerAgain) {
  auto cb = manager("c2");
  cb->success(Dictionary{}, true);
  EXPECT_FALSE(log_->isAnswered("c2"));
  cb->success(false);
  EXPECT_TRUE(log_->isAnswered("c2"));
  EXPECT_TRUE(log_->doubleAnswers().empty());
}

struct JsonCase {
  const char* name;
  Value value;
  nlohmann::json expected;
};

void PrintTo(const JsonCase& c, std::ostream* os) { *os << c.name; }

class AnswerJson : public ::testing::TestWithParam<JsonCase> {};

TEST_P(AnswerJson, CarriesEachValueKindToThePage) {
  auto log = std::make_shared<AnswerLog>();
  auto cmd = std::make_shared<VelqorCommand>("c", "takePicture", Array{});
  CallBackManager cb(cmd, nullptr, log);
  cb.success(Dictionary{{"callbackURI", GetParam().value}}, false);
  auto line = nlohmann::json::parse(log->answers().at(0).toJsonLine());
  EXPECT_EQ(line["status"], "OK");
  EXPECT_EQ(line["keepCallback"], false);
  EXPECT_EQ(line["payload"]["callbackURI"], GetParam().expected);
  // The streamed form, used for large answers, is the same line.
  char* buffer = nullptr;
  size_t size = 0;
  std::FILE* out = ::open_memstream(&buffer, &size);
  log->answers().at(0).writeJsonLine(out);
  std::fclose(out);
  EXPECT_EQ(std::string(buffer, size), log->answers().at(0).toJsonLine() + "\n");
  std::free(buffer);
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, AnswerJson,
    ::testing::Values(
        JsonCase{"string", Value("data:image/jpeg;base64,AAA="), "data:image/jpeg;base64,AAA="},
        JsonCase{"url", Value(Url::fileUrlWithPath("/tmp/a b.jpg")), "file:///tmp/a%20b.jpg"},
        JsonCase{"bytes", Value(Bytes{'h', 'i', '!'}), nlohmann::json{{"bytes", "aGkh"}}},
        JsonCase{"integer", Value(7), 7},
        JsonCase{"float", Value(2.5), 2.5},
        JsonCase{"boolean", Value(true), true},
        JsonCase{"null", Value(), nullptr},
        JsonCase{"object", Value(std::shared_ptr<PlatformObject>(std::make_shared<PlatformThing>())),
                 nlohmann::json{{"object", "image"}}},
        JsonCase{"nested", Value(Dictionary{{"a", Value(Array{1, "b"})}}),
                 nlohmann::json{{"a", {1, "b"}}}},
        JsonCase{"escapes", Value("quote\" back\\ nl\n tab\t ctl\x01 \xC3\xA9"),
                 "quote\" back\\ nl\n tab\t ctl\x01 \xC3\xA9"},
        JsonCase{"invalidUtf8", Value("caf\xE9"), "caf\xEF\xBF\xBD"},
        JsonCase{"largeBytes", Value(Bytes(300000, 0xAB)), nlohmann::json{{"bytes", base64Encode(Bytes(300000, 0xAB))}}}),
    [](const auto& info) { return std::string(info.param.name); });

struct Base64Case {
  const char* bytes;
  const char* text;
};
void PrintTo(const Base64Case& c, std::ostream* os) { *os << '"' << c.bytes << '"'; }

class Base64Text : public ::testing::TestWithParam<Base64Case> {};

// The standard vectors: every remainder of the length by three, padded with "=".
TEST_P(Base64Text, EncodesWithPaddingAndDecodesBack) {
  const std::string bytes = GetParam().bytes;
  const std::span<const std::uint8_t> span(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
  EXPECT_EQ(base64Encode(span, "data:image/png;base64,"), std::string("data:image/png;base64,") + GetParam().text);
  EXPECT_EQ(base64Decode(GetParam().text), bytes);
}

INSTANTIATE_TEST_SUITE_P(Vectors, Base64Text,
                         ::testing::Values(Base64Case{"", ""}, Base64Case{"f", "Zg=="}, Base64Case{"fo", "Zm8="},
                                           Base64Case{"foo", "Zm9v"}, Base64Case{"foob", "Zm9vYg=="},
                                           Base64Case{"fooba", "Zm9vYmE="}, Base64Case{"foobar", "Zm9vYmFy"}));

TEST(AnswerJsonForms, MessageAndEmptyPayloads) {
  auto log = std::make_shared<AnswerLog>();
  auto cmd = std::make_shared<VelqorCommand>("c", "cleanup", Array{});
  CallBackManager cb(cmd, nullptr, log);
  cb.error(CommandStatus::UNABLE_FILE_REMOVE, "One or more files failed to be deleted.", false);
  cb.success(false);
  auto answers = log->answers();
  EXPECT_EQ(answers[0].toJsonLine(),
            R"({"keepCallback":false,"payload":"One or more files failed to be deleted.","status":"UNABLE_FILE_REMOVE"})");
  EXPECT_EQ(answers[1].toJsonLine(), R"({"keepCallback":false,"payload":null,"status":"OK"})");
}

TEST(AnswerLogRetention, KeepsRecentAnswersWholeAndEveryCountAndDoubleAnswer) {
  auto log = std::make_shared<AnswerLog>();
  log->setRetention(3);
  for (int i = 0; i < 10; ++i) {
    auto cmd = std::make_shared<VelqorCommand>("c" + std::to_string(i), "cleanup", Array{});
    CallBackManager cb(cmd, nullptr, log);
    cb.success(false);
    if (i == 2) cb.success(false);  // a second final answer, long before the end
  }
  EXPECT_EQ(log->size(), 11u);
  EXPECT_EQ(log->answers().size(), 3u);
  EXPECT_EQ(log->answers().front().callbackId, "c7");
  EXPECT_EQ(log->answerCount("c0"), 1u);
  EXPECT_EQ(log->answerCount("c2"), 2u);
  EXPECT_TRUE(log->isAnswered("c0"));
  ASSERT_EQ(log->doubleAnswers().size(), 1u);
  EXPECT_EQ(log->doubleAnswers()[0].callbackId, "c2");
  // A reader that has seen 9 answers gets the last two; one far behind gets what is kept.
  EXPECT_EQ(log->answersFrom(9).size(), 2u);
  EXPECT_EQ(log->answersFrom(0).size(), 3u);
  EXPECT_TRUE(log->answersFrom(11).empty());
}

}  // namespace
}  // namespace velqor
