#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "imaging/Resampler.h"
#include "results/ImageGeometry.h"
#include "tests/TestImages.h"

namespace velqor {
namespace {

using namespace testing;
using Corners = std::array<Rgb, 4>;  // top-left, top-right, bottom-left, bottom-right

// How each orientation is drawn upright, and how the correction leaves it.
Corners displayed(int o) {
  switch (o) {
    case ImageOrientation::down: return {kWhite, kBlue, kGreen, kRed};
    case ImageOrientation::right: return {kBlue, kRed, kWhite, kGreen};
    case ImageOrientation::left: return {kGreen, kWhite, kRed, kBlue};
    case ImageOrientation::upMirrored: return {kGreen, kRed, kWhite, kBlue};
    case ImageOrientation::downMirrored: return {kBlue, kWhite, kRed, kGreen};
    case ImageOrientation::leftMirrored: return {kRed, kBlue, kGreen, kWhite};
    case ImageOrientation::rightMirrored: return {kWhite, kGreen, kBlue, kRed};
    default: return {kRed, kGreen, kBlue, kWhite};
  }
}
Corners corrected(int o) {
  switch (o) {
    case ImageOrientation::down: return displayed(o);
    case ImageOrientation::right: return displayed(o);
    case ImageOrientation::left: return displayed(o);
    default: return {kRed, kGreen, kBlue, kWhite};  // mirrors are never mirrored back
  }
}

struct PipelineCase {
  int orientation;
  bool correct;
  std::optional<ImageSize> target;
};
void PrintTo(const PipelineCase& c, std::ostream* os) {
  *os << "o" << c.orientation << (c.correct ? " corrected" : " raw");
  if (c.target) *os << " fit " << c.target->width << "x" << c.target->height;
}

class OrientationAndFit : public ::testing::TestWithParam<PipelineCase> {};

TEST_P(OrientationAndFit, LandsEveryQuadrantWhereTheOrientationSays) {
  const auto& c = GetParam();
  constexpr int W0 = 64, H0 = 32;
  auto image = PlatformImage::fromBitmap(quadrants(W0, H0), c.orientation);
  const bool swapped = c.orientation == 2 || c.orientation == 3 || c.orientation == 6 || c.orientation == 7;
  ImageSize expected = swapped ? ImageSize{H0, W0} : ImageSize{W0, H0};
  Corners corners = c.correct ? corrected(c.orientation) : displayed(c.orientation);
  if (c.correct) {
    image = ImageGeometry::imageCorrectedForCaptureOrientation(*image, c.orientation);
    ASSERT_TRUE(image);
    EXPECT_EQ(image->imageOrientation(), ImageOrientation::up);
  }
  if (c.target) {
    image = ImageGeometry::imageByScalingNotCroppingForSize(*image, *c.target);
    ASSERT_TRUE(image);
    expected = *ImageGeometry::scaledSize(expected, *c.target);
  } else if (!c.correct) {
    // Drawn at its own size: the orientation applied by the drawing alone.
    image = ImageGeometry::imageByScalingNotCroppingForSize(*image, image->size());
  }
  auto bitmap = image->cgImage();
  ASSERT_TRUE(bitmap);
  EXPECT_EQ(bitmap->width, std::lround(expected.width));
  EXPECT_EQ(bitmap->height, std::lround(expected.height));
  const int w = bitmap->width, h = bitmap->height, m = 2;
  EXPECT_TRUE(near(pixel(*bitmap, m, m), corners[0])) << pixel(*bitmap, m, m);
  EXPECT_TRUE(near(pixel(*bitmap, w - 1 - m, m), corners[1])) << pixel(*bitmap, w - 1 - m, m);
  EXPECT_TRUE(near(pixel(*bitmap, m, h - 1 - m), corners[2])) << pixel(*bitmap, m, h - 1 - m);
  EXPECT_TRUE(near(pixel(*bitmap, w - 1 - m, h - 1 - m), corners[3])) << pixel(*bitmap, w - 1 - m, h - 1 - m);
}

std::vector<PipelineCase> allPipelines() {
  std::vector<PipelineCase> out;
  for (int o = 0; o < 8; ++o)
    for (bool correct : {false, true})
      for (std::optional<ImageSize> t : {std::optional<ImageSize>(), std::optional<ImageSize>(ImageSize{24, 24}),
                                         std::optional<ImageSize>(ImageSize{300, 200})})
        out.push_back({o, correct, t});
  return out;
}

INSTANTIATE_TEST_SUITE_P(EveryOrientation, OrientationAndFit, ::testing::ValuesIn(allPipelines()));

struct NetEffectCase {
  int orientation;
  int resultW, resultH;
  // Where stored pixel (i, j) lands.
  std::function<std::pair<int, int>(int i, int j, int W, int H)> lands;
};
void PrintTo(const NetEffectCase& c, std::ostream* os) { *os << "orientation " << c.orientation; }

class CorrectionNetEffect : public ::testing::TestWithParam<NetEffectCase> {};

TEST_P(CorrectionNetEffect, MovesEveryStoredPixelExactly) {
  const auto& c = GetParam();
  constexpr int W = 5, H = 3;
  Bitmap stored = numbered(W, H);
  auto out = ImageGeometry::imageCorrectedForCaptureOrientation(*PlatformImage::fromBitmap(stored, c.orientation),
                                                                c.orientation);
  ASSERT_TRUE(out);
  auto bitmap = out->cgImage();
  ASSERT_EQ(bitmap->width, c.resultW);
  ASSERT_EQ(bitmap->height, c.resultH);
  for (int j = 0; j < H; ++j)
    for (int i = 0; i < W; ++i) {
      auto [x, y] = c.lands(i, j, W, H);
      EXPECT_EQ(pixel(*bitmap, x, y), pixel(stored, i, j)) << "stored (" << i << "," << j << ")";
    }
}

INSTANTIATE_TEST_SUITE_P(
    Table, CorrectionNetEffect,
    ::testing::Values(
        NetEffectCase{0, 5, 3, [](int i, int j, int, int) { return std::pair{i, j}; }},
        NetEffectCase{1, 5, 3, [](int i, int j, int W, int H) { return std::pair{W - 1 - i, H - 1 - j}; }},
        NetEffectCase{3, 3, 5, [](int i, int j, int, int H) { return std::pair{H - 1 - j, i}; }},
        NetEffectCase{2, 3, 5, [](int i, int j, int W, int) { return std::pair{j, W - 1 - i}; }},
        NetEffectCase{4, 5, 3, [](int i, int j, int, int) { return std::pair{i, j}; }},
        NetEffectCase{5, 5, 3, [](int i, int j, int, int) { return std::pair{i, j}; }}));

TEST(CorrectionStretch, MirroredSidewaysOrientationsStretchTheStoredBitmap) {
  for (int o : {ImageOrientation::leftMirrored, ImageOrientation::rightMirrored}) {
    auto out = ImageGeometry::imageCorrectedForCaptureOrientation(*PlatformImage::fromBitmap(quadrants(64, 32), o), o);
    auto bitmap = out->cgImage();
    ASSERT_EQ(bitmap->width, 32);
    ASSERT_EQ(bitmap->height, 64);
    EXPECT_TRUE(near(pixel(*bitmap, 2, 2), kRed));
    EXPECT_TRUE(near(pixel(*bitmap, 29, 61), kWhite));
  }
}

TEST(CorrectionWithoutBitmap, GivesABlankTransparentImageOfTheSize) {
  auto out = ImageGeometry::imageCorrectedForCaptureOrientation(*PlatformImage::withoutBitmap(40, 30, 3), 3);
  ASSERT_TRUE(out);
  auto bitmap = out->cgImage();
  ASSERT_EQ(bitmap->width, 30);
  ASSERT_EQ(bitmap->height, 40);
  EXPECT_TRUE(bitmap->hasTransparency());
  EXPECT_EQ(bitmap->pixels[3], 0);
}

struct FitCase {
  ImageSize source, target, expected;
  int pixelsW, pixelsH;
};
void PrintTo(const FitCase& c, std::ostream* os) {
  *os << c.source.width << "x" << c.source.height << " into " << c.target.width << "x" << c.target.height;
}
class ScaleToFit : public ::testing::TestWithParam<FitCase> {};

TEST_P(ScaleToFit, KeepsAspectAndTouchesTheTarget) {
  const auto& c = GetParam();
  auto size = ImageGeometry::scaledSize(c.source, c.target);
  ASSERT_TRUE(size);
  EXPECT_DOUBLE_EQ(size->width, c.expected.width);
  EXPECT_DOUBLE_EQ(size->height, c.expected.height);
  EXPECT_EQ(ImageGeometry::contextPixels(size->width), c.pixelsW);
  EXPECT_EQ(ImageGeometry::contextPixels(size->height), c.pixelsH);
}

INSTANTIATE_TEST_SUITE_P(
    Sizes, ScaleToFit,
    ::testing::Values(FitCase{{4032, 3024}, {1024, 1024}, {1024, 768}, 1024, 768},
                      FitCase{{3000, 2000}, {1000, 1000}, {1000, 666.6666666666666}, 1000, 667},
                      FitCase{{500, 250}, {1000, 1000}, {1000, 500}, 1000, 500},  // enlarges
                      FitCase{{3024, 4032}, {1024, 1024}, {768, 1024}, 768, 1024},
                      FitCase{{640, 480}, {640, 480}, {640, 480}, 640, 480}));

TEST(ScaleToFitEdges, ZeroSourcesAndZeroTargetsGiveNone) {
  EXPECT_FALSE(ImageGeometry::scaledSize({0, 100}, {50, 50}));
  auto empty = PlatformImage::withoutBitmap(0, 0, 0);
  EXPECT_EQ(ImageGeometry::imageByScalingNotCroppingForSize(*empty, {10, 10}), nullptr);
  auto image = PlatformImage::fromBitmap(quadrants(8, 8));
  EXPECT_EQ(ImageGeometry::imageByScalingNotCroppingForSize(*image, {0.2, 0.2}), nullptr);
}

TEST(Resampling, SolidColourStaysExactAtAnySize) {
  Bitmap solid(37, 23, 3);
  for (size_t k = 0; k < solid.pixels.size(); ++k) solid.pixels[k] = k % 3 == 0 ? 200 : (k % 3 == 1 ? 10 : 99);
  for (auto [w, h] : {std::pair{5, 3}, {100, 60}, {37, 1}, {1, 1}}) {
    Bitmap out = Resampler::resize(solid, w, h);
    ASSERT_EQ(out.width, w);
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w; ++x) EXPECT_EQ(pixel(out, x, y), (Rgb{200, 10, 99}));
  }
}

}  // namespace
}  // namespace velqor
