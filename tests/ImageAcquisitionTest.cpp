#include <gtest/gtest.h>

#include "host/ValueJson.h"
#include "platform/PickerInfoKeys.h"
#include "imaging/codecs/LinuxImageCodec.h"
#include "platform/linux/SampleImages.h"
#include "results/ImageAcquisition.h"
#include "tests/TestImages.h"

namespace velqor {
namespace {

using testing::Rgb;

// Takes a picture out of a picker's info and encodes it, as the image result
// does, with only the codec behind the plug-in.
class Acquisition : public ::testing::Test {
 protected:
  Acquisition() {
    PlatformServices s;
    s.imageCodec = codec_;
    core_ = std::make_shared<PluginCore>(s, std::make_shared<ViewControllerSlot>());
  }

  std::shared_ptr<PictureOptions> options(const std::string& args) {
    auto parsed = argumentsFromJson(args);
    EXPECT_TRUE(parsed.ok()) << args;
    CallBackManager cb(std::make_shared<VelqorCommand>("c", "takePicture", *parsed), nullptr,
                       std::make_shared<AnswerLog>());
    return PictureOptions::createFromTakePictureArguments(cb);
  }

  static Value image(Bitmap bitmap) {
    return Value(std::shared_ptr<PlatformObject>(PlatformImage::fromBitmap(std::move(bitmap))));
  }

  static Bitmap solid(int w, int h, Rgb c) {
    Bitmap b(w, h, 3);
    for (size_t i = 0; i < b.pixels.size(); i += 3) {
      b.pixels[i] = static_cast<std::uint8_t>(c.r);
      b.pixels[i + 1] = static_cast<std::uint8_t>(c.g);
      b.pixels[i + 2] = static_cast<std::uint8_t>(c.b);
    }
    return b;
  }

  std::shared_ptr<LinuxImageCodec> codec_ = std::make_shared<LinuxImageCodec>();
  std::shared_ptr<PluginCore> core_;
};

struct QualityCase {
  const char* name;
  const char* args;
  double quality;
  int width, height;  // of the encoded picture
};
void PrintTo(const QualityCase& c, std::ostream* os) { *os << c.name; }

class EncodingQuality : public Acquisition, public ::testing::WithParamInterface<QualityCase> {};

// An untouched picture from the library is kept at full quality; a camera
// picture, and any edited, scaled or corrected one, at the requested quality.
TEST_P(EncodingQuality, EncodesAtTheQualityTheOptionsCallFor) {
  const auto& c = GetParam();
  auto o = options(c.args);
  const Dictionary info{{PickerInfoKey::originalImage, image(SampleImages::scene(40, 30))}};
  auto picture = ImageAcquisition::retrieveImage(info, *o);
  ASSERT_TRUE(picture);
  auto encoded = ImageAcquisition::processImage(*core_, picture, info, *o);
  ASSERT_TRUE(encoded);
  EXPECT_TRUE(*encoded == *codec_->jpegRepresentation(*picture, c.quality)) << "not encoded at " << c.quality;
  auto decoded = codec_->imageWithData(std::make_shared<const Bytes>(*encoded));
  ASSERT_TRUE(decoded);
  EXPECT_EQ(decoded->size(), (ImageSize{double(c.width), double(c.height)}));
}

INSTANTIATE_TEST_SUITE_P(
    Options, EncodingQuality,
    ::testing::Values(QualityCase{"cameraAtTheRequestedQuality", "[50, 0, 1]", 0.5, 40, 30},
                      QualityCase{"cameraAtOneHundred", "[100, 0, 1]", 1.0, 40, 30},
                      QualityCase{"libraryUntouchedAtFull", "[50, 0, 0]", 1.0, 40, 30},
                      QualityCase{"albumUntouchedAtFull", "[30, 0, 2]", 1.0, 40, 30},
                      QualityCase{"otherSourceUntouchedAtFull", "[30, 0, 7]", 1.0, 40, 30},
                      QualityCase{"libraryCorrected", "[50, 0, 0, null, null, 0, 0, false, true]", 0.5, 40, 30},
                      QualityCase{"libraryEditingAllowed", "[50, 0, 0, null, null, 0, 0, true]", 0.5, 40, 30},
                      QualityCase{"libraryScaled", "[80, 0, 0, 20, 20]", 0.8, 20, 15},
                      // One side above zero: not scaled, yet no longer untouched.
                      QualityCase{"librarySizeWithOneSideAboveZero", "[50, 0, 0, 0, 500]", 0.5, 40, 30},
                      QualityCase{"librarySizeAtMostZero", "[50, 0, 0, -1, -1]", 1.0, 40, 30}),
    [](const auto& info) { return std::string(info.param.name); });

struct ChoiceCase {
  const char* name;
  const char* args;
  bool withEdited;
  bool editedIsAnImage;
  bool expectEdited;
};
void PrintTo(const ChoiceCase& c, std::ostream* os) { *os << c.name; }

class PictureChoice : public Acquisition, public ::testing::WithParamInterface<ChoiceCase> {};

TEST_P(PictureChoice, TakesTheEditedPictureOnlyWhenEditingWasAllowedAndItIsThere) {
  const auto& c = GetParam();
  const Rgb blue{0, 0, 255}, red{255, 0, 0};
  Dictionary info{{PickerInfoKey::originalImage, image(solid(16, 12, blue))}};
  if (c.withEdited) info[PickerInfoKey::editedImage] = c.editedIsAnImage ? image(solid(6, 4, red)) : Value("edited");
  auto o = options(c.args);
  auto png = ImageAcquisition::processImage(*core_, ImageAcquisition::retrieveImage(info, *o), info, *o);
  ASSERT_TRUE(png);
  auto bitmap = codec_->imageWithData(std::make_shared<const Bytes>(*png))->cgImage();
  ASSERT_TRUE(bitmap);
  EXPECT_EQ(bitmap->width, c.expectEdited ? 6 : 16);
  EXPECT_EQ(testing::pixel(*bitmap, 2, 2), c.expectEdited ? red : blue);
}

INSTANTIATE_TEST_SUITE_P(
    Info, PictureChoice,
    ::testing::Values(ChoiceCase{"editedWhenAllowed", "[50, 0, 0, null, null, 1, 0, true]", true, true, true},
                      ChoiceCase{"originalWhenNotAllowed", "[50, 0, 0, null, null, 1, 0, false]", true, true, false},
                      ChoiceCase{"originalWhenNoEdit", "[50, 0, 0, null, null, 1, 0, true]", false, false, false},
                      ChoiceCase{"originalWhenTheEditIsNoImage", "[50, 0, 0, null, null, 1, 0, true]", true, false,
                                 false}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(Acquisition, WithoutAnEncodingNothingIsEncodedAndNothingKept) {
  const Dictionary info{{PickerInfoKey::originalImage, image(solid(4, 4, Rgb{1, 2, 3}))},
                        {PickerInfoKey::mediaMetadata, Value(Dictionary{})}};
  auto o = options("[50, 0, 1, null, null, 9, 0, false, false, false, null, false, true]");
  EXPECT_FALSE(ImageAcquisition::processImage(*core_, ImageAcquisition::retrieveImage(info, *o), info, *o));
  EXPECT_EQ(core_->data.load(), nullptr);
  EXPECT_FALSE(core_->metadata.load());
}

}  // namespace
}  // namespace velqor
