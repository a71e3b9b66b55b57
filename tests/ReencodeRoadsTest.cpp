#include <gtest/gtest.h>

#include "imaging/PermutedRowStream.h"
#include "imaging/Resampler.h"
#include "imaging/codecs/JpegCodec.h"
#include "imaging/jpeg/JpegDecompression.h"
#include "imaging/jpeg/JpegReencoder.h"
#include "imaging/codecs/LinuxImageCodec.h"
#include "imaging/codecs/PngCodec.h"
#include "platform/linux/SampleImages.h"
#include "tests/FormatSamples.h"
#include "tests/TestImages.h"

namespace velqor {
namespace {

using testing::psnr;

Bitmap decodeWhole(const Bytes& encoded) {
  auto source = JpegCodec::looksLike(encoded) ? JpegCodec::source(std::make_shared<const Bytes>(encoded), {})
                                              : PngCodec::source(std::make_shared<const Bytes>(encoded), {});
  if (!source.ok()) return {};
  auto pixels = (*source)->decode((*source)->width(), (*source)->height());
  return pixels.ok() ? std::move(*pixels) : Bitmap{};
}

// What a JPEG file says about itself: size, luma sampling, luma quantization.
struct JpegFacts {
  int width = 0, height = 0, lumaH = 0, lumaV = 0;
  std::vector<int> lumaTable;
  friend bool operator==(const JpegFacts&, const JpegFacts&) = default;
};

bool readFacts(JpegDecompression& d, const Bytes& jpeg) {
  if (setjmp(d.errors.jump)) return false;
  d.open(jpeg);
  return true;
}

JpegFacts factsOf(const Bytes& jpeg) {
  JpegFacts f;
  JpegDecompression d;
  if (!readFacts(d, jpeg)) return f;
  f.width = static_cast<int>(d.info.image_width);
  f.height = static_cast<int>(d.info.image_height);
  f.lumaH = d.info.comp_info[0].h_samp_factor;
  f.lumaV = d.info.comp_info[0].v_samp_factor;
  if (const JQUANT_TBL* t = d.info.quant_tbl_ptrs[0]) f.lumaTable.assign(t->quantval, t->quantval + DCTSIZE2);
  return f;
}

enum class Road { coefficients, scanlines, permuted, wholeBitmap };

struct RoadCase {
  const char* name;
  int width, height;
  int sourceQuality, targetQuality;  // 90 and up keep 4:4:4 chroma, below 4:2:0
  Dihedral transform;
  Road expected;
};

class JpegReencodeRoads : public ::testing::TestWithParam<RoadCase> {};

// Each road writes what a full decode and encode would: the same size,
// sampling and tables, at a quality within 0.3 dB of that file or better.
TEST_P(JpegReencodeRoads, MatchTheWholeBitmapRoadWithinAThirdOfADecibel) {
  const RoadCase& c = GetParam();
  auto source = JpegCodec::encode(SampleImages::scene(c.width, c.height), c.sourceQuality / 100.0);
  ASSERT_TRUE(source.ok());
  const Bitmap reference = applyDihedral(decodeWhole(*source), c.transform);
  auto wholeBitmap = JpegCodec::encode(reference, c.targetQuality / 100.0);
  ASSERT_TRUE(wholeBitmap.ok());

  auto out = JpegReencoder::reencode(*source, {c.targetQuality, c.transform, {}, nullptr}, DecodeLimits{});
  if (c.expected == Road::wholeBitmap) {
    EXPECT_FALSE(out.ok()) << "a road took a file only a full decode may";
    return;
  }
  ASSERT_TRUE(out.ok()) << out.status().message();
  EXPECT_EQ(out->road, c.expected == Road::coefficients ? JpegReencoder::Road::coefficients
                       : c.expected == Road::permuted   ? JpegReencoder::Road::permutedScanlines
                                                        : JpegReencoder::Road::scanlines);
  EXPECT_EQ(factsOf(out->bytes), factsOf(*wholeBitmap));
  const Bitmap fast = decodeWhole(out->bytes), slow = decodeWhole(*wholeBitmap);
  ASSERT_EQ(fast.width, reference.width);
  ASSERT_EQ(fast.height, reference.height);
  const double fastDb = psnr(fast, reference), slowDb = psnr(slow, reference);
  EXPECT_GE(fastDb, slowDb - 0.3) << "fast " << fastDb << " dB, whole bitmap " << slowDb << " dB";
}

// A road writing into a sink hands over exactly the file it would return, a
// step at a time; a sink that refuses stops the road with that failure.
TEST_P(JpegReencodeRoads, StreamTheSameFileIntoASink) {
  const RoadCase& c = GetParam();
  if (c.expected == Road::wholeBitmap) GTEST_SKIP() << "no road takes this file";
  auto source = JpegCodec::encode(SampleImages::scene(c.width, c.height), c.sourceQuality / 100.0);
  ASSERT_TRUE(source.ok());
  auto inMemory = JpegReencoder::reencode(*source, {c.targetQuality, c.transform, {}, nullptr}, DecodeLimits{});
  ASSERT_TRUE(inMemory.ok()) << inMemory.status().message();

  Bytes streamed;
  int handOvers = 0;
  ByteSink keep = [&](const std::uint8_t* data, size_t size) {
    streamed.insert(streamed.end(), data, data + size);
    ++handOvers;
    return true;
  };
  auto out = JpegReencoder::reencode(*source, {c.targetQuality, c.transform, {}, nullptr, &keep}, DecodeLimits{});
  ASSERT_TRUE(out.ok()) << out.status().message();
  EXPECT_EQ(out->road, inMemory->road);
  EXPECT_TRUE(out->bytes.empty()) << "the file went to the sink, not into memory";
  EXPECT_EQ(streamed, inMemory->bytes);
  EXPECT_GE(handOvers, 1);

  int offered = 0;
  ByteSink refuse = [&](const std::uint8_t*, size_t) { return ++offered, false; };
  auto refused = JpegReencoder::reencode(*source, {c.targetQuality, c.transform, {}, nullptr, &refuse}, DecodeLimits{});
  ASSERT_FALSE(refused.ok());
  EXPECT_EQ(refused.status().code(), Status::Code::unavailable) << refused.status().message();
  EXPECT_EQ(offered, 1) << "nothing more is offered once the sink said no";
}

INSTANTIATE_TEST_SUITE_P(
    QualitiesAndTurns, JpegReencodeRoads,
    ::testing::Values(
        RoadCase{"cameraToDefault", 640, 480, 93, 50, Dihedral::identity, Road::scanlines},
        RoadCase{"cameraToFull", 640, 480, 93, 100, Dihedral::identity, Road::coefficients},
        RoadCase{"cameraTurnedToFull", 640, 480, 93, 100, Dihedral::rotate90, Road::coefficients},
        RoadCase{"cameraTurnedToCoarser", 640, 480, 95, 91, Dihedral::rotate270, Road::coefficients},
        RoadCase{"subsampledToDefault", 640, 480, 75, 50, Dihedral::identity, Road::coefficients},
        RoadCase{"subsampledToFiner", 640, 480, 50, 85, Dihedral::identity, Road::scanlines},
        RoadCase{"subsampledTurnedToFiner", 640, 480, 50, 85, Dihedral::rotate90, Road::permuted},
        RoadCase{"cameraToFiner", 640, 480, 90, 97, Dihedral::identity, Road::scanlines},
        RoadCase{"subsampledUpsideDown", 640, 480, 75, 50, Dihedral::rotate180, Road::coefficients},
        RoadCase{"subsampledMirroredTurn", 640, 480, 75, 40, Dihedral::transverse, Road::coefficients},
        RoadCase{"subsampledMirror", 640, 480, 75, 60, Dihedral::flipHorizontal, Road::coefficients},
        RoadCase{"oddSizeKept", 643, 481, 75, 50, Dihedral::identity, Road::coefficients},
        RoadCase{"oddSizeTurned", 643, 481, 75, 50, Dihedral::rotate90, Road::permuted},
        RoadCase{"subsampledToFullChroma", 640, 480, 75, 95, Dihedral::identity, Road::scanlines},
        RoadCase{"turnWithNewSampling", 640, 480, 93, 50, Dihedral::rotate90, Road::permuted}),
    [](const auto& info) { return std::string(info.param.name); });

// Rows permuted through the scratch file, in bands far smaller than the
// image, land exactly where the whole-bitmap permutation puts them.
class BitmapRows final : public RowStream {
 public:
  explicit BitmapRows(const Bitmap& b) : b_(b) {}
  int width() const override { return b_.width; }
  int height() const override { return b_.height; }
  Layout layout() const override { return b_.channels == 4 ? Layout::rgba : b_.channels == 1 ? Layout::grey : Layout::rgb; }
  bool read(std::uint8_t* out, int rows) override {
    std::copy_n(b_.row(next_), b_.stride() * static_cast<size_t>(rows), out);
    next_ += rows;
    return true;
  }
  Status status() const override { return Status::okStatus(); }

 private:
  const Bitmap& b_;
  int next_ = 0;
};

class PermutedRows : public ::testing::TestWithParam<Dihedral> {};

TEST_P(PermutedRows, EqualTheWholeBitmapPermutation) {
  Bitmap source = SampleImages::scene(97, 61);
  for (size_t i = 0; i < source.pixels.size(); ++i) source.pixels[i] = static_cast<std::uint8_t>(source.pixels[i] ^ (i * 7));
  const Bitmap expected = applyDihedral(source, GetParam());
  PermutedRowStream rows(std::make_unique<BitmapRows>(source), GetParam(), /*bandBytes=*/97 * 3 * 5);
  ASSERT_EQ(rows.width(), expected.width);
  ASSERT_EQ(rows.height(), expected.height);
  Bitmap got(expected.width, expected.height, 3);
  // Uneven reads, as the pumps ask: 7 rows, then the rest.
  ASSERT_TRUE(rows.read(got.row(0), 7)) << rows.status().message();
  ASSERT_TRUE(rows.read(got.row(7), got.height - 7)) << rows.status().message();
  EXPECT_EQ(got.pixels, expected.pixels);
  EXPECT_FALSE(rows.read(got.row(0), 1)) << "no rows past the end";
}

INSTANTIATE_TEST_SUITE_P(EveryTransform, PermutedRows,
                         ::testing::Values(Dihedral::identity, Dihedral::rotate90, Dihedral::rotate180,
                                           Dihedral::rotate270, Dihedral::flipHorizontal, Dihedral::flipVertical,
                                           Dihedral::transpose, Dihedral::transverse));

// What the codec's JPEG representation keeps whichever road it takes: the
// orientation as a tag (or applied), the colour profile byte for byte.
struct KeptCase {
  const char* name;
  int quality;
  bool corrected;
};

class ReencodedCameraPhotos : public ::testing::TestWithParam<KeptCase> {};

TEST_P(ReencodedCameraPhotos, KeepTheOrientationTagAndTheProfile) {
  const KeptCase& c = GetParam();
  const Bytes profile = testing::FormatSamples::adobeRgbProfile();
  const Bitmap stored = SampleImages::scene(320, 240);
  const Bytes camera = testing::FormatSamples::cameraJpegWithProfile(stored, 93, profile, 6);
  LinuxImageCodec codec;
  auto image = codec.imageWithData(std::make_shared<const Bytes>(camera));
  ASSERT_TRUE(image);
  if (c.corrected) image = image->drawn(Dihedral::rotate90, 240, 320, ImageOrientation::up);
  auto out = codec.jpegRepresentation(*image, c.quality / 100.0);
  ASSERT_TRUE(out);
  EXPECT_EQ(testing::FormatSamples::orientationTagOf(*out), c.corrected ? 0 : 6);  // 0: no tag
  EXPECT_EQ(testing::FormatSamples::profileOf(*out), profile);
  const Bitmap pixels = decodeWhole(*out);
  const Bitmap expected = applyDihedral(decodeWhole(camera), c.corrected ? Dihedral::rotate90 : Dihedral::identity);
  ASSERT_EQ(pixels.width, expected.width);
  EXPECT_GT(psnr(pixels, expected), c.quality >= 90 ? 40.0 : 30.0);
}

INSTANTIATE_TEST_SUITE_P(Roads, ReencodedCameraPhotos,
                         ::testing::Values(KeptCase{"storedAtDefault", 50, false}, KeptCase{"storedAtFull", 100, false},
                                           KeptCase{"uprightAtFull", 100, true}, KeptCase{"uprightAtDefault", 50, true}),
                         [](const auto& info) { return std::string(info.param.name); });

// A PNG fitted as its rows arrive gives the very pixels of a whole decode
// resized afterwards, and the same refusal when its data is damaged.
struct RowsCase {
  const char* name;
  int width, height, outWidth, outHeight;
  bool transparent;
};

Bitmap withAlpha(Bitmap b) {
  for (int y = 0; y < b.height; ++y)
    for (int x = 0; x < b.width; ++x) b.row(y)[x * 4 + 3] = static_cast<std::uint8_t>((x * 7 + y * 3) % 256);
  return b;
}

class PngRowsResized : public ::testing::TestWithParam<RowsCase> {};

TEST_P(PngRowsResized, EqualTheWholeBitmapResizedByteForByte) {
  const RowsCase& c = GetParam();
  Bitmap picture = c.transparent ? withAlpha(testing::numbered(c.width, c.height)) : SampleImages::scene(c.width, c.height);
  auto png = PngCodec::encode(picture);
  ASSERT_TRUE(png.ok());
  auto source = PngCodec::source(std::make_shared<const Bytes>(*png), {});
  ASSERT_TRUE(source.ok());
  auto rows = (*source)->decodeResized(0, 0, c.outWidth, c.outHeight);
  auto whole = (*source)->ImageSource::decodeResized(0, 0, c.outWidth, c.outHeight);
  ASSERT_TRUE(rows.ok()) << rows.status().message();
  ASSERT_TRUE(whole.ok());
  EXPECT_EQ(rows->width, c.outWidth);
  EXPECT_EQ(rows->height, c.outHeight);
  EXPECT_EQ(rows->channels, whole->channels);
  EXPECT_TRUE(rows->pixels == whole->pixels) << "the rows differ from the whole-bitmap resize";
}

TEST_P(PngRowsResized, RefuseDamagedDataLikeAWholeDecode) {
  const RowsCase& c = GetParam();
  auto png = PngCodec::encode(SampleImages::scene(c.width, c.height));
  ASSERT_TRUE(png.ok());
  Bytes cut(png->begin(), png->begin() + static_cast<long>(png->size() * 2 / 3));
  auto source = PngCodec::source(std::make_shared<const Bytes>(cut), {});
  ASSERT_TRUE(source.ok());
  auto rows = (*source)->decodeResized(0, 0, c.outWidth, c.outHeight);
  auto whole = (*source)->decode(c.width, c.height);
  ASSERT_FALSE(whole.ok());
  ASSERT_FALSE(rows.ok());
  EXPECT_EQ(rows.status().message(), whole.status().message());
}

INSTANTIATE_TEST_SUITE_P(
    Sizes, PngRowsResized,
    ::testing::Values(RowsCase{"photoToFit", 403, 302, 102, 77, false}, RowsCase{"keepsWidth", 120, 90, 120, 31, false},
                      RowsCase{"toOneRow", 200, 9, 67, 1, false}, RowsCase{"widensWhileShrinking", 50, 200, 80, 100, false},
                      RowsCase{"transparent", 96, 64, 40, 27, true}, RowsCase{"tallStrip", 64, 1000, 16, 250, false}),
    [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace velqor
