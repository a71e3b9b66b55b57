#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <spng.h>
#include <turbojpeg.h>

#include <chrono>

#include "host/FileBytes.h"
#include "imaging/Resampler.h"
#include "imaging/codecs/HeifCodec.h"
#include "imaging/metadata/ImageMetadata.h"
#include "imaging/codecs/JpegCodec.h"
#include "imaging/codecs/LinuxImageCodec.h"
#include "imaging/codecs/PngCodec.h"
#include "platform/linux/SampleImages.h"
#include "results/ImageGeometry.h"
#include "tests/TestImages.h"

namespace velqor {
namespace {

using namespace testing;

std::shared_ptr<const Bytes> shared(Bytes b) { return std::make_shared<const Bytes>(std::move(b)); }

TEST(ImageFromData, TakesItsOrientationFromTheExifTag) {
  LinuxImageCodec codec;
  for (auto [tag, expected] : {std::pair{1, 0}, {3, 1}, {6, 3}, {8, 2}, {2, 4}, {4, 5}, {5, 6}, {7, 7}, {9, 0}}) {
    auto jpeg = *JpegCodec::encode(quadrants(40, 20, 3), 0.9);
    auto tagged = ImageMetadata::write(jpeg, Dictionary{{"Orientation", Value(tag)}});
    ASSERT_TRUE(tagged.ok()) << tagged.status();
    auto image = codec.imageWithData(shared(*tagged));
    ASSERT_TRUE(image);
    EXPECT_EQ(image->imageOrientation(), expected) << "tag " << tag;
    EXPECT_EQ(image->storedWidth(), 40);
    const bool sideways = expected == 2 || expected == 3 || expected == 6 || expected == 7;
    EXPECT_EQ(image->size(), sideways ? (ImageSize{20, 40}) : (ImageSize{40, 20}));
  }
}

TEST(ImageFromData, TheBytesDecideTheTypeNotTheName) {
  LinuxImageCodec codec;
  auto png = *PngCodec::encode(quadrants(16, 8));
  auto image = codec.imageWithData(shared(png));
  ASSERT_TRUE(image);
  EXPECT_EQ(image->sourceTypeName(), "png");
  EXPECT_EQ(codec.containerType(png), "public.png");
  auto bitmap = image->cgImage();
  EXPECT_EQ(pixel(*bitmap, 15, 7), kWhite);
}

TEST(PngRepresentation, KeepsAlphaOnlyWhenAPixelUsesIt) {
  LinuxImageCodec codec;
  Bitmap opaque = quadrants(8, 8);
  Bitmap translucent = opaque;
  translucent.pixels[3] = 10;
  auto a = codec.pngRepresentation(*PlatformImage::fromBitmap(opaque));
  auto b = codec.pngRepresentation(*PlatformImage::fromBitmap(translucent));
  auto decodedA = codec.imageWithData(shared(*a))->cgImage();
  auto decodedB = codec.imageWithData(shared(*b))->cgImage();
  EXPECT_FALSE(decodedA->hasTransparency());
  EXPECT_TRUE(decodedB->hasTransparency());
  EXPECT_EQ(decodedB->pixels[3], 10);
  EXPECT_EQ(pixel(*decodedA, 7, 7), kWhite);  // lossless
}

TEST(JpegQuality, MapsTheFractionToLibjpegQualityClamped) {
  EXPECT_EQ(JpegCodec::libjpegQuality(0.5), 50);
  EXPECT_EQ(JpegCodec::libjpegQuality(1.0), 100);
  EXPECT_EQ(JpegCodec::libjpegQuality(1.5), 100);
  EXPECT_EQ(JpegCodec::libjpegQuality(-3), 1);
  EXPECT_EQ(JpegCodec::libjpegQuality(0.0), 1);
  EXPECT_EQ(JpegCodec::libjpegQuality(std::nan("")), 100);
  Bitmap scene = SampleImages::scene(256, 192);
  auto low = JpegCodec::encode(scene, 0.1), high = JpegCodec::encode(scene, 0.95);
  EXPECT_LT(low->size(), high->size());
}

TEST(ShrinkOnLoad, MatchesAFullDecodeAndResampleWithin40dB) {
  LinuxImageCodec codec;
  auto jpeg = shared(*SampleImages::cameraJpeg(2016, 1512, 6, 93));
  auto image = codec.imageWithData(jpeg);
  auto upright = ImageGeometry::imageCorrectedForCaptureOrientation(*image, image->imageOrientation());
  auto fast = ImageGeometry::imageByScalingNotCroppingForSize(*upright, {512, 512})->cgImage();
  ASSERT_TRUE(fast);
  EXPECT_EQ(fast->width, 384);
  EXPECT_EQ(fast->height, 512);
  // Reference: every pixel decoded, rotated, then resampled once.
  auto full = *(*JpegCodec::source(jpeg, DecodeLimits{}))->decode(2016, 1512);
  EXPECT_EQ(full.width, 2016);
  Bitmap reference = Resampler::resize(applyDihedral(full, Dihedral::rotate90), 384, 512);
  EXPECT_GE(psnr(*fast, reference), 40.0);
}

// A tiny baseline JPEG whose frame header claims another size.
Bytes jpegClaiming(int width, int height) {
  Bytes jpeg = *JpegCodec::encode(quadrants(16, 16, 3), 0.8);
  for (size_t i = 0; i + 8 < jpeg.size(); ++i) {
    if (jpeg[i] == 0xFF && (jpeg[i + 1] == 0xC0 || jpeg[i + 1] == 0xC2)) {
      jpeg[i + 5] = static_cast<std::uint8_t>(height >> 8);
      jpeg[i + 6] = static_cast<std::uint8_t>(height & 0xFF);
      jpeg[i + 7] = static_cast<std::uint8_t>(width >> 8);
      jpeg[i + 8] = static_cast<std::uint8_t>(width & 0xFF);
      break;
    }
  }
  return jpeg;
}

Bytes cmykJpeg() {
  Bitmap cmyk(16, 16, 4);
  for (size_t k = 0; k < cmyk.pixels.size(); k += 4) {
    // Stored inverted, as Adobe writes them: 255 is no ink.
    cmyk.pixels[k] = 200, cmyk.pixels[k + 1] = 100, cmyk.pixels[k + 2] = 50, cmyk.pixels[k + 3] = 128;
  }
  tjhandle h = tjInitCompress();
  unsigned char* out = nullptr;
  unsigned long size = 0;
  tjCompress2(h, cmyk.pixels.data(), 16, 0, 16, TJPF_CMYK, &out, &size, TJSAMP_444, 90, 0);
  Bytes bytes(out, out + size);
  tjFree(out);
  tjDestroy(h);
  return bytes;
}

Bytes sixteenBitPng() {
  spng_ctx* ctx = spng_ctx_new(SPNG_CTX_ENCODER);
  spng_set_option(ctx, SPNG_ENCODE_TO_BUFFER, 1);
  spng_ihdr ihdr{};
  ihdr.width = 4;
  ihdr.height = 4;
  ihdr.bit_depth = 16;
  ihdr.color_type = SPNG_COLOR_TYPE_TRUECOLOR;
  spng_set_ihdr(ctx, &ihdr);
  std::vector<std::uint8_t> pixels(4 * 4 * 6, 0xFF);
  spng_encode_image(ctx, pixels.data(), pixels.size(), SPNG_FMT_PNG, SPNG_ENCODE_FINALIZE);
  size_t size = 0;
  int err = 0;
  auto* buf = static_cast<std::uint8_t*>(spng_get_png_buffer(ctx, &size, &err));
  Bytes out(buf, buf + size);
  std::free(buf);
  spng_ctx_free(ctx);
  return out;
}

struct HostileCase {
  const char* name;
  std::function<Bytes()> make;
  bool decodes;
  const char* messagePart;  // for the ones that do not
};
void PrintTo(const HostileCase& c, std::ostream* os) { *os << c.name; }

class HostileImages : public ::testing::TestWithParam<HostileCase> {};

TEST_P(HostileImages, DecodeCorrectlyOrSayWhyQuickly) {
  const auto& c = GetParam();
  LinuxImageCodec codec;
  Bytes bytes = c.make();
  auto start = std::chrono::steady_clock::now();
  Status probe = codec.probe(bytes);
  auto image = codec.imageWithData(shared(bytes));
  std::optional<Bitmap> pixels = image ? image->cgImage() : std::nullopt;
  auto elapsed = std::chrono::steady_clock::now() - start;
  EXPECT_LT(elapsed, std::chrono::milliseconds(900));
  EXPECT_EQ(probe.ok(), c.decodes) << probe;
  EXPECT_EQ(pixels.has_value(), c.decodes);
  if (!c.decodes) {
    EXPECT_THAT(probe.message(), ::testing::HasSubstr(c.messagePart));
  }
}

INSTANTIATE_TEST_SUITE_P(
    Files, HostileImages,
    ::testing::Values(
        HostileCase{"zeroBytes", [] { return Bytes{}; }, false, "cannot decode"},
        HostileCase{"hugeJpegHeader", [] { return jpegClaiming(65500, 65500); }, false, "cannot decode"},
        HostileCase{"randomBytes", [] { return Bytes(4096, 0x5A); }, false, "cannot decode"},
        HostileCase{"jpegMagicOnly", [] { return Bytes{0xFF, 0xD8, 0xFF}; }, false, "cannot decode"},
        HostileCase{"truncatedJpeg", [] {
                      Bytes b = *JpegCodec::encode(SampleImages::scene(64, 64), 0.9);
                      b.resize(b.size() / 2);
                      return b;
                    }, true, ""},
        HostileCase{"truncatedPng", [] {
                      Bytes b = *PngCodec::encode(SampleImages::scene(64, 64));
                      b.resize(b.size() / 2);
                      return b;
                    }, false, "cannot decode"},
        HostileCase{"pngBadCrc", [] {
                      Bytes b = *PngCodec::encode(quadrants(8, 8));
                      b[29] ^= 0xFF;  // inside IHDR's CRC
                      return b;
                    }, false, "cannot decode"},
        HostileCase{"cmykJpeg", cmykJpeg, true, ""},
        HostileCase{"sixteenBitPng", sixteenBitPng, true, ""},
        HostileCase{"hugeExifBlock", [] {
                      Bytes jpeg = *JpegCodec::encode(quadrants(16, 16, 3), 0.8);
                      auto tagged = ImageMetadata::write(
                          jpeg, Dictionary{{"{TIFF}", Value(Dictionary{{"ImageDescription", Value(std::string(60000, 'x'))}})}});
                      return tagged.ok() ? *tagged : jpeg;
                    }, true, ""}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(CmykJpeg, ComesOutAsTheRgbItsInksMake) {
  LinuxImageCodec codec;
  auto bitmap = codec.imageWithData(shared(cmykJpeg()))->cgImage();
  ASSERT_TRUE(bitmap);
  ASSERT_EQ(bitmap->channels, 3);
  // Each channel is the inverted ink times the inverted black: 200 x 128 / 255 ...
  for (auto [x, y] : {std::pair{0, 0}, std::pair{15, 15}, std::pair{7, 9}})
    EXPECT_TRUE(near(pixel(*bitmap, x, y), Rgb{100, 50, 25}, 3)) << pixel(*bitmap, x, y);
}

struct GpsCase {
  const char* name;
  Dictionary gps;
  double latitude, longitude;
  std::optional<double> altitude;
  const char* time;
  const char* date;
};
void PrintTo(const GpsCase& c, std::ostream* os) { *os << c.name; }

class GpsRoundTrip : public ::testing::TestWithParam<GpsCase> {};

TEST_P(GpsRoundTrip, ComesBackWithinTheTypesPrecision) {
  const auto& c = GetParam();
  Bytes jpeg = *JpegCodec::encode(quadrants(16, 16, 3), 0.8);
  Dictionary camera = SampleImages::cameraProperties(1);
  camera["{GPS}"] = Value(c.gps);
  auto written = ImageMetadata::write(jpeg, camera);
  ASSERT_TRUE(written.ok()) << written.status();
  auto read = ImageMetadata::read(*written);
  ASSERT_TRUE(read.ok());
  const Dictionary& gps = *find(*read, "{GPS}")->asDictionary();
  EXPECT_NEAR(*find(gps, "Latitude")->asFloat(), c.latitude, 1e-7);
  EXPECT_NEAR(*find(gps, "Longitude")->asFloat(), c.longitude, 1e-7);
  EXPECT_EQ(*find(gps, "LatitudeRef")->asString(), *find(c.gps, "LatitudeRef")->asString());
  EXPECT_EQ(*find(gps, "LongitudeRef")->asString(), *find(c.gps, "LongitudeRef")->asString());
  if (c.altitude) {
    EXPECT_NEAR(*find(gps, "Altitude")->asFloat(), *c.altitude, 1e-3);
    EXPECT_EQ(find(gps, "AltitudeRef")->asInteger(), std::stoi(*find(c.gps, "AltitudeRef")->asString()));
  } else {
    EXPECT_EQ(find(gps, "Altitude"), nullptr);
  }
  EXPECT_EQ(*find(gps, "TimeStamp")->asString(), c.time);
  EXPECT_EQ(*find(gps, "DateStamp")->asString(), c.date);
  // The camera's own entries survive next to the new ones.
  const Dictionary& exif = *find(*read, "{Exif}")->asDictionary();
  EXPECT_EQ(*find(exif, "DateTimeOriginal")->asString(), "2024:03:05 14:07:31");
  EXPECT_NEAR(*find(exif, "ExposureTime")->asFloat(), 1.0 / 120, 1e-9);
  EXPECT_NEAR(*find(exif, "FNumber")->asFloat(), 1.8, 1e-9);
}

Dictionary gps(const char* latRef, double lat, const char* lonRef, double lon, std::optional<std::pair<const char*, double>> alt,
               const char* time, const char* date) {
  Dictionary d{{"LatitudeRef", Value(latRef)}, {"Latitude", Value(lat)}, {"LongitudeRef", Value(lonRef)},
               {"Longitude", Value(lon)},      {"TimeStamp", Value(time)}, {"DateStamp", Value(date)}};
  if (alt) {
    d["AltitudeRef"] = Value(alt->first);
    d["Altitude"] = Value(alt->second);
  }
  return d;
}

INSTANTIATE_TEST_SUITE_P(
    Fixes, GpsRoundTrip,
    ::testing::Values(
        GpsCase{"sydney", gps("S", 33.5, "E", 151.2, std::pair{"0", 25.0}, "23:59:59.250000", "2024:03:05"), 33.5,
                151.2, 25.0, "23:59:59.250000", "2024:03:05"},
        GpsCase{"zero", gps("N", 0, "W", 0.1, std::pair{"0", 0.0}, "00:00:00.000000", "2024:01:01"), 0, 0.1, 0.0,
                "00:00:00.000000", "2024:01:01"},
        GpsCase{"belowSea", gps("N", 31.5590, "E", 35.4732, std::pair{"1", 12.3}, "12:00:00.000001", "2023:12:31"),
                31.5590, 35.4732, 12.3, "12:00:00.000001", "2023:12:31"},
        GpsCase{"noAltitude", gps("N", 48.8584, "E", 2.2945, std::nullopt, "08:15:30.123456", "2025:06:21"), 48.8584,
                2.2945, std::nullopt, "08:15:30.123456", "2025:06:21"},
        GpsCase{"farWest", gps("S", 89.999999, "W", 179.999999, std::pair{"0", 8848.86}, "11:11:11.111111",
                               "2000:02:29"),
                89.999999, 179.999999, 8848.86, "11:11:11.111111", "2000:02:29"}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(MetadataWrite, SkipsWhatExiv2CannotRepresent) {
  Bytes jpeg = *JpegCodec::encode(quadrants(16, 16, 3), 0.8);
  Dictionary props{{"{Exif}", Value(Dictionary{{"NoSuchTag", Value(1)},
                                               {"FNumber", Value("not a number")},
                                               {"ISOSpeedRatings", Value(Array{200})}})}};
  auto written = ImageMetadata::write(jpeg, props);
  ASSERT_TRUE(written.ok()) << written.status();
  auto read = ImageMetadata::read(*written);
  const Dictionary& exif = *find(*read, "{Exif}")->asDictionary();
  EXPECT_EQ(find(exif, "NoSuchTag"), nullptr);
  EXPECT_EQ(find(exif, "FNumber"), nullptr);
  EXPECT_EQ(*find(exif, "ISOSpeedRatings"), Value(Array{200}));
}

TEST(MetadataWrite, WorksForPngToo) {
  Bytes png = *PngCodec::encode(quadrants(16, 16));
  auto written = ImageMetadata::write(png, SampleImages::cameraProperties(6));
  ASSERT_TRUE(written.ok()) << written.status();
  auto read = ImageMetadata::read(*written);
  ASSERT_TRUE(read.ok());
  EXPECT_EQ(*find(*read, "Orientation"), Value(6));
  EXPECT_EQ(*find(*find(*read, "{TIFF}")->asDictionary(), "Model"), Value("Simulated Camera 12"));
  LinuxImageCodec codec;
  EXPECT_EQ(codec.imageWithData(shared(*written))->imageOrientation(), ImageOrientation::right);
}

}  // namespace
}  // namespace velqor

namespace velqor {
namespace {

TEST(HeifImages, DecodeUprightWhenTheSystemCanEncodeThem) {
  auto heic = HeifCodec::encode(testing::quadrants(64, 32, 3), 90);
  if (!heic.ok()) GTEST_SKIP() << "this libheif has no HEVC encoder to make a test file: " << heic.status();
  LinuxImageCodec codec;
  auto image = codec.imageWithData(std::make_shared<const Bytes>(*heic));
  ASSERT_TRUE(image);
  EXPECT_EQ(image->sourceTypeName(), "heif");
  EXPECT_EQ(codec.containerType(*heic), "public.heic");
  auto bitmap = image->cgImage();
  ASSERT_TRUE(bitmap);
  EXPECT_EQ(bitmap->width, 64);
  EXPECT_TRUE(testing::near(testing::pixel(*bitmap, 4, 4), testing::kRed, 40));
  EXPECT_TRUE(testing::near(testing::pixel(*bitmap, 59, 27), testing::kWhite, 40));
}

// Exiv2 rewrites a TIFF in place when the new values fit where the old ones
// stood; the bytes handed in are const and may be shared (a library asset),
// so they must come back exactly as they were, whatever the image format.
TEST(MetadataWrite, NeverChangesTheBytesItIsGiven) {
  auto tiff = FileBytes::read(std::string(VELQOR_SOURCE_DIR) +
                              "/fuzz/regressions/image_metadata/little-endian-tiff-edited-in-place.tif");
  ASSERT_TRUE(tiff.ok()) << tiff.status();
  Bytes jpeg = *JpegCodec::encode(quadrants(16, 16, 3), 0.8);
  for (const Bytes* input : {&*tiff, &jpeg}) {
    auto properties = ImageMetadata::read(*input);
    ASSERT_TRUE(properties.ok()) << properties.status();
    (*properties)["Orientation"] = Value(6);
    const auto shared = std::make_shared<const Bytes>(*input);
    auto written = ImageMetadata::write(*shared, *properties);
    ASSERT_TRUE(written.ok()) << written.status();
    EXPECT_EQ(*shared, *input) << "the input was edited";
    EXPECT_EQ(*find(*ImageMetadata::read(*written), "Orientation"), Value(6));
  }
}

}  // namespace
}  // namespace velqor
