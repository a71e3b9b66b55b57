#include <exiv2/exiv2.hpp>
#include <turbojpeg.h>

#include <fstream>

#include "host/Base64.h"
#include "host/FileBytes.h"
#include "tests/MediaHarness.h"

namespace velqor {
namespace {

using ::testing::HasSubstr;
using testing::MediaHarness;

// A 108 MP photo (12000 x 9000): dark on the left half, bright on the right.
const Bytes& photo108MP() {
  static const Bytes jpeg = [] {
    const int w = 12000, h = 9000;
    std::vector<std::uint8_t> grey(static_cast<size_t>(w) * h);
    for (int y = 0; y < h; ++y) std::fill_n(grey.begin() + static_cast<long>(y) * w + w / 2, w / 2, 230);
    for (int y = 0; y < h; ++y) std::fill_n(grey.begin() + static_cast<long>(y) * w, w / 2, 20);
    tjhandle t = tjInitCompress();
    unsigned char* out = nullptr;
    unsigned long size = 0;
    tjCompress2(t, grey.data(), w, 0, h, TJPF_GRAY, &out, &size, TJSAMP_GRAY, 80, 0);
    Bytes bytes(out, out + size);
    tjFree(out);
    tjDestroy(t);
    return bytes;
  }();
  return jpeg;
}

struct LargeCase {
  const char* name;
  const char* args;
  int width, height;        // of the answer's picture; 0 when the capture fails
  bool inLibrary = false;   // the picture is looked for in the library
};
void PrintTo(const LargeCase& c, std::ostream* os) { *os << c.name; }

class LargePhotos : public MediaHarness, public ::testing::WithParamInterface<LargeCase> {};

TEST_P(LargePhotos, DecodeAtAReducedScaleOrFailWithTheReason) {
  const auto& c = GetParam();
  const std::string path = dir_.path("large.jpg");
  std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(photo108MP().data()), photo108MP().size());
  build(SimDeviceState{});
  SimPickerChoice choice;
  choice.file = path;
  userChooses(choice);
  takePicture(c.args);
  runAllMedia();

  auto answers = answersFor();
  ASSERT_EQ(answers.size(), 1u) << "the command is answered either way";
  if (c.width == 0) {
    ASSERT_EQ(answers[0].status, CommandStatus::FAIL_TAKE_PICTURE) << answers[0].toJsonLine();
    const Dictionary payload = payloadOf(answers[0]);
    const Value* message = find(payload, "errorMsg");
    ASSERT_TRUE(message && message->asString());
    EXPECT_THAT(*message->asString(), HasSubstr("12000x9000"));
    EXPECT_THAT(*message->asString(), HasSubstr("at full size"));
    EXPECT_EQ(location_->startedManagers(), 0);
    EXPECT_EQ(library_->list()->size(), 0u);
    return;
  }
  ASSERT_EQ(answers[0].status, CommandStatus::OK) << answers[0].toJsonLine();
  Bytes written;
  if (c.inLibrary) {
    ASSERT_EQ(library_->list()->size(), 1u);
    written = *FileBytes::read(library_->list()->front().file);
  } else {
    const Dictionary payload = payloadOf(answers[0]);
    const Value* uri = find(payload, "callbackURI");
    ASSERT_TRUE(uri && uri->asString());
    const std::string& text = *uri->asString();
    if (text.rfind("data:", 0) == 0) {
      auto decoded = base64Decode(text.substr(text.find(',') + 1));
      written.assign(decoded->begin(), decoded->end());
    } else {
      written = *FileBytes::read(text);
    }
  }
  auto image = Exiv2::ImageFactory::open(written.data(), static_cast<long>(written.size()));
  image->readMetadata();
  EXPECT_EQ(image->pixelWidth(), c.width);
  EXPECT_EQ(image->pixelHeight(), c.height);
  // Real pixels: the dark and the bright half are where they were.
  auto decoded = codec_->imageWithData(std::make_shared<const Bytes>(written))->cgImage();
  ASSERT_TRUE(decoded);
  EXPECT_LT(decoded->row(c.height / 2)[c.width / 8 * decoded->channels], 40);
  EXPECT_GT(decoded->row(c.height / 2)[c.width * 7 / 8 * decoded->channels], 210);
}

INSTANTIATE_TEST_SUITE_P(
    Requests, LargePhotos,
    ::testing::Values(LargeCase{"fileFittedTo1024", "[50, 1, 1, 1024, 1024]", 1024, 768},
                      LargeCase{"dataUrlFittedTo1024", "[50, 0, 1, 1024, 1024]", 1024, 768},
                      LargeCase{"pngFittedTo1024", "[50, 1, 1, 1024, 1024, 1]", 1024, 768},
                      LargeCase{"correctedAndFitted", "[50, 1, 1, 1024, 1024, 0, 0, false, true]", 1024, 768},
                      LargeCase{"libraryFitted", "[50, 2, 1, 1024, 1024]", 1024, 768, true},
                      LargeCase{"fileAtFullSize", "[50, 1, 1]", 0, 0},
                      LargeCase{"dataUrlAtFullSize", "[50, 0, 1]", 0, 0},
                      LargeCase{"correctedAtFullSize", "[50, 1, 1, null, null, 0, 0, false, true]", 0, 0},
                      LargeCase{"libraryAtFullSize", "[]", 0, 0},
                      LargeCase{"fullSizeWithLocation", "[50, 1, 1, null, null, 0, 0, false, false, false, null, false, true]",
                                0, 0}),
    [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace velqor
