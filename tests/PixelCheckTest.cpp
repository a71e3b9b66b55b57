#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <turbojpeg.h>

#include <functional>

#include "imaging/metadata/ExifOrientation.h"
#include "imaging/codecs/JpegCodec.h"
#include "imaging/jpeg/JpegSkeleton.h"
#include "imaging/codecs/LinuxImageCodec.h"
#include "platform/linux/SampleImages.h"
#include "platform/sim/SimPickerMedia.h"
#include "tests/TestDirectory.h"

namespace velqor {
namespace {

using ::testing::AllOf;
using ::testing::AnyOf;
using ::testing::HasSubstr;
using ::testing::StartsWith;

// Damaged and unusual JPEG streams, each built from a real encode by moving
// markers around. Positions are found by walking the segments the way a
// decoder does; `scans` are the start-of-scan markers in order.
struct Layout {
  std::vector<std::size_t> scans;
  std::size_t eoi = 0;
};

Layout layoutOf(const Bytes& b) {
  Layout l;
  std::size_t p = 2;
  while (p + 2 <= b.size()) {
    const std::uint8_t code = b[p + 1];
    if (code == 0xD9) {
      l.eoi = p;
      break;
    }
    if (p + 4 > b.size()) break;
    const std::size_t length = (std::size_t{b[p + 2]} << 8) | b[p + 3];
    if (code == 0xDA) {
      l.scans.push_back(p);
      // Skip the compressed data to the next real marker.
      std::size_t q = p + 2 + length;
      while (q + 1 < b.size() && !(b[q] == 0xFF && b[q + 1] != 0x00 && (b[q + 1] < 0xD0 || b[q + 1] > 0xD7))) ++q;
      p = q;
      continue;
    }
    p += 2 + length;
  }
  if (l.eoi == 0 || l.scans.empty()) ADD_FAILURE() << "no scan and end marker in the encoded stream";
  return l;
}

Bytes encoded(bool progressive, int width = 96, int height = 64) {
  const Bitmap scene = SampleImages::scene(width, height);
  tjhandle h = tjInitCompress();
  unsigned char* out = nullptr;
  unsigned long size = 0;
  tjCompress2(h, scene.pixels.data(), width, 0, height, TJPF_RGB, &out, &size, TJSAMP_420, 90,
              progressive ? TJFLAG_PROGRESSIVE : 0);
  Bytes bytes(out, out + size);
  tjFree(out);
  tjDestroy(h);
  return bytes;
}

Bytes insertedBeforeEnd(Bytes b, const Bytes& extra) {
  const std::size_t eoi = layoutOf(b).eoi;
  b.insert(b.begin() + static_cast<std::ptrdiff_t>(eoi), extra.begin(), extra.end());
  return b;
}

Bytes segment(std::uint8_t code, const Bytes& body) {
  const std::size_t length = body.size() + 2;
  Bytes s(body.size() + 4);
  s[0] = 0xFF, s[1] = code, s[2] = static_cast<std::uint8_t>(length >> 8), s[3] = static_cast<std::uint8_t>(length & 0xFF);
  std::copy(body.begin(), body.end(), s.begin() + 4);
  return s;
}

// The frame header of `b`, as a whole segment.
Bytes frameHeaderOf(const Bytes& b) {
  for (std::size_t p = 2; p + 4 <= b.size();) {
    const std::size_t length = (std::size_t{b[p + 2]} << 8) | b[p + 3];
    if (b[p + 1] == 0xC0 || b[p + 1] == 0xC2) return Bytes(b.begin() + p, b.begin() + p + 2 + length);
    p += 2 + length;
  }
  return {};
}

// The last scan of `b` (marker, header and compressed data) repeated `times`.
Bytes lastScanRepeated(Bytes b, int times) {
  const Layout l = layoutOf(b);
  const Bytes scan(b.begin() + l.scans.back(), b.begin() + l.eoi);
  Bytes extra;
  for (int i = 0; i < times; ++i) extra.insert(extra.end(), scan.begin(), scan.end());
  return insertedBeforeEnd(std::move(b), extra);
}

struct StreamCase {
  const char* name;
  std::function<Bytes()> make;
  bool decodes;
  const char* reason = "";  // in both messages when it does not
  // A decode keeps the rows it had when the stream warned (damaged data)
  // before it failed; the check refuses it all the same.
  bool decodedPartly = false;
};
void PrintTo(const StreamCase& c, std::ostream* os) { *os << c.name; }

class PixelCheck : public ::testing::TestWithParam<StreamCase> {};

// The picker's check without decoding must say what a decode says: the same
// verdict and, when it fails, the same reason. What it passes always decodes,
// and the picker hands over exactly the photos it passes.
TEST_P(PixelCheck, AgreesWithAFullDecode) {
  const auto& c = GetParam();
  auto bytes = std::make_shared<const Bytes>(c.make());
  auto source = JpegCodec::source(bytes, DecodeLimits{});
  ASSERT_TRUE(source.ok()) << source.status();
  const Status quick = (*source)->checkPixels();
  const auto full = (*source)->decode(1, 1);
  EXPECT_EQ(quick.ok(), c.decodes) << quick;
  EXPECT_EQ(full.ok(), c.decodes || c.decodedPartly) << full.status();
  if (!c.decodes) {
    EXPECT_THAT(quick.message(), AllOf(StartsWith("cannot decode JPEG: "), HasSubstr(c.reason)));
    if (!c.decodedPartly) {
      EXPECT_THAT(full.status().message(), HasSubstr(c.reason));
    }
  }
  LinuxImageCodec codec;
  EXPECT_EQ(codec.probe(*bytes).ok(), c.decodes);

  testing::TestDirectory dir;
  dir.write("photo.jpg", std::string(bytes->begin(), bytes->end()));
  SimPickerChoice photo;
  photo.file = dir.path("photo.jpg");
  const auto handed = SimPickerMedia::info(photo, codec, nullptr, dir.path("tmp"));
  EXPECT_EQ(handed.ok(), c.decodes) << handed.status();
  if (!c.decodes) {
    EXPECT_THAT(handed.status().message(), AllOf(StartsWith(photo.file + ": cannot decode JPEG: "), HasSubstr(c.reason)));
  }
}

INSTANTIATE_TEST_SUITE_P(
    Streams, PixelCheck,
    ::testing::Values(
        StreamCase{"baseline", [] { return encoded(false); }, true},
        StreamCase{"progressive", [] { return encoded(true); }, true},
        StreamCase{"cameraPhoto", [] { return *SampleImages::cameraJpeg(640, 480, 6, 93); }, true},
        StreamCase{"truncatedInTheData", [] {
                     Bytes b = encoded(false);
                     b.resize(b.size() * 2 / 3);
                     return b;
                   }, true},
        StreamCase{"truncatedProgressive", [] {
                     Bytes b = encoded(true);
                     b.resize(b.size() / 2);
                     return b;
                   }, true},
        StreamCase{"scrambledData", [] {
                     Bytes b = encoded(false);
                     const Layout l = layoutOf(b);
                     // Damage a decoder only warns about: no byte becomes or follows an 0xFF.
                     for (std::size_t i = l.scans[0] + 20; i < l.eoi - 4; i += 7)
                       if (b[i] != 0xFF && b[i - 1] != 0xFF) b[i] = static_cast<std::uint8_t>((b[i] * 31 + 17) & 0x7F);
                     return b;
                   }, true},
        StreamCase{"endOfImageInsideTheData", [] {
                     Bytes b = encoded(false);
                     const Layout l = layoutOf(b);
                     const std::size_t mid = (l.scans[0] + l.eoi) / 2;
                     b[mid] = 0xFF, b[mid + 1] = 0xD9;
                     return b;
                   }, true},
        StreamCase{"strayBytesBeforeTheEnd", [] { return insertedBeforeEnd(encoded(false), {0x12, 0x34, 0xFF, 0x00, 0x56}); },
                   true},
        StreamCase{"fillBytesBeforeTheEnd", [] { return insertedBeforeEnd(encoded(false), {0xFF, 0xFF, 0xFF}); }, true},
        StreamCase{"restartMarkersWithoutInterval", [] {
                     Bytes b = encoded(false);
                     const Layout l = layoutOf(b);
                     const std::size_t mid = (l.scans[0] + l.eoi) / 2;
                     const Bytes rst{0xFF, 0xD0, 0xFF, 0xD1};
                     b.insert(b.begin() + static_cast<std::ptrdiff_t>(mid), rst.begin(), rst.end());
                     return b;
                   }, true},
        StreamCase{"restartIntervalWithoutMarkers", [] {
                     Bytes b = encoded(false);
                     const Bytes dri = segment(0xDD, {0x00, 0x02});
                     b.insert(b.begin() + static_cast<std::ptrdiff_t>(layoutOf(b).scans[0]), dri.begin(), dri.end());
                     return b;
                   }, true},
        StreamCase{"commentAfterTheScan", [] { return insertedBeforeEnd(encoded(false), segment(0xFE, {'h', 'i'})); }, true},
        StreamCase{"shortLengthAfterTheScan", [] { return insertedBeforeEnd(encoded(false), {0xFF, 0xFE, 0x00, 0x01}); },
                   true},
        StreamCase{"dataAfterTheEnd", [] {
                     Bytes b = encoded(false);
                     const Bytes tail{0xFF, 0xC0, 0x00, 0x03, 0x01, 0x99};
                     b.insert(b.end(), tail.begin(), tail.end());
                     return b;
                   }, true},
        StreamCase{"secondFrameHeader", [] {
                     Bytes b = encoded(false);
                     return insertedBeforeEnd(b, frameHeaderOf(b));
                   }, false, "two SOF markers"},
        StreamCase{"unknownMarkerAfterTheScan", [] { return insertedBeforeEnd(encoded(false), segment(0x02, {0, 0})); },
                   false, "Unsupported marker type 0x02"},
        StreamCase{"secondScanInABaselineFile", [] { return lastScanRepeated(encoded(false), 1); }, false,
                   "more than one scan"},
        StreamCase{"bogusHuffmanTableAfterTheScan", [] {
                     Bytes body(17, 0xFF);  // class 0 table 0, code counts summing past 256
                     body[0] = 0x00;
                     return insertedBeforeEnd(encoded(true), segment(0xC4, body));
                   }, false, "Bogus Huffman table definition"},
        StreamCase{"scanNamingAMissingTable", [] {
                     Bytes b = encoded(false);
                     const std::size_t sos = layoutOf(b).scans[0];
                     b[sos + 6] = 0x33;  // first component: DC and AC table 3, never defined
                     return b;
                   }, false, "Huffman table 0x03 was not defined"},
        StreamCase{"badProgression", [] {
                     Bytes b = encoded(true);
                     const std::size_t sos = layoutOf(b).scans[0];  // the first DC scan
                     const std::size_t components = b[sos + 4];
                     b[sos + 5 + 2 * components + 1] = 5;  // a DC scan that claims AC coefficients
                     return b;
                   }, false, "progressive"},
        StreamCase{"tooManyScans", [] { return lastScanRepeated(encoded(true), 600); }, false, "500 scans"},
        StreamCase{"damagedDataThenASecondFrameHeader", [] {
                     Bytes b = encoded(false);
                     const Bytes frame = frameHeaderOf(b);
                     const Layout l = layoutOf(b);
                     b.resize(l.scans[0] + (l.eoi - l.scans[0]) / 2);  // the data stops short: a warning
                     b.insert(b.end(), frame.begin(), frame.end());
                     return b;
                   }, false, "two SOF markers", true}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(JpegSkeleton, KeepsTheMarkersAndDropsTheCompressedData) {
  const Bytes photo = *SampleImages::cameraJpeg(1600, 1200, 6, 93);
  const Bytes skeleton = JpegSkeleton::of(photo);
  // The segments stay (the EXIF block with them); the compressed data goes
  // and the frame shrinks to one MCU (8 or 16 pixels a side).
  ASSERT_GT(photo.size(), 100'000u);
  EXPECT_LT(skeleton.size(), 4'000u);
  EXPECT_EQ(ExifOrientation::read(skeleton), 6);
  auto source = JpegCodec::source(std::make_shared<const Bytes>(skeleton), DecodeLimits{});
  ASSERT_TRUE(source.ok()) << source.status();
  EXPECT_THAT((*source)->width(), AnyOf(8, 16));
  EXPECT_THAT((*source)->height(), AnyOf(8, 16));
  EXPECT_EQ(JpegSkeleton::of(Bytes{'n', 'o'}), (Bytes{'n', 'o'}));
}

}  // namespace
}  // namespace velqor
