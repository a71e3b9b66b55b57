#include <fstream>
#include <thread>

#include "host/Base64.h"
#include "host/FileBytes.h"
#include "imaging/metadata/ImageMetadata.h"
#include "tests/MediaHarness.h"

namespace velqor {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;
using testing::MediaHarness;

struct ImageCase {
  const char* name;
  const char* args;
  enum Source { camera, pick } source;
  enum Expect { dataJpeg, dataPng, file, fileUrlValue, nativeNew, nativeReference, empty, deferred } expect;
  const char* extension;  // of the file written, or "" for none
  int newAssets;
  bool saveFlag;  // as the save step logs it
};
void PrintTo(const ImageCase& c, std::ostream* os) { *os << c.name; }

class ImageDestinations : public MediaHarness, public ::testing::WithParamInterface<ImageCase> {};

TEST_P(ImageDestinations, AnswerFilesAndLibraryRows) {
  const auto& c = GetParam();
  std::string photo = writeCameraJpeg();
  SimPickerChoice choice;
  if (c.source == ImageCase::pick) {
    auto imported = library_->importFile(photo);
    ASSERT_TRUE(imported.ok());
    choice.kind = SimPickerChoice::Kind::pick;
    choice.asset = imported->localIdentifier;
  } else {
    choice.file = photo;
  }
  fixes_ = {LocationFix{-33.5, 151.2, 25, std::chrono::system_clock::now()}};
  build(SimDeviceState{});
  const size_t assetsBefore = library_->list()->size();
  userChooses(choice);
  takePicture(c.args);
  runAllMedia();

  auto answers = answersFor();
  EXPECT_THAT(log_->debugLines(), ::testing::Contains(std::string("saveToPhotoAlbum ") + (c.saveFlag ? "true" : "false")));
  if (c.expect == ImageCase::deferred) {
    EXPECT_TRUE(answers.empty());
    EXPECT_EQ(location_->startedManagers(), 0);
    EXPECT_NE(core().pickerController.load(), nullptr);
    return;
  }
  ASSERT_EQ(answers.size(), 1u);
  EXPECT_EQ(answers[0].status, CommandStatus::OK) << answers[0].toJsonLine();
  Dictionary payload = payloadOf(answers[0]);
  const Value* uri = find(payload, "callbackURI");
  switch (c.expect) {
    case ImageCase::dataJpeg:
      EXPECT_THAT(*uri->asString(), StartsWith("data:image/jpeg;base64,"));
      EXPECT_EQ(uri->asString()->find('\n'), std::string::npos);
      break;
    case ImageCase::dataPng: EXPECT_THAT(*uri->asString(), StartsWith("data:image/png;base64,\x69VBORw0KGgo")); break;
    case ImageCase::file:
    case ImageCase::fileUrlValue: {
      // Text, except for a library picture with location: a URL value.
      ASSERT_TRUE(c.expect == ImageCase::file ? uri->asString() != nullptr : uri->asUrl() != nullptr);
      std::string path = uri->asString() ? *uri->asString() : uri->asUrl()->path();
      EXPECT_THAT(path, StartsWith(dir_.path("tmp/velqor_photo_")));
      EXPECT_THAT(path, ::testing::EndsWith(std::string(".") + c.extension));
      EXPECT_TRUE(std::filesystem::exists(path));
      break;
    }
    case ImageCase::nativeNew: {
      bool matched = false;
      auto rows = *library_->list();
      for (const auto& row : rows) {
        if (*uri->asString() != "assets-library://asset/asset." + std::string(c.extension) + "?id=" +
                                    row.localIdentifier + "%26ext=" + c.extension)
          continue;
        matched = true;
        EXPECT_EQ(row.extension, "PNG");  // the library keeps PNG bytes whatever EXT says
      }
      EXPECT_TRUE(matched) << *uri->asString();
      break;
    }
    case ImageCase::nativeReference:
      EXPECT_THAT(*uri->asString(), StartsWith("assets-library://asset/asset.JPG?id="));
      EXPECT_THAT(*uri->asString(), HasSubstr("&ext=JPG"));
      break;
    case ImageCase::empty:  // a success with an empty dictionary, not without one
      ASSERT_TRUE(std::holds_alternative<Dictionary>(answers[0].payload));
      EXPECT_TRUE(payload.empty());
      break;
    case ImageCase::deferred: break;
  }
  EXPECT_EQ(library_->list()->size() - assetsBefore, static_cast<size_t>(c.newAssets));
}

INSTANTIATE_TEST_SUITE_P(
    Table, ImageDestinations,
    ::testing::Values(
        ImageCase{"dataUrlJpeg", "[50, 0, 1]", ImageCase::camera, ImageCase::dataJpeg, "", 0, false},
        ImageCase{"dataUrlPng", "[50, 0, 1, null, null, 1]", ImageCase::camera, ImageCase::dataPng, "", 0, false},
        ImageCase{"dataUrlNoEncoding", "[50, 0, 1, null, null, 7]", ImageCase::camera, ImageCase::empty, "", 0, false},
        ImageCase{"fileJpeg", "[50, 1, 1]", ImageCase::camera, ImageCase::file, "jpg", 0, false},
        ImageCase{"filePng", "[50, 1, 1, null, null, 1]", ImageCase::camera, ImageCase::file, "png", 0, false},
        ImageCase{"fileScaledCorrected", "[50, 1, 1, 32, 32, 0, 0, false, true]", ImageCase::camera,
                  ImageCase::file, "jpg", 0, false},
        ImageCase{"fileSaved", "[50, 1, 1, null, null, 0, 0, false, false, true]", ImageCase::camera,
                  ImageCase::file, "jpg", 1, true},
        ImageCase{"nativeDefaults", "[]", ImageCase::camera, ImageCase::nativeNew, "JPG", 1, false},
        ImageCase{"nativePng", "[50, 2, 1, null, null, 1]", ImageCase::camera, ImageCase::nativeNew, "PNG", 1, false},
        ImageCase{"nativeSavedTwice", "[50, 2, 1, null, null, 0, 0, false, false, true]", ImageCase::camera,
                  ImageCase::nativeNew, "JPG", 2, true},
        // Already in the library: the save flag is cleared, so nothing is saved and the log says false.
        ImageCase{"nativePickAnswersReference", "[50, 2, 0, null, null, 0, 0, false, false, true]", ImageCase::pick,
                  ImageCase::nativeReference, "", 0, false},
        ImageCase{"filePickWithLocation", "[50, 1, 0, null, null, 0, 0, false, false, false, null, false, true]",
                  ImageCase::pick, ImageCase::fileUrlValue, "jpg", 0, false},
        // PNG starts no location request, yet a camera picture with location requested waits all the same.
        ImageCase{"filePngCameraWithLocation", "[50, 1, 1, null, null, 1, 0, false, false, false, null, false, true]",
                  ImageCase::camera, ImageCase::deferred, "", 0, false},
        ImageCase{"noDestination", "[50, 9, 1, null, null, 0, 0, false, false, true]", ImageCase::camera,
                  ImageCase::empty, "", 0, true}),
    [](const auto& info) { return std::string(info.param.name); });

struct WriteFailure {
  const char* name;
  const char* temporaryDirectory;  // inside the test's directory
  bool removedBeforeTheWrite;
  const char* message;
  size_t filesLeft;
};
void PrintTo(const WriteFailure& c, std::ostream* os) { *os << c.name; }

class ImageFileFailures : public MediaHarness, public ::testing::WithParamInterface<WriteFailure> {
 protected:
  void customize(PlatformServices& s) override {
    MediaHarness::customize(s);
    auto tmp = TemporaryDirectory::open(dir_.path(temporaryDirectory_));
    ASSERT_TRUE(tmp.ok()) << tmp.status();
    s.temporaryDirectory = std::make_shared<const TemporaryDirectory>(*tmp);
  }
  std::string temporaryDirectory_ = "tmp";
};

TEST_P(ImageFileFailures, AnswerUnableFileWriteWithTheirText) {
  const auto& c = GetParam();
  temporaryDirectory_ = c.temporaryDirectory;
  build(SimDeviceState{});
  SimPickerChoice choice;
  choice.file = writeCameraJpeg();
  userChooses(choice);
  const std::string tmp = dir_.path(c.temporaryDirectory);
  if (c.removedBeforeTheWrite) std::filesystem::remove_all(tmp);
  takePicture("[50, 1, 1]");
  runAllMedia();
  auto answers = answersFor();
  ASSERT_EQ(answers.size(), 1u);
  EXPECT_EQ(answers[0].status, CommandStatus::UNABLE_FILE_WRITE);
  EXPECT_EQ(payloadOf(answers[0]), (Dictionary{{"errorMsg", Value(c.message)}}));
  size_t files = 0;
  std::error_code ec;
  for (auto it = std::filesystem::directory_iterator(tmp, ec); !ec && it != std::filesystem::directory_iterator();
       it.increment(ec))
    files += it->path().filename().string().rfind("velqor_photo_", 0) == 0;
  EXPECT_EQ(files, c.filesLeft);
}

INSTANTIATE_TEST_SUITE_P(
    Writes, ImageFileFailures,
    ::testing::Values(WriteFailure{"temporaryDirectoryGone", "tmp", true, "Fail write image file", 0},
                      // A space cannot stand in a URL: the file is written, then no URL names it.
                      WriteFailure{"pathIsNoUrl", "tmp dir", false, "Invalid image path", 1}),
    [](const auto& info) { return std::string(info.param.name); });

class CameraPhotoWithLocation : public MediaHarness {};

TEST_F(CameraPhotoWithLocation, IsAnsweredAfterTheFixWithGpsAndTheCameraExif) {
  fixes_ = {LocationFix{-33.5, 151.2, 25, std::chrono::system_clock::time_point(std::chrono::seconds(1709683199)) +
                                              std::chrono::milliseconds(250)}};
  build(SimDeviceState{});
  SimPickerChoice choice;
  choice.file = writeCameraJpeg();
  userChooses(choice);
  takePicture("[50, 1, 1, null, null, 0, 0, false, false, false, null, false, true]");
  runAll();  // everything but the location queue
  EXPECT_TRUE(answersFor().empty());
  EXPECT_NE(core().pickerController.load(), nullptr);  // left for the deferred delivery
  ASSERT_TRUE(core().data.load());
  EXPECT_TRUE(core().metadata.load()->count("{Exif}"));
  EXPECT_EQ(location_->authorizationRequests(), 1);

  locationQueue_->runUntilIdle();  // the fix arrives off the main queue and answers there
  auto answers = answersFor();
  ASSERT_EQ(answers.size(), 1u);
  Dictionary payload = payloadOf(answers[0]);
  const Url* url = find(payload, "callbackURI")->asUrl();
  ASSERT_TRUE(url) << "the deferred file answer carries a URL value";
  auto bytes = FileBytes::read(url->path());
  ASSERT_TRUE(bytes.ok());
  auto metadata = ImageMetadata::read(*bytes);
  const Dictionary& gps = *find(*metadata, "{GPS}")->asDictionary();
  EXPECT_EQ(*find(gps, "LatitudeRef")->asString(), "S");
  EXPECT_NEAR(*find(gps, "Latitude")->asFloat(), 33.5, 1e-6);
  EXPECT_EQ(*find(gps, "LongitudeRef")->asString(), "E");
  EXPECT_NEAR(*find(gps, "Longitude")->asFloat(), 151.2, 1e-6);
  EXPECT_NEAR(*find(gps, "Altitude")->asFloat(), 25, 1e-6);
  EXPECT_EQ(*find(gps, "TimeStamp")->asString(), "23:59:59.250000");
  EXPECT_EQ(*find(gps, "DateStamp")->asString(), "2024:03:05");
  const Dictionary& exif = *find(*metadata, "{Exif}")->asDictionary();
  EXPECT_EQ(*find(exif, "DateTimeOriginal")->asString(), "2024:03:05 14:07:31");
  EXPECT_NEAR(*find(exif, "ExposureTime")->asFloat(), 1.0 / 120, 1e-9);
  // The capture state is clear again.
  EXPECT_EQ(core().pickerController.load(), nullptr);
  EXPECT_EQ(core().data.load(), nullptr);
  EXPECT_FALSE(core().metadata.load());
  EXPECT_FALSE(core()._hasPendingOperation.load());
}

TEST_F(CameraPhotoWithLocation, ADataUrlIsTheBase64TextAsBytesWithoutAPrefix) {
  fixes_ = {LocationFix{48.85, 2.29, std::nan(""), std::chrono::system_clock::now()},
            LocationFix{1, 1, 1, std::chrono::system_clock::now()}};
  build(SimDeviceState{});
  SimPickerChoice choice;
  choice.file = writeCameraJpeg();
  userChooses(choice);
  takePicture("[50, 0, 1, null, null, 0, 0, false, false, false, null, false, true]");
  runAllMedia();  // both fixes arrive; only the first counts
  auto answers = answersFor();
  ASSERT_EQ(answers.size(), 1u);
  const Dictionary payload = payloadOf(answers[0]);  // the pointer below points into it
  const Bytes* text = find(payload, "callbackURI")->asBytes();
  ASSERT_TRUE(text);
  auto jpeg = base64Decode(std::string(text->begin(), text->end()));
  ASSERT_TRUE(jpeg);
  auto metadata = ImageMetadata::read(Bytes(jpeg->begin(), jpeg->end()));
  const Dictionary& gps = *find(*metadata, "{GPS}")->asDictionary();
  EXPECT_NEAR(*find(gps, "Latitude")->asFloat(), 48.85, 1e-6);
  EXPECT_EQ(find(gps, "Altitude"), nullptr);  // not a number: both altitude keys left out
}

TEST_F(CameraPhotoWithLocation, NativeDestinationWaitsAndIsNeverAnswered) {
  fixes_ = {LocationFix{10, 10, 10, std::chrono::system_clock::now()}};
  build(SimDeviceState{});
  SimPickerChoice choice;
  choice.file = writeCameraJpeg();
  userChooses(choice);
  takePicture("[50, 2, 1, null, null, 0, 0, false, false, false, null, false, true]");
  runAllMedia();
  // The library road encodes nothing, so no location request starts: the command waits.
  EXPECT_TRUE(answersFor().empty());
  EXPECT_EQ(location_->startedManagers(), 0);
  EXPECT_NE(core().pickerController.load(), nullptr);
  // The host delivers it: the native destination sends nothing, and the capture is over.
  plugin_->imagePickerControllerReturnImageResult();
  EXPECT_TRUE(answersFor().empty());
  EXPECT_EQ(core().pickerController.load(), nullptr);
}

TEST_F(CameraPhotoWithLocation, WithoutAFixTheHostCanDeliverItWithItsExifAlone) {
  build(SimDeviceState{});  // no fixes scripted
  SimPickerChoice choice;
  choice.file = writeCameraJpeg();
  userChooses(choice);
  takePicture("[50, 1, 1, null, null, 0, 0, false, false, false, null, false, true]");
  runAllMedia();
  EXPECT_TRUE(answersFor().empty());
  plugin_->imagePickerControllerReturnImageResult();
  ASSERT_EQ(answersFor().size(), 1u);
  auto bytes = FileBytes::read(find(payloadOf(answersFor()[0]), "callbackURI")->asUrl()->path());
  auto metadata = ImageMetadata::read(*bytes);
  EXPECT_TRUE(find(*metadata, "{Exif}"));
  EXPECT_FALSE(find(*metadata, "{GPS}"));
  // A second delivery finds the capture over: nothing more is sent.
  plugin_->imagePickerControllerReturnImageResult();
  EXPECT_EQ(answersFor().size(), 1u);
}

TEST_F(CameraPhotoWithLocation, LibraryPickWithLocationAnswersAtOnce) {
  build(SimDeviceState{});
  auto imported = library_->importFile(writeCameraJpeg());
  SimPickerChoice choice;
  choice.kind = SimPickerChoice::Kind::pick;
  choice.asset = imported->localIdentifier;
  userChooses(choice);
  takePicture("[50, 0, 0, null, null, 0, 0, false, false, false, null, false, true]");
  runAllMedia();
  ASSERT_EQ(answersFor().size(), 1u);
  EXPECT_EQ(location_->startedManagers(), 0);
  EXPECT_TRUE(core().data.load());  // the library picture's bytes, kept for a later re-encode
  EXPECT_FALSE(core().metadata.load());
  // The location request outlives the answer until a command asks otherwise.
  EXPECT_TRUE(plugin_->usesGeolocation());
  EXPECT_EQ(ops_.at("usesGeolocation")(HostCall{}), Value(true));
  takePicture("[50, 0, 0]", "without");
  runAllMedia();
  ASSERT_EQ(answersFor("without").size(), 1u);
  EXPECT_FALSE(plugin_->usesGeolocation());
}

}  // namespace
}  // namespace velqor
