#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "host/FileBytes.h"
#include "imaging/codecs/BmpCodec.h"
#include "imaging/codecs/PngCodec.h"

// The generated BMP set (scripts/make-bmp-set.py writes tests/data/bmp): each
// header version, depth, compression and row order, judged against the pixels
// Pillow decodes from the same file, or, where Pillow refuses a layout, the
// pixels the file was made from; the broken ones must be refused.
namespace velqor {
namespace {

using ::testing::HasSubstr;

const std::string kSetDir = std::string(VELQOR_SOURCE_DIR) + "/tests/data/bmp/";

struct SetFile {
  std::string name;
  std::string judge;  // "pillow", "source" or "broken"
};
void PrintTo(const SetFile& f, std::ostream* os) { *os << f.name << " (" << f.judge << ")"; }

std::vector<SetFile> manifest() {
  std::vector<SetFile> out;
  std::ifstream in(kSetDir + "manifest.txt");
  for (std::string line; std::getline(in, line);) {
    std::istringstream words(line);
    SetFile f;
    if (words >> f.name >> f.judge) out.push_back(f);
  }
  return out;
}

std::shared_ptr<const Bytes> load(const std::string& file) {
  auto bytes = FileBytes::read(kSetDir + file);
  EXPECT_TRUE(bytes.ok()) << file << ": " << bytes.status();
  return std::make_shared<const Bytes>(bytes.ok() ? std::move(*bytes) : Bytes{});
}

// RGBA of any decoded bitmap, opaque where it has no alpha.
std::vector<std::uint8_t> rgba(const Bitmap& b) {
  std::vector<std::uint8_t> out;
  for (size_t p = 0; p < b.pixels.size(); p += static_cast<size_t>(b.channels)) {
    out.insert(out.end(), b.pixels.begin() + static_cast<long>(p), b.pixels.begin() + static_cast<long>(p) + 3);
    out.push_back(b.channels == 4 ? b.pixels[p + 3] : 255);
  }
  return out;
}

class GeneratedBmpSet : public ::testing::TestWithParam<SetFile> {};

TEST(GeneratedBmpSetManifest, CoversEveryKind) {
  const auto files = manifest();
  int pillow = 0, source = 0, broken = 0;
  for (const auto& f : files) (f.judge == "pillow" ? pillow : f.judge == "source" ? source : broken)++;
  EXPECT_GE(pillow, 60);
  EXPECT_GE(source, 30);
  EXPECT_GE(broken, 8);
}

TEST_P(GeneratedBmpSet, DecodesToTheSamePixelsOrIsRefused) {
  const SetFile& f = GetParam();
  auto source = BmpCodec::source(load(f.name + ".bmp"), DecodeLimits{});
  if (f.judge == "broken") {
    ASSERT_FALSE(source.ok()) << f.name << " was accepted";
    EXPECT_THAT(source.status().message(), HasSubstr("cannot decode"));
    return;
  }
  ASSERT_TRUE(source.ok()) << source.status();
  ASSERT_TRUE((*source)->checkPixels().ok());
  auto ours = (*source)->decode(1, 1);
  ASSERT_TRUE(ours.ok()) << ours.status();
  auto expectedSource = PngCodec::source(load(f.name + ".png"), DecodeLimits{});
  ASSERT_TRUE(expectedSource.ok());
  auto expected = (*expectedSource)->decode(1, 1);
  ASSERT_TRUE(expected.ok());
  ASSERT_EQ(ours->width, expected->width);
  ASSERT_EQ(ours->height, expected->height);
  const auto got = rgba(*ours), want = rgba(*expected);
  for (size_t i = 0; i < want.size(); i += 4) {
    const int x = static_cast<int>(i / 4) % expected->width, y = static_cast<int>(i / 4) / expected->width;
    ASSERT_TRUE(std::equal(want.begin() + static_cast<long>(i), want.begin() + static_cast<long>(i) + 4,
                           got.begin() + static_cast<long>(i)))
        << "at " << x << "," << y << ": " << +got[i] << "," << +got[i + 1] << "," << +got[i + 2] << "," << +got[i + 3]
        << " instead of " << +want[i] << "," << +want[i + 1] << "," << +want[i + 2] << "," << +want[i + 3];
  }
}

INSTANTIATE_TEST_SUITE_P(Files, GeneratedBmpSet, ::testing::ValuesIn(manifest()), [](const auto& info) {
  std::string name = info.param.name;
  std::replace(name.begin(), name.end(), '-', '_');
  return name;
});

}  // namespace
}  // namespace velqor
