#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <random>

#include "host/FileBytes.h"
#include "imaging/codecs/LinuxImageCodec.h"
#include "tests/FormatSamples.h"
#include "tests/TestImages.h"

namespace velqor {
namespace {

using namespace testing;
using ::testing::HasSubstr;

// A pixel the decoded image must hold.
struct Expected {
  int x, y;
  Rgb colour;
  int alpha = 255;
};

struct FormatCase {
  const char* name;
  std::function<Bytes()> make;
  const char* type;  // the source type, or "" when the file is refused
  int width = 0, height = 0;
  std::vector<Expected> pixels;
  int tolerance = 0;
  int orientation = ImageOrientation::up;
  bool keepsProfile = false;
  const char* refusal = "";
};
void PrintTo(const FormatCase& c, std::ostream* os) { *os << c.name; }

Bitmap solid(int w, int h, Rgb c) {
  Bitmap b(w, h, 4);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      std::uint8_t* p = b.row(y) + x * 4;
      p[0] = c.r, p[1] = c.g, p[2] = c.b, p[3] = 255;
    }
  return b;
}

// Quadrants with the top-left pixel fully transparent.
Bitmap quadrantsWithHole(int w, int h) {
  Bitmap b = quadrants(w, h, 4);
  b.pixels[3] = 0;
  return b;
}

// The same, with the pixel next to the hole half transparent.
Bitmap translucentQuadrants(int w, int h) {
  Bitmap b = quadrantsWithHole(w, h);
  b.pixels[7] = 128;
  return b;
}
const std::vector<Expected> kTranslucent16x8{{0, 0, {0, 0, 0}, 0}, {1, 0, kRed, 128}, {2, 2, kRed},
                                             {13, 2, kGreen}, {2, 6, kBlue}, {13, 6, kWhite}};

// A 1 x 1 GIF with neither a global nor a local colour table.
Bytes gifWithoutColourTable() {
  return Bytes{'G', 'I', 'F', '8', '9', 'a', 1, 0, 1, 0, 0, 0, 0,  // screen, no table
               0x2C, 0, 0, 0, 0, 1, 0, 1, 0, 0,                     // frame, no table
               2, 2, 0x44, 0x01, 0,                                 // clear, index 0, end
               0x3B};
}

const std::vector<Expected> kQuadrants16x8{{2, 2, kRed}, {13, 2, kGreen}, {2, 6, kBlue}, {13, 6, kWhite}};
// Rows 1 and 8 sit in different passes of an interlaced file.
const std::vector<Expected> kQuadrants16x16{{2, 1, kRed}, {2, 2, kRed}, {13, 2, kGreen}, {2, 8, kBlue}, {2, 13, kBlue},
                                            {13, 13, kWhite}};

void putLittle16(Bytes& b, size_t at, int v) {
  b[at] = static_cast<std::uint8_t>(v & 0xFF);
  b[at + 1] = static_cast<std::uint8_t>(v >> 8);
}
void putLittle32(Bytes& b, size_t at, std::uint32_t v) {
  for (int i = 0; i < 4; ++i) b[at + i] = static_cast<std::uint8_t>(v >> (8 * i));
}

// The first frame's image descriptor claims another size.
Bytes gifFrameClaiming(int w, int h) {
  Bytes b = FormatSamples::gif(8, 8, {{solid(8, 8, kRed)}});
  for (size_t i = 13 + 768; i + 9 < b.size(); ++i)
    if (b[i] == 0x2C) {
      putLittle16(b, i + 5, w);
      putLittle16(b, i + 7, h);
      break;
    }
  return b;
}

Bytes gifScreenClaiming(int w, int h) {
  Bytes b = FormatSamples::gif(8, 8, {{solid(8, 8, kRed)}});
  putLittle16(b, 6, w);
  putLittle16(b, 8, h);
  return b;
}

// A screen, no colour table, and the trailer.
Bytes gifWithoutFrames() { return Bytes{'G', 'I', 'F', '8', '9', 'a', 8, 0, 8, 0, 0, 0, 0, 0x3B}; }

// An animation's canvas (VP8X) claims another size.
Bytes webpCanvasClaiming(int w, int h) {
  Bytes b = FormatSamples::webpAnimated({solid(8, 8, kRed), solid(8, 8, kBlue)});
  for (int i = 0; i < 3; ++i) {
    b[24 + i] = static_cast<std::uint8_t>((w - 1) >> (8 * i));
    b[27 + i] = static_cast<std::uint8_t>((h - 1) >> (8 * i));
  }
  return b;
}

// One tag of a little-endian TIFF's first directory set to a LONG value.
Bytes tiffWithTag(Bytes b, int tag, std::uint32_t value) {
  const std::uint32_t ifd = b[4] | (b[5] << 8) | (b[6] << 16) | (b[7] << 24);
  const int count = b[ifd] | (b[ifd + 1] << 8);
  for (int i = 0; i < count; ++i) {
    const size_t entry = ifd + 2 + 12 * i;
    if ((b[entry] | (b[entry + 1] << 8)) != tag) continue;
    putLittle16(b, entry + 2, 4);  // LONG
    putLittle32(b, entry + 4, 1);
    putLittle32(b, entry + 8, value);
  }
  return b;
}

Bytes truncated(Bytes b, double keep) {
  b.resize(static_cast<size_t>(b.size() * keep));
  return b;
}

Bytes bmpWith(size_t offset, std::uint32_t value) {
  Bytes b = FormatSamples::bmp(quadrants(16, 8, 3));
  putLittle32(b, offset, value);
  return b;
}

// The 78-byte file of the attack: 4 x 4 at 8 bits, two palette entries, and
// every index 0xFF.
Bytes bmpIndicesPastPalette() {
  Bytes b{'B', 'M', 78, 0, 0, 0, 0, 0, 0, 0, 62, 0, 0, 0};
  const std::uint32_t info[] = {40, 4, 4, 1 | (8u << 16), 0, 16, 2835, 2835, 2, 0};
  for (std::uint32_t v : info) {
    b.resize(b.size() + 4);
    putLittle32(b, b.size() - 4, v);
  }
  const std::uint8_t palette[] = {30, 20, 10, 0, 60, 50, 40, 0};
  b.insert(b.end(), std::begin(palette), std::end(palette));
  b.resize(78, 0xFF);
  return b;
}

// A 24-bit header claiming 10000 x 10000 and 64 bytes of its pixels: 118 bytes.
Bytes bmpTruncatedHuge() {
  Bytes b = bmpWith(18, 10000);
  putLittle32(b, 22, 10000);
  b.resize(118);
  return b;
}

// An 8-bit run-length header claiming 10000 x 10000, whose data ends the image at once.
Bytes bmpRunLengthEndsAtOnce() {
  Bytes b = bmpIndicesPastPalette();
  putLittle32(b, 18, 10000);
  putLittle32(b, 22, 10000);
  putLittle32(b, 30, 1);
  b.resize(62);
  b.insert(b.end(), {0, 1});
  return b;
}

// A 10000 x 10000 screen around a 1 x 1 frame: 35 bytes.
Bytes gifTinyFrameOnHugeScreen() {
  return Bytes{'G', 'I', 'F', '8', '9', 'a', 0x10, 0x27, 0x10, 0x27, 0x80, 0, 0,  // screen, 2-colour table
               255, 0, 0, 0, 0, 255,                                            // red, blue
               0x2C, 0, 0, 0, 0, 1, 0, 1, 0, 0,                                 // 1 x 1 frame
               2, 2, 0x4C, 0x01, 0,                                             // clear, index 1, end
               0x3B};
}

// A 1 x 2 GIF whose 2-colour table is indexed past its end (index 3).
Bytes gifIndexPastColourTable() {
  return Bytes{'G', 'I', 'F', '8', '9', 'a', 1, 0, 2, 0, 0x80, 0, 0, 255, 0, 0, 0, 0, 255,
               0x2C, 0, 0, 0, 0, 1, 0, 2, 0, 0,
               2, 2, 0xC4, 0x0A, 0,  // clear, 0, 3, end (3-bit codes)
               0x3B};
}

class NewImageFormats : public ::testing::TestWithParam<FormatCase> {};

TEST_P(NewImageFormats, DecodeAsTheirLibraryWroteThemOrSayWhy) {
  const auto& c = GetParam();
  LinuxImageCodec codec;
  const Bytes bytes = c.make();
  Status probe = codec.probe(bytes);
  auto image = codec.imageWithData(std::make_shared<const Bytes>(bytes));
  auto pixels = image ? image->pixels() : StatusOr<Bitmap>(Status::notFound("no image"));
  if (std::string(c.type).empty()) {
    EXPECT_FALSE(probe.ok());
    EXPECT_THAT(probe.message(), HasSubstr(c.refusal));
    EXPECT_FALSE(pixels.ok());
    return;
  }
  ASSERT_TRUE(probe.ok()) << probe;
  ASSERT_TRUE(pixels.ok()) << pixels.status();
  EXPECT_EQ(image->sourceTypeName(), c.type);
  EXPECT_TRUE(codec.containerType(bytes).has_value());
  EXPECT_EQ(image->imageOrientation(), c.orientation);
  EXPECT_EQ(pixels->width, c.width);
  EXPECT_EQ(pixels->height, c.height);
  for (const auto& e : c.pixels) {
    // A fully transparent pixel has no colour to check.
    if (e.alpha != 0) {
      EXPECT_TRUE(near(pixel(*pixels, e.x, e.y), e.colour, c.tolerance))
          << "at " << e.x << "," << e.y << ": " << pixel(*pixels, e.x, e.y) << " instead of " << e.colour;
    }
    const int alpha = pixels->channels == 4 ? pixels->row(e.y)[e.x * 4 + 3] : 255;
    EXPECT_EQ(alpha, e.alpha) << "at " << e.x << "," << e.y;
  }
  if (c.keepsProfile) {
    ASSERT_TRUE(pixels->iccProfile);
    EXPECT_EQ(*pixels->iccProfile, FormatSamples::adobeRgbProfile());
  } else {
    EXPECT_FALSE(pixels->iccProfile);
  }
}

INSTANTIATE_TEST_SUITE_P(
    Files, NewImageFormats,
    ::testing::Values(
        FormatCase{"gif", [] { return FormatSamples::gif(16, 8, {{quadrants(16, 8, 4)}}); }, "gif", 16, 8, kQuadrants16x8},
        FormatCase{"gifInterlaced", [] { return FormatSamples::gif(16, 16, {{quadrants(16, 16, 4), 0, 0, true}}); },
                   "gif", 16, 16, kQuadrants16x16},
        FormatCase{"gifAnimationGivesItsFirstFrame",
                   [] { return FormatSamples::gif(8, 8, {{solid(8, 8, kRed)}, {solid(8, 8, kBlue)}}); }, "gif", 8, 8,
                   {{4, 4, kRed}}},
        FormatCase{"gifFrameOnALargerScreen", [] { return FormatSamples::gif(8, 8, {{quadrantsWithHole(4, 4), 2, 2}}); },
                   "gif", 8, 8, {{0, 0, {0, 0, 0}, 0}, {2, 2, {0, 0, 0}, 0}, {3, 2, kRed}, {5, 5, kWhite}, {7, 7, {0, 0, 0}, 0}}},
        FormatCase{"gifHugeScreen", [] { return gifScreenClaiming(65535, 65535); }, "", 0, 0, {}, 0, 0, false,
                   "exceeds the pixel limit"},
        FormatCase{"gifHugeFrame", [] { return gifFrameClaiming(60000, 60000); }, "", 0, 0, {}, 0, 0, false,
                   "exceeds the pixel limit"},
        FormatCase{"gifTruncated", [] { return truncated(FormatSamples::gif(64, 64, {{quadrants(64, 64, 4)}}), 0.9); },
                   "", 0, 0, {}, 0, 0, false, "cannot decode GIF"},
        FormatCase{"gifTinyFrameOnHugeScreen", gifTinyFrameOnHugeScreen, "", 0, 0, {}, 0, 0, false,
                   "bytes can fill"},
        FormatCase{"gifIndexPastColourTableIsTransparent", gifIndexPastColourTable, "gif", 1, 2,
                   {{0, 0, {255, 0, 0}}, {0, 1, {0, 0, 0}, 0}}},
        FormatCase{"gifWithoutFrames", gifWithoutFrames, "", 0, 0, {}, 0, 0, false, "holds no frame"},
        FormatCase{"gifWithoutColourTable", gifWithoutColourTable, "", 0, 0, {}, 0, 0, false, "no colour table"},
        FormatCase{"webpLossy", [] { return FormatSamples::webpLossy(quadrants(32, 32, 3)); }, "webp", 32, 32,
                   {{4, 4, kRed}, {27, 4, kGreen}, {4, 27, kBlue}, {27, 27, kWhite}}, 40},
        FormatCase{"webpLosslessWithAlpha", [] { return FormatSamples::webpLossless(translucentQuadrants(16, 8)); },
                   "webp", 16, 8, kTranslucent16x8},
        FormatCase{"webpAnimationGivesItsFirstFrame",
                   [] { return FormatSamples::webpAnimated({solid(8, 8, kRed), solid(8, 8, kBlue)}); }, "webp", 8, 8,
                   {{4, 4, kRed}}},
        FormatCase{"webpProfile",
                   [] {
                     return FormatSamples::webpWithProfile(FormatSamples::webpLossless(quadrants(16, 8, 4)),
                                                           FormatSamples::adobeRgbProfile());
                   },
                   "webp", 16, 8, kQuadrants16x8, 0, 0, true},
        FormatCase{"webpHugeCanvas", [] { return webpCanvasClaiming(16384, 16384); }, "", 0, 0, {}, 0, 0, false,
                   "exceeds the pixel limit"},
        FormatCase{"webpTruncated", [] { return truncated(FormatSamples::webpLossy(quadrants(64, 64, 3)), 0.5); }, "",
                   0, 0, {}, 0, 0, false, "cannot decode WebP"},
        FormatCase{"tiff", [] { return FormatSamples::tiff(quadrants(16, 8, 3)); }, "tiff", 16, 8, kQuadrants16x8},
        FormatCase{"tiffDeflateWithAlpha", [] { return FormatSamples::tiff(translucentQuadrants(16, 8), 1, {}, true); },
                   "tiff", 16, 8, kTranslucent16x8},
        FormatCase{"tiffOrientationKeepsStoredRows", [] { return FormatSamples::tiff(quadrants(16, 8, 3), 6); }, "tiff",
                   16, 8, kQuadrants16x8, 0, ImageOrientation::right},
        FormatCase{"tiffProfile",
                   [] { return FormatSamples::tiff(quadrants(16, 8, 3), 1, FormatSamples::adobeRgbProfile()); }, "tiff",
                   16, 8, kQuadrants16x8, 0, 0, true},
        FormatCase{"tiffHugeDimensions",
                   [] { return tiffWithTag(tiffWithTag(FormatSamples::tiff(quadrants(16, 8, 3)), 256, 100000), 257, 100000); },
                   "", 0, 0, {}, 0, 0, false, "exceeds the pixel limit"},
        FormatCase{"tiffDeclaresMoreThanItsStripsHold",
                   [] { return tiffWithTag(tiffWithTag(FormatSamples::tiff(quadrants(16, 8, 3)), 256, 10000), 257, 10000); },
                   "", 0, 0, {}, 0, 0, false, "bytes of image data can fill"},
        FormatCase{"tiffUnknownCompression",
                   [] { return tiffWithTag(FormatSamples::tiff(quadrants(16, 8, 3)), 259, 50000); }, "", 0, 0, {}, 0, 0,
                   false, "cannot decode TIFF"},
        FormatCase{"tiffTruncated", [] { return truncated(FormatSamples::tiff(quadrants(64, 64, 3)), 0.6); }, "", 0, 0,
                   {}, 0, 0, false, "cannot decode TIFF"},
        FormatCase{"bmp24", [] { return FormatSamples::bmp(quadrants(16, 8, 3)); }, "bmp", 16, 8, kQuadrants16x8},
        FormatCase{"bmp32WithAlpha", [] { return FormatSamples::bmp(translucentQuadrants(16, 8)); }, "bmp", 16, 8,
                   kTranslucent16x8},
        FormatCase{"bmpHugeHeader", [] { Bytes b = bmpWith(18, 100000); putLittle32(b, 22, 100000); return b; }, "", 0,
                   0, {}, 0, 0, false, "exceeds the pixel limit"},
        FormatCase{"bmpIndicesPastThePaletteAreGreyOfTheirValue", bmpIndicesPastPalette, "bmp", 4, 4,
                   {{0, 0, {255, 255, 255}}, {3, 3, {255, 255, 255}}}},
        FormatCase{"bmpTruncatedHuge", bmpTruncatedHuge, "", 0, 0, {}, 0, 0, false, "bytes of pixels where"},
        FormatCase{"bmpRunLengthEndingAtOnce", bmpRunLengthEndsAtOnce, "", 0, 0, {}, 0, 0, false,
                   "bytes of run-length data can fill"},
        FormatCase{"bmpRunLengthEncoded", [] { return bmpWith(30, 1); }, "", 0, 0, {}, 0, 0, false, "cannot decode BMP"},
        FormatCase{"bmpGarbageAfterMagic", [] { Bytes b(200, 0xFF); b[0] = 'B', b[1] = 'M'; return b; }, "", 0, 0, {},
                   0, 0, false, "cannot decode BMP"}),
    [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace velqor

namespace velqor {
namespace {

using namespace testing;

struct MutationCase {
  const char* name;
  std::function<Bytes()> make;
};
void PrintTo(const MutationCase& c, std::ostream* os) { *os << c.name; }

constexpr int kMutations = 400;

// A file of the generated BMP set (tests/data/bmp).
Bytes generatedBmp(const std::string& name) {
  auto bytes = FileBytes::read(std::string(VELQOR_SOURCE_DIR) + "/tests/data/bmp/" + name);
  EXPECT_TRUE(bytes.ok()) << name;
  return bytes.ok() ? *bytes : Bytes(64, 0);
}

class DamagedFiles : public ::testing::TestWithParam<MutationCase> {};

// Copies with bytes overwritten or cut short, from a fixed seed: each one
// decodes at the size its header states, or is refused with the reason.
TEST_P(DamagedFiles, DecodeAtTheirStatedSizeOrAreRefused) {
  const Bytes whole = GetParam().make();
  LinuxImageCodec codec(DecodeLimits{4'000'000, 64u << 20, 40'000'000});
  std::mt19937 random(static_cast<unsigned>(whole.size()));
  int decoded = 0, refused = 0;
  for (int i = 0; i < kMutations; ++i) {
    Bytes copy = whole;
    if (i % 4 == 3) {
      copy.resize(random() % copy.size());
    } else {
      for (int c = 1 + static_cast<int>(random() % 6); c > 0; --c)
        copy[16 + random() % (copy.size() - 16)] = static_cast<std::uint8_t>(random());
    }
    auto image = codec.imageWithData(std::make_shared<const Bytes>(copy));
    auto pixels = image ? image->pixels() : StatusOr<Bitmap>(Status::dataLoss("cannot decode"));
    if (pixels.ok()) {
      ++decoded;
      EXPECT_EQ(pixels->width, image->storedWidth());
      EXPECT_EQ(pixels->height, image->storedHeight());
      EXPECT_LE(static_cast<std::uint64_t>(pixels->width) * pixels->height, 4'000'000u);
    } else {
      ++refused;
      EXPECT_THAT(pixels.status().message(), ::testing::AnyOf(HasSubstr("cannot decode"), HasSubstr("no image")));
    }
  }
  EXPECT_GT(refused, 0);  // damage is noticed
  EXPECT_GT(decoded + refused, 0);
}

INSTANTIATE_TEST_SUITE_P(
    Formats, DamagedFiles,
    ::testing::Values(MutationCase{"gif", [] { return FormatSamples::gif(24, 16, {{quadrants(24, 16, 4), 0, 0, true}}); }},
                      MutationCase{"webpLossy", [] { return FormatSamples::webpLossy(quadrants(24, 16, 3)); }},
                      MutationCase{"webpAnimated",
                                   [] { return FormatSamples::webpAnimated({solid(8, 8, kRed), solid(8, 8, kBlue)}); }},
                      MutationCase{"tiffDeflate", [] { return FormatSamples::tiff(quadrants(24, 16, 4), 6, {}, true); }},
                      MutationCase{"bmp", [] { return FormatSamples::bmp(quadrants(24, 16, 4)); }},
                      MutationCase{"bmpRle8", [] { return generatedBmp("rle8-delta.bmp"); }},
                      MutationCase{"bmpRle4", [] { return generatedBmp("rle4-delta.bmp"); }},
                      MutationCase{"bmpPalette4V5", [] { return generatedBmp("pal4-v5.bmp"); }},
                      MutationCase{"bmpBitFields16", [] { return generatedBmp("fields16-565-v4.bmp"); }}),
    [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace velqor
