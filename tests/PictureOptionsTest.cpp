#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "capture/PictureOptions.h"
#include "host/CallBackManager.h"
#include "host/ValueJson.h"

namespace velqor {
namespace {

std::shared_ptr<PictureOptions> parse(const std::string& json) {
  auto args = argumentsFromJson(json);
  EXPECT_TRUE(args.ok()) << json;
  auto command = std::make_shared<VelqorCommand>("t", "takePicture", *args);
  CallBackManager cb(command, nullptr, std::make_shared<AnswerLog>());
  return PictureOptions::createFromTakePictureArguments(cb);
}

struct Expected {
  std::int64_t quality = 50;
  std::optional<DestinationType> destination = DestinationType::destinationTypeNativeUri;
  std::int64_t source = 1;
  std::optional<TargetSize> size;
  std::optional<EncodingType> encoding = EncodingType::encodingTypeJPEG;
  std::optional<MediaType> media = MediaType::mediaTypePicture;
  std::int64_t camera = 0;
  bool editing = false, correct = false, save = false, geo = false;
};

struct ParseCase {
  const char* name;
  const char* args;
  Expected expected;
};

void PrintTo(const ParseCase& c, std::ostream* os) { *os << c.name << " " << c.args; }

class ArgumentParsing : public ::testing::TestWithParam<ParseCase> {};

TEST_P(ArgumentParsing, GivesTheDocumentedOptions) {
  const auto& c = GetParam();
  auto o = parse(c.args);
  const auto& e = c.expected;
  EXPECT_EQ(o->quality, e.quality);
  EXPECT_EQ(o->destinationType, e.destination);
  EXPECT_EQ(o->sourceType, e.source);
  EXPECT_EQ(o->targetSize, e.size);
  EXPECT_EQ(o->encodingType, e.encoding);
  EXPECT_EQ(o->mediaType, e.media);
  EXPECT_EQ(o->cameraDirection, e.camera);
  EXPECT_EQ(o->allowsEditing, e.editing);
  EXPECT_EQ(o->correctOrientation, e.correct);
  EXPECT_EQ(o->saveToPhotoAlbum, e.save);
  EXPECT_EQ(o->usesGeolocation, e.geo);
  EXPECT_EQ(PictureOptions::useLocationService.load(), e.geo);
  EXPECT_FALSE(o->cropToSize);
}

using D = DestinationType;
using E = EncodingType;
using M = MediaType;

Expected with(std::function<void(Expected&)> f) {
  Expected e;
  f(e);
  return e;
}

INSTANTIATE_TEST_SUITE_P(
    Table, ArgumentParsing,
    ::testing::Values(
        ParseCase{"empty", "[]", Expected{}},
        ParseCase{"nullsEverywhere", "[null,null,null,null,null,null,null,null,null,null,null,null,null]",
                  Expected{}},
        ParseCase{"qualityUnclampedHigh", "[150]", with([](auto& e) { e.quality = 150; })},
        ParseCase{"qualityUnclampedLow", "[-5]", with([](auto& e) { e.quality = -5; })},
        ParseCase{"qualityFloatFallsBack", "[75.5]", Expected{}},
        ParseCase{"qualityIntegralFloatIsInteger", "[80.0]", with([](auto& e) { e.quality = 80; })},
        ParseCase{"destinationOutOfRange", "[50, 3]", with([](auto& e) { e.destination.reset(); })},
        ParseCase{"destinationNegative", "[50, -1]", with([](auto& e) { e.destination.reset(); })},
        ParseCase{"destinationString", "[50, \"1\"]", Expected{}},
        ParseCase{"destinationDataUrl", "[50, 0]",
                  with([](auto& e) { e.destination = D::destinationTypeDataUrl; })},
        ParseCase{"sourceAnyInteger", "[50, 1, 7]", with([](auto& e) {
                    e.destination = D::destinationTypeFileUri;
                    e.source = 7;
                  })},
        ParseCase{"libraryVideoBecomesCamera", "[50, 1, 0, null, null, 0, 1]", with([](auto& e) {
                    e.destination = D::destinationTypeFileUri;
                    e.media = M::mediaTypeVideo;
                  })},
        ParseCase{"libraryPicture", "[50, 1, 0, null, null, 0, 0]", with([](auto& e) {
                    e.destination = D::destinationTypeFileUri;
                    e.source = 0;
                  })},
        ParseCase{"libraryMediaMissing", "[50, 1, 0]", with([](auto& e) {
                    e.destination = D::destinationTypeFileUri;
                    e.source = 0;
                  })},
        ParseCase{"albumVideoStays", "[50, 1, 2, null, null, 0, 1]", with([](auto& e) {
                    e.destination = D::destinationTypeFileUri;
                    e.source = 2;
                    e.media = M::mediaTypeVideo;
                  })},
        ParseCase{"libraryUnknownMediaStays", "[50, 1, 0, null, null, 0, 5]", with([](auto& e) {
                    e.destination = D::destinationTypeFileUri;
                    e.source = 0;
                    e.media.reset();
                  })},
        ParseCase{"widthWithoutHeight", "[50, 1, 1, 640]",
                  with([](auto& e) { e.destination = D::destinationTypeFileUri; })},
        ParseCase{"heightNotFloat", "[50, 1, 1, 640, \"480\"]",
                  with([](auto& e) { e.destination = D::destinationTypeFileUri; })},
        ParseCase{"sizeUnchecked", "[50, 1, 1, 0, -3.5]", with([](auto& e) {
                    e.destination = D::destinationTypeFileUri;
                    e.size = TargetSize{0, -3.5};
                  })},
        ParseCase{"encodingOutOfRange", "[50, 1, 1, null, null, 2]", with([](auto& e) {
                    e.destination = D::destinationTypeFileUri;
                    e.encoding.reset();
                  })},
        ParseCase{"encodingWrongType", "[50, 1, 1, null, null, true]",
                  with([](auto& e) { e.destination = D::destinationTypeFileUri; })},
        ParseCase{"encodingPng", "[50, 1, 1, null, null, 1]", with([](auto& e) {
                    e.destination = D::destinationTypeFileUri;
                    e.encoding = E::encodingTypePNG;
                  })},
        ParseCase{"booleansAreOnlyBooleans", "[50, 1, 1, null, null, 0, 0, 1, 1, 1, null, 1, 1]",
                  with([](auto& e) { e.destination = D::destinationTypeFileUri; })},
        ParseCase{"everyFlag",
                  "[150, 3, 0, 1024, 768, 2, 1, true, true, true, null, true, true]",
                  with([](auto& e) {
                    e.quality = 150;
                    e.destination.reset();
                    e.size = TargetSize{1024, 768};
                    e.encoding.reset();
                    e.media = M::mediaTypeVideo;
                    e.camera = 1;
                    e.editing = e.correct = e.save = e.geo = true;
                  })}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(LocationServiceFlag, FollowsTheLatestParse) {
  parse("[50, 1, 1, null, null, 0, 0, false, false, false, null, false, true]");
  EXPECT_TRUE(PictureOptions::useLocationService.load());
  parse("[50]");
  EXPECT_FALSE(PictureOptions::useLocationService.load());
}

}  // namespace
}  // namespace velqor
