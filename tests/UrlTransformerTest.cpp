#include <gtest/gtest.h>

#include "files/UrlTransformer.h"
#include "host/FileUrlPrefix.h"
#include "tests/PluginHarness.h"

namespace velqor {
namespace {

struct TransformCase {
  const char* name;
  const char* input;
  bool withCallback;
  bool withDelegate;
  bool withTransformer;
  const char* seenByHost;  // what the host's transformer received; "" when not called
  const char* expected;
};
void PrintTo(const TransformCase& c, std::ostream* os) { *os << c.name; }

class UrlTransform : public ::testing::TestWithParam<TransformCase> {};

TEST_P(UrlTransform, HandsTheFileFormToTheHost) {
  const auto& c = GetParam();
  PlatformServices s;
  auto core = std::make_shared<PluginCore>(s, std::make_shared<ViewControllerSlot>());
  std::string seen;
  if (c.withCallback) {
    std::shared_ptr<CommandDelegate> delegate;
    if (c.withDelegate) {
      if (c.withTransformer) {
        delegate = std::make_shared<CommandDelegate>([&seen](const Url& u) {
          seen = u.absoluteString();
          return *Url::fromString("http://host/x");
        });
      } else {
        delegate = std::make_shared<CommandDelegate>();
      }
    }
    core->currentCallBack.store(std::make_shared<CallBackManager>(
        std::make_shared<VelqorCommand>("c", "takePicture", Array{}), delegate, std::make_shared<AnswerLog>()));
  }
  auto out = UrlTransformer::transform(*core, *Url::fromString(c.input));
  EXPECT_EQ(seen, c.seenByHost);
  EXPECT_EQ(out.absoluteString(), c.expected);
}

INSTANTIATE_TEST_SUITE_P(
    Rules, UrlTransform,
    ::testing::Values(
        TransformCase{"noCommandYet", "/tmp/a.jpg", false, false, false, "", "/tmp/a.jpg"},
        TransformCase{"noDelegate", "/tmp/a.jpg", true, false, false, "", "/tmp/a.jpg"},
        TransformCase{"noTransformer", "/tmp/a.jpg", true, true, false, "", "/tmp/a.jpg"},
        TransformCase{"barePathBecomesFileUrl", "/tmp/a.jpg", true, true, true, "file:///tmp/a.jpg",
                      "http://host/x"},
        TransformCase{"fileUrlUnchanged", "file:///tmp/a%20b.jpg", true, true, true, "file:///tmp/a%20b.jpg",
                      "http://host/x"},
        TransformCase{"relativeFilesIsKept", "files/x", true, true, true, "files/x", "http://host/x"}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(UrlTransformUpperCase, IsTakenAsAPathUnderTheWorkingDirectory) {
  PlatformServices s;
  auto core = std::make_shared<PluginCore>(s, std::make_shared<ViewControllerSlot>());
  std::string seen;
  auto delegate = std::make_shared<CommandDelegate>([&seen](const Url& u) {
    seen = u.absoluteString();
    return u;
  });
  core->currentCallBack.store(std::make_shared<CallBackManager>(
      std::make_shared<VelqorCommand>("c", "takePicture", Array{}), delegate, std::make_shared<AnswerLog>()));
  UrlTransformer::transform(*core, *Url::fromString("FILE:///tmp/a.jpg"));
  EXPECT_EQ(seen.rfind("file:///", 0), 0u);
  EXPECT_NE(seen.find("/FILE:///tmp/a.jpg"), std::string::npos);
}

// The host calls the operation by name with whatever its page handed over;
// the answer is always a URL.
struct HostArgumentCase {
  const char* name;
  Value argument;
  bool withTransformer;
  std::string seenByHost;  // "" when the transformer is not called
  std::string answered;
};
void PrintTo(const HostArgumentCase& c, std::ostream* os) { *os << c.name; }

class UrlTransformerOperation : public testing::PluginHarness, public ::testing::WithParamInterface<HostArgumentCase> {};

TEST_P(UrlTransformerOperation, AnswersAUrlForEveryArgument) {
  const auto& c = GetParam();
  std::string seen;
  auto delegate = c.withTransformer ? std::make_shared<CommandDelegate>([&seen](const Url& u) {
    seen = u.absoluteString();
    return *Url::fromString("http://host/x");
  })
                                    : std::make_shared<CommandDelegate>();
  core().currentCallBack.store(std::make_shared<CallBackManager>(
      std::make_shared<VelqorCommand>("c", "takePicture", Array{}), delegate, std::make_shared<AnswerLog>()));
  Value out = ops_.at("urlTransformer:")(HostCall{nullptr, c.argument});
  const Url* url = out.asUrl();
  ASSERT_NE(url, nullptr) << "the operation answered no URL";
  EXPECT_EQ(url->absoluteString(), c.answered);
  EXPECT_EQ(seen, c.seenByHost);
}

INSTANTIATE_TEST_SUITE_P(
    Arguments, UrlTransformerOperation,
    ::testing::Values(
        HostArgumentCase{"pathWithASpace", Value(std::string("/tmp/a b.jpg")), false, "", "file:///tmp/a%20b.jpg"},
        HostArgumentCase{"pathWithASpaceThroughTheHost", Value(std::string("/tmp/a b.jpg")), true,
                         "file:///tmp/a%20b.jpg", "http://host/x"},
        HostArgumentCase{"brokenEscape", Value(std::string("/tmp/100%.jpg")), false, "", "file:///tmp/100%25.jpg"},
        HostArgumentCase{"uriText", Value(std::string("file:///tmp/a.jpg")), false, "", "file:///tmp/a.jpg"},
        HostArgumentCase{"urlValue", Value(Url::fileUrlWithPath("/tmp/a.jpg")), true, "file:///tmp/a.jpg",
                         "http://host/x"},
        HostArgumentCase{"notText", Value(), false, "", ""}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(FileUrlPrefixTransformer, RewritesOnlyFileUrls) {
  auto t = FileUrlPrefix::transformer("http://127.0.0.1:8080/files/");
  EXPECT_EQ(t(Url::fileUrlWithPath("/tmp/a b.jpg")).absoluteString(), "http://127.0.0.1:8080/files/tmp/a%20b.jpg");
  EXPECT_EQ(t(*Url::fromString("assets-library://asset/asset.JPG?id=1")).absoluteString(),
            "assets-library://asset/asset.JPG?id=1");
}

}  // namespace
}  // namespace velqor
