#include <gtest/gtest.h>

#include "host/Url.h"

namespace velqor {
namespace {

struct FromStringCase {
  const char* text;
  bool valid;
  const char* path;
};

void PrintTo(const FromStringCase& c, std::ostream* os) { *os << c.text; }

class UrlFromString : public ::testing::TestWithParam<FromStringCase> {};

TEST_P(UrlFromString, AcceptsOnlyValidReferences) {
  auto url = Url::fromString(GetParam().text);
  ASSERT_EQ(url.has_value(), GetParam().valid);
  if (url) {
    EXPECT_EQ(url->absoluteString(), GetParam().text);
    EXPECT_EQ(url->path(), GetParam().path);
  }
}

INSTANTIATE_TEST_SUITE_P(
    Texts, UrlFromString,
    ::testing::Values(FromStringCase{"/tmp/velqor_photo_1.jpg", true, "/tmp/velqor_photo_1.jpg"},
                      FromStringCase{"file:///tmp/a%20b.jpg", true, "/tmp/a b.jpg"},
                      FromStringCase{"assets-library://asset/asset.JPG?id=A/L0/001&ext=JPG", true,
                                     "/asset.JPG"},
                      FromStringCase{"/tmp/a b.jpg", false, ""},
                      FromStringCase{"/tmp/100%.jpg", false, ""}));

TEST(FileUrl, EncodesWhatAPathMayNotHold) {
  EXPECT_EQ(Url::fileUrlWithPath("/tmp/a b%.jpg").absoluteString(), "file:///tmp/a%20b%25.jpg");
  EXPECT_EQ(Url::fileUrlWithPath("/tmp/a b%.jpg").path(), "/tmp/a b%.jpg");
  EXPECT_TRUE(Url::fileUrlWithPath("/x").isFileUrl());
}

TEST(FileUrl, AppendsEncodedComponents) {
  auto dir = Url::fromString("/tmp/dir/");
  ASSERT_TRUE(dir);
  EXPECT_EQ(dir->appendingPathComponent("a b").absoluteString(), "/tmp/dir/a%20b");
  EXPECT_EQ(dir->appendingPathComponent("sub/x.jpg").absoluteString(), "/tmp/dir/sub/x.jpg");
}

}  // namespace
}  // namespace velqor
