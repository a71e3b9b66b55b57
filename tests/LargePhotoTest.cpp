#include <exiv2/exiv2.hpp>
#include <sys/resource.h>
#include <sys/wait.h>
#include <turbojpeg.h>
#include <unistd.h>

#include <fstream>

#include "host/Base64.h"
#include "host/FileBytes.h"
#include "imaging/RowStream.h"
#include "imaging/codecs/LinuxImageCodec.h"
#include "imaging/codecs/PngCodec.h"
#include "imaging/jpeg/JpegRowEncoder.h"
#include "imaging/metadata/ExifOrientation.h"
#include "imaging/metadata/ImageMetadata.h"
#include "tests/MediaHarness.h"

namespace velqor {
namespace {

using ::testing::HasSubstr;
using testing::MediaHarness;

#if defined(__SANITIZE_ADDRESS__)
// Under ASan every byte costs several: the 400 MP rows run at 200 MP there.
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif

// A stored photo of flat areas, quick to encode and decode at any size: dark
// left half, bright right half, and a red block in the stored top-left corner,
// so where it lands tells the orientation. EXIF orientation 6 (right), as a
// phone held upright stores it.
class MarkedRows final : public RowStream {
 public:
  MarkedRows(int w, int h) : w_(w), h_(h) {}
  int width() const override { return w_; }
  int height() const override { return h_; }
  Layout layout() const override { return Layout::rgb; }
  bool read(std::uint8_t* out, int rows) override {
    for (int r = 0; r < rows; ++r, ++y_)
      for (int x = 0; x < w_; ++x) {
        std::uint8_t* p = out + stride() * static_cast<size_t>(r) + static_cast<size_t>(x) * 3;
        const bool marker = x < w_ / 8 && y_ < h_ / 8;
        const std::uint8_t v = x < w_ / 2 ? 20 : 230;
        p[0] = marker ? 200 : v, p[1] = marker ? 30 : v, p[2] = marker ? 30 : v;
      }
    return true;
  }
  Status status() const override { return Status::okStatus(); }

 private:
  int w_, h_, y_ = 0;
};

struct Photo {
  int width, height;
  std::string path;
};

// Made once per run, removed when the program ends.
struct MadePhotos {
  std::map<int, Photo> photos;
  ~MadePhotos() {
    for (const auto& [mp, p] : photos) std::remove(p.path.c_str());
  }
};

const Photo& photo(int megapixels) {
  static MadePhotos made;
  auto& p = made.photos[megapixels];
  if (!p.path.empty()) return p;
  // 200 MP: 16330 x 12247, a phone's; 400 MP: the same shape doubled in area.
  p.width = megapixels == 200 ? 16330 : 23094;
  p.height = megapixels == 200 ? 12247 : 17320;
  MarkedRows rows(p.width, p.height);
  JpegReencodeRequest request;
  request.quality = 80;
  request.exifApp1 = ExifOrientation::app1(6);
  auto jpeg = JpegRowEncoder::encode(rows, request, 8u << 20);
  p.path = ::testing::TempDir() + "/velqor_large_" + std::to_string(megapixels) + "_" + std::to_string(::getpid()) + ".jpg";
  std::ofstream(p.path, std::ios::binary).write(reinterpret_cast<const char*>(jpeg->data()), static_cast<long>(jpeg->size()));
  return p;
}

int effectiveMegapixels(int asked) { return kSanitized ? 200 : asked; }

struct LargeCase {
  const char* name;
  int megapixels;
  const char* args;
  bool upright;            // the pixels were turned upright
  bool inLibrary = false;  // the picture is looked for in the library
  bool png = false;        // the answer's picture is a PNG
  bool located = false;    // re-written with the location fix
};
void PrintTo(const LargeCase& c, std::ostream* os) { *os << c.name; }

// What a small decode of the written picture shows: its size, EXIF
// orientation, and the colour of each corner region.
struct Seen {
  int width = 0, height = 0, exifOrientation = 0;
  bool markerTopLeft = false, markerTopRight = false;
};

Seen look(const Bytes& written) {
  Seen s;
  auto shared = std::make_shared<const Bytes>(written);
  LinuxImageCodec codec;
  auto source = codec.source(shared);
  EXPECT_TRUE(source.ok()) << source.status().message();
  if (!source.ok()) return s;
  s.width = (*source)->width(), s.height = (*source)->height();
  s.exifOrientation = static_cast<int>(ExifOrientation::read(written));
  // Streamed (PNG) or reduced (JPEG): never the whole bitmap.
  auto small = (*source)->decodeResized(s.width / 16, s.height / 16, s.width / 16, s.height / 16);
  EXPECT_TRUE(small.ok()) << small.status().message();
  if (!small.ok()) return s;
  auto red = [&](int x, int y) {
    const std::uint8_t* p = small->row(y) + static_cast<size_t>(x) * small->channels;
    return p[0] > 150 && p[1] < 80;
  };
  s.markerTopLeft = red(2, 2);
  s.markerTopRight = red(small->width - 3, 2);
  // The dark and bright halves are real pixels, not a blank.
  EXPECT_FALSE(red(small->width / 2, small->height - 3));
  return s;
}

class LargePhotos : public MediaHarness, public ::testing::WithParamInterface<LargeCase> {};

TEST_P(LargePhotos, AtFullSizeEveryDestinationAnswersOk) {
  const auto& c = GetParam();
  const Photo& p = photo(effectiveMegapixels(c.megapixels));
  fixes_ = {LocationFix{48.8584, 2.2945, 35.0, std::chrono::system_clock::now()}};
  build(SimDeviceState{});
  SimPickerChoice choice;
  choice.file = p.path;
  userChooses(choice);
  takePicture(c.args);
  runAllMedia();

  auto answers = answersFor();
  ASSERT_EQ(answers.size(), 1u);
  ASSERT_EQ(answers[0].status, CommandStatus::OK) << answers[0].toJsonLine().substr(0, 300);
  Bytes written;
  const Dictionary payload = payloadOf(answers[0]);
  if (c.inLibrary) {
    ASSERT_EQ(library_->list()->size(), 1u);
    written = *FileBytes::read(library_->list()->front().file, 4ull << 30);
  } else {
    const Value* uri = find(payload, "callbackURI");
    ASSERT_TRUE(uri);
    if (const Url* url = uri->asUrl()) {
      written = *FileBytes::read(url->path(), 4ull << 30);
    } else if (const Bytes* b64 = uri->asBytes()) {  // the deferred data URL: base64 text as bytes
      auto decoded = base64Decode(std::string(b64->begin(), b64->end()));
      ASSERT_TRUE(decoded);
      written.assign(decoded->begin(), decoded->end());
    } else {
      ASSERT_TRUE(uri->asString());
      const std::string& text = *uri->asString();
      if (text.rfind("data:", 0) == 0) {
        auto decoded = base64Decode(text.substr(text.find(',') + 1));
        written.assign(decoded->begin(), decoded->end());
      } else {
        written = *FileBytes::read(text, 4ull << 30);
      }
    }
  }
  ASSERT_EQ(PngCodec::looksLike(written), c.png);
  const Seen s = look(written);
  if (c.upright) {
    EXPECT_EQ(s.width, p.height);
    EXPECT_EQ(s.height, p.width);
    EXPECT_TRUE(s.markerTopRight) << "turned clockwise, the stored top-left lands top right";
    EXPECT_FALSE(s.markerTopLeft);
  } else {
    EXPECT_EQ(s.width, p.width);
    EXPECT_EQ(s.height, p.height);
    EXPECT_TRUE(s.markerTopLeft) << "the stored pixels as stored";
    EXPECT_FALSE(s.markerTopRight);
    if (c.located) {
      // Re-written with the metadata kept (EXIF and the fix), which holds no orientation.
      auto properties = ImageMetadata::read(written);
      ASSERT_TRUE(properties.ok());
      EXPECT_TRUE(find(*properties, "{GPS}")) << "the location fix is in the picture";
    } else if (!c.png) {
      EXPECT_EQ(s.exifOrientation, 6) << "the orientation that turns them upright";
    }
  }
}

constexpr const char* kLocated = "[50, 1, 1, null, null, 0, 0, false, false, false, null, false, true]";
constexpr const char* kLocatedDataUrl = "[50, 0, 1, null, null, 0, 0, false, false, false, null, false, true]";

INSTANTIATE_TEST_SUITE_P(
    FullSize, LargePhotos,
    ::testing::Values(LargeCase{"fileUri200", 200, "[50, 1, 1]", false},
                      LargeCase{"dataUrl200", 200, "[50, 0, 1]", false},
                      LargeCase{"libraryUri200", 200, "[]", false, true, true},
                      LargeCase{"pngFile200", 200, "[50, 1, 1, null, null, 1]", false, false, true},
                      LargeCase{"uprightFile200", 200, "[50, 1, 1, null, null, 0, 0, false, true]", true},
                      LargeCase{"withLocation200", 200, kLocated, false, false, false, true},
                      LargeCase{"dataUrlWithLocation200", 200, kLocatedDataUrl, false, false, false, true},
                      LargeCase{"fileUri400", 400, "[50, 1, 1]", false},
                      LargeCase{"dataUrl400", 400, "[50, 0, 1]", false},
                      LargeCase{"libraryUri400", 400, "[]", false, true, true},
                      LargeCase{"withLocation400", 400, kLocated, false, false, false, true}),
    [](const auto& info) { return std::string(info.param.name); });

// The command line in a child process, its peak resident memory from the
// kernel: what a user running it sees.
struct CliRun {
  int exitCode = -1;
  long peakKiB = 0;
  std::string err;
};

CliRun runCli(const std::vector<std::string>& args, const std::string& errFile) {
  const std::string binary = std::string(VELQOR_BINARY_DIR) + "/velqor-camera";
  const pid_t pid = ::fork();
  if (pid == 0) {
    FILE* e = std::freopen(errFile.c_str(), "w", stderr);
    FILE* o = std::freopen("/dev/null", "w", stdout);
    (void)e, (void)o;
    std::vector<char*> argv{const_cast<char*>(binary.c_str())};
    for (const auto& a : args) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    ::execv(binary.c_str(), argv.data());
    ::_exit(127);
  }
  CliRun r;
  int status = 0;
  rusage usage{};
  ::wait4(pid, &status, 0, &usage);
  r.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  r.peakKiB = usage.ru_maxrss;
  std::ifstream in(errFile);
  r.err.assign(std::istreambuf_iterator<char>(in), {});
  return r;
}

struct MemoryCase {
  const char* name;
  std::vector<std::string> args;  // after the command and the photo
  bool takePicture;
};
void PrintTo(const MemoryCase& c, std::ostream* os) { *os << c.name; }

class LargePhotoMemory : public ::testing::TestWithParam<MemoryCase> {};

// The roads hold no whole bitmap: a 400 MP photo's would be 1.2 GB; the peak
// stays within the input, the output and a fixed margin.
TEST_P(LargePhotoMemory, PeakStaysFarBelowTheWholeBitmap) {
  const auto& c = GetParam();
  const Photo& p = photo(effectiveMegapixels(400));
  testing::TestDirectory dir;
  std::vector<std::string> args;
  if (c.takePicture) {
    args = {"take-picture", "--photo", p.path, "--temp-dir", dir.path("tmp"), "--library", dir.path("library")};
  } else {
    args = {"image-fit", p.path, "--width", "0", "--height", "0", "-o", dir.path("out")};
  }
  args.insert(args.end(), c.args.begin(), c.args.end());
  CliRun r = runCli(args, dir.path("err.txt"));
  ASSERT_EQ(r.exitCode, 0) << r.err;
  const long inputKiB = static_cast<long>(std::filesystem::file_size(p.path) / 1024);
  const long wholeBitmapKiB = static_cast<long>(p.width) * p.height * 3 / 1024;
  RecordProperty("peakKiB", std::to_string(r.peakKiB));
  EXPECT_LT(r.peakKiB, 2 * inputKiB + 192 * 1024) << "peak " << r.peakKiB / 1024 << " MiB";
  if (!kSanitized) {
    EXPECT_LT(r.peakKiB, wholeBitmapKiB / 4);
  }
}

INSTANTIATE_TEST_SUITE_P(
    Roads, LargePhotoMemory,
    ::testing::Values(MemoryCase{"fileUriJpeg", {"--args", "[50, 1, 1]"}, true},
                      MemoryCase{"libraryUriPng", {"--args", "[]"}, true},
                      MemoryCase{"fitUpright", {"--correct-orientation", "--quality", "50"}, false},
                      MemoryCase{"fitPng", {"--png"}, false}),
    [](const auto& info) { return std::string(info.param.name); });

// Beyond every limit (a CMYK photo, which only a whole bitmap decodes, with a
// budget smaller than that bitmap): the answer is the empty success of a
// picture that could not be encoded, and the reason goes to the device's
// notes, not to the plug-in's log.
class BeyondTheLimits : public MediaHarness {};

TEST_F(BeyondTheLimits, AnsweredAsAnEmptySuccessWithTheReasonInTheNotes) {
  const int w = 2000, h = 1500;
  std::vector<std::uint8_t> cmyk(static_cast<size_t>(w) * h * 4, 128);
  tjhandle t = tjInitCompress();
  unsigned char* out = nullptr;
  unsigned long size = 0;
  ASSERT_EQ(tjCompress2(t, cmyk.data(), w, 0, h, TJPF_CMYK, &out, &size, TJSAMP_444, 80, 0), 0);
  const std::string path = dir_.path("cmyk.jpg");
  std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(out), static_cast<long>(size));
  tjFree(out);
  tjDestroy(t);

  DecodeLimits limits;
  limits.maxBytes = static_cast<std::uint64_t>(w) * h * 2;  // less than the 4-channel decode
  auto codec = std::make_shared<LinuxImageCodec>(limits);
  auto notes = std::make_shared<EncodeNotes>();
  codec->setNotes(notes);
  codec_ = codec;
  build(SimDeviceState{});
  SimPickerChoice choice;
  choice.file = path;
  userChooses(choice);
  takePicture("[50, 1, 1]");
  runAllMedia();

  auto answers = answersFor();
  ASSERT_EQ(answers.size(), 1u);
  EXPECT_EQ(answers[0].status, CommandStatus::OK);
  EXPECT_TRUE(payloadOf(answers[0]).empty());
  ASSERT_EQ(notes->all().size(), 1u);
  EXPECT_THAT(notes->all()[0].text, HasSubstr("2000x1500"));
  EXPECT_THAT(notes->all()[0].text, HasSubstr("MiB one decode may hold"));
  // The plug-in's own log: the save step's line and nothing about the failure.
  for (const auto& record : log_->records()) EXPECT_EQ(record.message, "saveToPhotoAlbum false");
}

}  // namespace
}  // namespace velqor
