#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <lcms2.h>

#include <functional>

#include "imaging/codecs/LinuxImageCodec.h"
#include "platform/linux/SampleImages.h"
#include "tests/FormatSamples.h"
#include "tests/TestImages.h"

namespace velqor {
namespace {

using namespace testing;

// The largest colour difference (CIE dE76 in Lab) between two RGB profiles
// over a grid of pixel values: how differently a colour-managed viewer shows
// the same pixels under each.
double largestDifference(const Bytes& a, const Bytes& b) {
  cmsHPROFILE pa = cmsOpenProfileFromMem(a.data(), static_cast<cmsUInt32Number>(a.size()));
  cmsHPROFILE pb = cmsOpenProfileFromMem(b.data(), static_cast<cmsUInt32Number>(b.size()));
  cmsHPROFILE lab = cmsCreateLab4Profile(nullptr);
  if (!pa || !pb) return 1e9;
  cmsHTRANSFORM ta = cmsCreateTransform(pa, TYPE_RGB_8, lab, TYPE_Lab_DBL, INTENT_RELATIVE_COLORIMETRIC, 0);
  cmsHTRANSFORM tb = cmsCreateTransform(pb, TYPE_RGB_8, lab, TYPE_Lab_DBL, INTENT_RELATIVE_COLORIMETRIC, 0);
  double worst = 0;
  for (int r = 0; r <= 255; r += 51)
    for (int g = 0; g <= 255; g += 51)
      for (int bl = 0; bl <= 255; bl += 51) {
        const std::uint8_t rgb[3] = {static_cast<std::uint8_t>(r), static_cast<std::uint8_t>(g), static_cast<std::uint8_t>(bl)};
        cmsCIELab la, lb;
        cmsDoTransform(ta, rgb, &la, 1);
        cmsDoTransform(tb, rgb, &lb, 1);
        worst = std::max(worst, cmsDeltaE(&la, &lb));
      }
  cmsDeleteTransform(ta);
  cmsDeleteTransform(tb);
  cmsCloseProfile(pa);
  cmsCloseProfile(pb);
  cmsCloseProfile(lab);
  return worst;
}

Bytes srgbProfile() {
  cmsHPROFILE p = cmsCreate_sRGBProfile();
  cmsUInt32Number size = 0;
  cmsSaveProfileToMem(p, nullptr, &size);
  Bytes out(size);
  cmsSaveProfileToMem(p, out.data(), &size);
  cmsCloseProfile(p);
  return out;
}

// A profile whose header says its data is CMYK: no description of RGB pixels.
Bytes cmykLabelledProfile() {
  Bytes p = FormatSamples::adobeRgbProfile();
  std::copy_n("CMYK", 4, p.begin() + 16);
  return p;
}

struct ProfileCase {
  const char* name;
  std::function<Bytes()> source;
  enum Expect { same, looksLike, none } expect;
  std::function<Bytes()> reference;  // the profile the output must equal, or look like
};
void PrintTo(const ProfileCase& c, std::ostream* os) { *os << c.name; }

const Bitmap& picture() {
  static const Bitmap scene = SampleImages::scene(96, 64);
  return scene;
}

class ColourProfiles : public ::testing::TestWithParam<std::tuple<ProfileCase, bool>> {};

TEST_P(ColourProfiles, ComeThroughBothRepresentationsUnchanged) {
  const auto& [c, png] = GetParam();
  const Bytes source = c.source();
  if (source.empty()) GTEST_SKIP() << "this libheif cannot encode HEVC to make the sample";
  LinuxImageCodec codec;
  auto image = codec.imageWithData(std::make_shared<const Bytes>(source));
  ASSERT_TRUE(image);
  auto encoded = png ? codec.pngRepresentation(*image) : codec.jpegRepresentation(*image, 0.9);
  ASSERT_TRUE(encoded);
  const Bytes profile = FormatSamples::profileOf(*encoded);
  switch (c.expect) {
    case ProfileCase::same: EXPECT_EQ(profile, c.reference()); break;
    case ProfileCase::looksLike:
      ASSERT_FALSE(profile.empty());
      EXPECT_LT(largestDifference(profile, c.reference()), 1.0);
      break;
    case ProfileCase::none: EXPECT_TRUE(profile.empty()) << profile.size() << " bytes of profile"; break;
  }
  // The pixel values are kept as well, so the picture looks as its source did.
  auto before = image->pixels();
  auto after = codec.imageWithData(std::make_shared<const Bytes>(*encoded))->pixels();
  ASSERT_TRUE(before.ok() && after.ok());
  EXPECT_GE(psnr(*before, *after), png ? 99.0 : 34.0);
}

INSTANTIATE_TEST_SUITE_P(
    Sources, ColourProfiles,
    ::testing::Combine(
        ::testing::Values(
            ProfileCase{"adobeRgbJpeg",
                        [] { return FormatSamples::cameraJpegWithProfile(picture(), 95, FormatSamples::adobeRgbProfile(), 1); },
                        ProfileCase::same, FormatSamples::adobeRgbProfile},
            ProfileCase{"displayP3Png", [] { return FormatSamples::pngWithProfile(picture(), FormatSamples::displayP3Profile()); },
                        ProfileCase::same, FormatSamples::displayP3Profile},
            ProfileCase{"heicWithIccBox", [] { return FormatSamples::heic(picture(), FormatSamples::adobeRgbProfile()); },
                        ProfileCase::same, FormatSamples::adobeRgbProfile},
            ProfileCase{"heicNclxDisplayP3", [] { return FormatSamples::heic(picture(), {}, 12, 13); },
                        ProfileCase::looksLike, FormatSamples::displayP3Profile},
            ProfileCase{"heicNclxSrgb", [] { return FormatSamples::heic(picture(), {}, 1, 13); }, ProfileCase::looksLike,
                        srgbProfile},
            ProfileCase{"heicNclxPerceptualQuantizer", [] { return FormatSamples::heic(picture(), {}, 9, 16); },
                        ProfileCase::none, nullptr},
            ProfileCase{"jpegWithoutProfile",
                        [] { return FormatSamples::cameraJpegWithProfile(picture(), 95, {}, 1); }, ProfileCase::none,
                        nullptr},
            ProfileCase{"cmykProfileOnAnRgbJpeg",
                        [] { return FormatSamples::cameraJpegWithProfile(picture(), 95, cmykLabelledProfile(), 1); },
                        ProfileCase::none, nullptr}),
        ::testing::Bool()),
    [](const auto& info) {
      return std::string(std::get<0>(info.param).name) + (std::get<1>(info.param) ? "ToPng" : "ToJpeg");
    });

}  // namespace
}  // namespace velqor
