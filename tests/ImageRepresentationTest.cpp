#include <exiv2/exiv2.hpp>
#include <spng.h>
#include <turbojpeg.h>

#include <fstream>

#include "host/Base64.h"
#include "host/FileBytes.h"
#include "tests/FormatSamples.h"
#include "tests/MediaHarness.h"
#include "tests/TestImages.h"

namespace velqor {
namespace {

using namespace testing;

// Where the picture ends up: the answer itself, a temporary file, a new
// library asset, the album copy of a file answer, the file a location fix
// delivers, and a library pick re-written with the asset's properties.
enum class Destination { dataUrl, fileUri, library, albumSave, afterLocationFix, libraryPickWithLocation };
// What the options ask of the picture on its way.
enum class Treatment { asStored, corrected, fitted };

struct RepresentationCase {
  int orientation;
  Destination destination;
  bool png;
  Treatment treatment;
};

std::string name(const RepresentationCase& c) {
  static const char* kOrientations[] = {"up", "down", "left", "right", "upMirrored", "downMirrored", "leftMirrored",
                                        "rightMirrored"};
  static const char* kDestinations[] = {"dataUrl", "fileUri", "library", "albumSave", "afterLocationFix",
                                        "libraryPickWithLocation"};
  static const char* kTreatments[] = {"AsStored", "Corrected", "Fitted"};
  return std::string(kOrientations[c.orientation]) + "_" + kDestinations[static_cast<int>(c.destination)] + "_" +
         (c.png ? "Png" : "Jpeg") + kTreatments[static_cast<int>(c.treatment)];
}
void PrintTo(const RepresentationCase& c, std::ostream* os) { *os << name(c); }

std::vector<RepresentationCase> allCases() {
  std::vector<RepresentationCase> cases;
  for (int o = 0; o < 8; ++o)
    for (auto d : {Destination::dataUrl, Destination::fileUri, Destination::library, Destination::albumSave,
                   Destination::afterLocationFix, Destination::libraryPickWithLocation})
      for (bool png : {false, true})
        for (auto t : {Treatment::asStored, Treatment::corrected, Treatment::fitted}) {
          // A PNG camera photo with location requested waits for a fix that is never asked for.
          if (d == Destination::afterLocationFix && png) continue;
          cases.push_back({o, d, png, t});
        }
  return cases;
}

bool sideways(int o) {
  return o == ImageOrientation::left || o == ImageOrientation::right || o == ImageOrientation::leftMirrored ||
         o == ImageOrientation::rightMirrored;
}

// What Exiv2 reads back from a written file.
struct ReadBack {
  long orientationTag = 0;  // 0: no tag
  Bytes profile;
  int width = 0, height = 0;
};

ReadBack readBack(const Bytes& encoded) {
  auto image = Exiv2::ImageFactory::open(encoded.data(), static_cast<long>(encoded.size()));
  image->readMetadata();
  ReadBack r;
  r.orientationTag = FormatSamples::orientationTagOf(encoded);
  r.profile = FormatSamples::profileOf(encoded);
  r.width = image->pixelWidth();
  r.height = image->pixelHeight();
  return r;
}

// The pixels, decoded by the format's own library.
Bitmap decodeWithLibrary(const Bytes& encoded) {
  Bitmap out;
  if (encoded.size() > 2 && encoded[0] == 0xFF) {
    tjhandle h = tjInitDecompress();
    int w = 0, hgt = 0, sub = 0, cs = 0;
    tjDecompressHeader3(h, encoded.data(), encoded.size(), &w, &hgt, &sub, &cs);
    out = Bitmap(w, hgt, 3);
    tjDecompress2(h, encoded.data(), encoded.size(), out.pixels.data(), w, 0, hgt, TJPF_RGB, 0);
    tjDestroy(h);
    return out;
  }
  spng_ctx* ctx = spng_ctx_new(0);
  spng_set_png_buffer(ctx, encoded.data(), encoded.size());
  spng_ihdr ihdr{};
  spng_get_ihdr(ctx, &ihdr);
  out = Bitmap(static_cast<int>(ihdr.width), static_cast<int>(ihdr.height), 4);
  spng_decode_image(ctx, out.pixels.data(), out.pixels.size(), SPNG_FMT_RGBA8, 0);
  spng_ctx_free(ctx);
  return out;
}

class Representations : public MediaHarness, public ::testing::WithParamInterface<RepresentationCase> {
 protected:
  static constexpr int kStoredWidth = 64, kStoredHeight = 48;

  std::string arguments(const RepresentationCase& c) const {
    const int destination = c.destination == Destination::dataUrl ? 0 : (c.destination == Destination::library ? 2 : 1);
    const int source = c.destination == Destination::libraryPickWithLocation ? 0 : 1;
    const bool fitted = c.treatment == Treatment::fitted;
    const bool located =
        c.destination == Destination::afterLocationFix || c.destination == Destination::libraryPickWithLocation;
    std::ostringstream args;
    args << "[50, " << destination << ", " << source << ", " << (fitted ? "32, 32" : "null, null") << ", "
         << (c.png ? 1 : 0) << ", 0, false, " << (c.treatment == Treatment::corrected ? "true" : "false") << ", "
         << (c.destination == Destination::albumSave ? "true" : "false") << ", null, false, "
         << (located ? "true" : "false") << "]";
    return args.str();
  }

  // The bytes the capture wrote where the case looks for them.
  Bytes output(const RepresentationCase& c, const Answer& answer, const std::vector<AssetRecord>& before) {
    const Dictionary payload = payloadOf(answer);
    const Value* uri = find(payload, "callbackURI");
    if (c.destination == Destination::library || c.destination == Destination::albumSave) {
      const auto rows = *library_->list();
      for (const auto& row : rows) {
        bool old = false;
        for (const auto& b : before) old = old || b.localIdentifier == row.localIdentifier;
        if (old) continue;
        auto bytes = FileBytes::read(row.file);
        return bytes.ok() ? *bytes : Bytes{};
      }
      ADD_FAILURE() << "no new library asset";
      return {};
    }
    if (!uri) {
      ADD_FAILURE() << "no callbackURI in " << answer.toJsonLine();
      return {};
    }
    if (c.destination == Destination::dataUrl) {
      const std::string& text = *uri->asString();
      auto decoded = base64Decode(text.substr(text.find(',') + 1));
      return Bytes(decoded->begin(), decoded->end());
    }
    const std::string path = uri->asString() ? *uri->asString() : uri->asUrl()->path();
    auto bytes = FileBytes::read(path);
    if (!bytes.ok()) ADD_FAILURE() << path << ": " << bytes.status();
    return bytes.ok() ? *bytes : Bytes{};
  }
};

TEST_P(Representations, KeepOrientationProfileAndPixelsAsThePhoneDoes) {
  const auto& c = GetParam();
  const Bytes profile = FormatSamples::adobeRgbProfile();
  const Bytes photo = FormatSamples::cameraJpegWithProfile(quadrants(kStoredWidth, kStoredHeight, 3), 92, profile,
                                                           ImageOrientation::toExif(c.orientation));
  const std::string path = dir_.path("camera.jpg");
  std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(photo.data()), photo.size());
  fixes_ = {LocationFix{48.85, 2.29, 35, std::chrono::system_clock::now()}};
  build(SimDeviceState{});
  SimPickerChoice choice;
  if (c.destination == Destination::libraryPickWithLocation) {
    choice.kind = SimPickerChoice::Kind::pick;
    choice.asset = library_->importFile(path)->localIdentifier;
  } else {
    choice.file = path;
  }
  const auto before = *library_->list();
  userChooses(choice);
  takePicture(arguments(c));
  runAllMedia();

  auto answers = answersFor();
  ASSERT_EQ(answers.size(), 1u);
  ASSERT_EQ(answers[0].status, CommandStatus::OK) << answers[0].toJsonLine();
  const Bytes written = output(c, answers[0], before);
  ASSERT_FALSE(written.empty());
  const ReadBack r = readBack(written);

  // The JPEG representation of stored pixels names their orientation; a PNG
  // names none; a re-write with properties writes what the properties hold:
  // the library asset's tag, and nothing from the camera's EXIF dictionary.
  const bool representedAsStored = !c.png && c.treatment == Treatment::asStored &&
                                   (c.destination == Destination::dataUrl || c.destination == Destination::fileUri);
  long tag = representedAsStored && c.orientation != ImageOrientation::up ? ImageOrientation::toExif(c.orientation) : 0;
  if (c.destination == Destination::libraryPickWithLocation && !c.png) tag = ImageOrientation::toExif(c.orientation);
  EXPECT_EQ(r.orientationTag, tag);

  EXPECT_EQ(r.profile, profile) << "the source's profile, byte for byte";

  int w = kStoredWidth, h = kStoredHeight;
  if (c.treatment == Treatment::corrected && sideways(c.orientation)) std::swap(w, h);
  if (c.treatment == Treatment::fitted) w = sideways(c.orientation) ? 24 : 32, h = sideways(c.orientation) ? 32 : 24;
  EXPECT_EQ(r.width, w);
  EXPECT_EQ(r.height, h);

  if (c.treatment == Treatment::asStored) {
    // The stored pixels, not turned: red stays top left, white bottom right.
    Bitmap pixels = decodeWithLibrary(written);
    EXPECT_TRUE(near(pixel(pixels, 8, 6), kRed, 40)) << pixel(pixels, 8, 6);
    EXPECT_TRUE(near(pixel(pixels, 56, 42), kWhite, 40)) << pixel(pixels, 56, 42);
  }
}

INSTANTIATE_TEST_SUITE_P(OrientationDestinationEncoding, Representations, ::testing::ValuesIn(allCases()),
                         [](const auto& info) { return name(info.param); });

}  // namespace
}  // namespace velqor
