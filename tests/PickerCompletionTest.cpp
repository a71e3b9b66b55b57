#include "tests/MediaHarness.h"
#include "tests/TestImages.h"

#include "capture/CameraPicker.h"
#include "platform/PickerInfoKeys.h"

#include <fstream>
#include <optional>

namespace velqor {
namespace {

using ::testing::IsEmpty;
using testing::MediaHarness;

class PickerFinish : public MediaHarness {
 protected:
  // Presents a picker for `args` and returns it, on the screen.
  std::shared_ptr<CameraPicker> presented(const std::string& args) {
    takePicture(args);
    runAll();
    auto picker = std::dynamic_pointer_cast<CameraPicker>(core().pickerController.load());
    EXPECT_TRUE(picker);
    return picker;
  }
  void finish(const std::shared_ptr<ImagePickerController>& picker, Dictionary info) {
    core().ops().pickerDelegate()->imagePickerControllerDidFinishPickingMediaWithInfo(picker, info);
  }
};

TEST_F(PickerFinish, AnswersOnlyAfterThePickerHasLeftTheScreen) {
  auto picker = presented("[50, 0, 1]");
  Dictionary info{{PickerInfoKey::mediaType, Value(kUTTypeImage)},
                  {PickerInfoKey::originalImage,
                   Value(std::shared_ptr<PlatformObject>(PlatformImage::fromBitmap(testing::quadrants(8, 8))))}};
  finish(picker, info);
  main_->runOne();  // asks for the dismissal
  EXPECT_EQ(events_->names().back(), "pickerPresented");
  main_->runOne();  // the dismissal completes and starts the task
  EXPECT_EQ(events_->names().back(), "pickerDismissed");
  EXPECT_THAT(answersFor(), IsEmpty());
  runAll();  // the builder runs on the pool, the answer on the main queue
  ASSERT_EQ(answersFor().size(), 1u);
  EXPECT_FALSE(core()._hasPendingOperation.load());
  EXPECT_EQ(core().pickerController.load(), nullptr);
}

// A camera photo with location requested waits for its fix whatever the image
// builder made of it; the same photo without location is answered at once,
// which shows what the builder produced.
struct DeferralCase {
  const char* name;
  const char* args;
  bool withPixels;       // false: an image without pixels, the builder makes nothing
  bool unusableLibrary;  // the library folder is a plain file: saving fails with a status
  std::optional<CommandStatus> answeredWith;  // absent: nothing answered, state kept
};
void PrintTo(const DeferralCase& c, std::ostream* os) { *os << c.name; }

class PickerDeferral : public PickerFinish, public ::testing::WithParamInterface<DeferralCase> {
 protected:
  void customize(PlatformServices& s) override {
    if (GetParam().unusableLibrary) {
      const std::string blocker = dir_.path("library-is-a-file");
      std::ofstream(blocker) << "not a folder";
      library_ = SqlitePhotoLibrary::openLazily(blocker);
    }
    PickerFinish::customize(s);
  }
};

TEST_P(PickerDeferral, DropsTheBuildersPairUnreadAndKeepsTheState) {
  const auto& c = GetParam();
  auto picker = presented(c.args);
  core()._hasPendingOperation.store(true);
  Dictionary info{{PickerInfoKey::mediaType, Value(kUTTypeImage)}};
  if (c.withPixels)
    info[PickerInfoKey::originalImage] =
        Value(std::shared_ptr<PlatformObject>(PlatformImage::fromBitmap(testing::quadrants(8, 8))));
  finish(picker, info);
  runAllMedia();
  auto answers = answersFor();
  if (!c.answeredWith) {
    EXPECT_THAT(answers, IsEmpty());
    EXPECT_TRUE(core()._hasPendingOperation.load());
    EXPECT_EQ(core().pickerController.load(), picker);
  } else {
    ASSERT_EQ(answers.size(), 1u);
    EXPECT_EQ(answers[0].status, *c.answeredWith);
    EXPECT_FALSE(core()._hasPendingOperation.load());
    EXPECT_EQ(core().pickerController.load(), nullptr);
  }
}

constexpr const char* kCameraLibraryUriWithLocation = "[50, 2, 1, null, null, 0, 0, false, false, false, null, false, true]";
constexpr const char* kCameraLibraryUriNoLocation = "[50, 2, 1, null, null, 0, 0, false, false, false, null, false, false]";
constexpr const char* kCameraFileUriWithLocation = "[50, 1, 1, null, null, 0, 0, false, false, false, null, false, true]";

INSTANTIATE_TEST_SUITE_P(
    Pairs, PickerDeferral,
    ::testing::Values(
        DeferralCase{"emptyPairIsDeferred", kCameraFileUriWithLocation, false, false, std::nullopt},
        DeferralCase{"failingPairIsDeferred", kCameraLibraryUriWithLocation, true, true, std::nullopt},
        DeferralCase{"failingPairWithoutLocationIsAnswered", kCameraLibraryUriNoLocation, true, true,
                     CommandStatus::UNABLE_FILE_WRITE}),
    [](const auto& info) { return std::string(info.param.name); });

// A picker the plug-in must not act on: a plain platform picker on the screen
// (not the plug-in's own), or the plug-in's picker that is not on the screen.
struct StrangerCase {
  const char* name;
  bool cameraPicker;
  bool onScreen;
  bool cancel;
};
void PrintTo(const StrangerCase& c, std::ostream* os) { *os << c.name; }

class PickerGuards : public PickerFinish, public ::testing::WithParamInterface<StrangerCase> {};

TEST_P(PickerGuards, LeaveTheCommandAndTheStateAlone) {
  const auto& c = GetParam();
  std::shared_ptr<ImagePickerController> stranger;
  if (c.cameraPicker) {
    auto picker = std::make_shared<CameraPicker>(device_, device_);
    picker->setup(std::make_shared<PictureOptions>());
    stranger = picker;
  } else {
    stranger = std::make_shared<ImagePickerController>(device_);
  }
  if (c.onScreen) plugin_->viewController()->presentViewController(stranger, true, nullptr);
  runAll();
  const auto sentinel = std::make_shared<CameraPicker>(device_, device_);
  core().currentCallBack.store(command("[50, 0, 1]"));
  core().pickerController.store(sentinel);
  core()._hasPendingOperation.store(true);
  if (c.cancel) {
    core().ops().pickerDelegate()->imagePickerControllerDidCancel(stranger);
  } else {
    finish(stranger, Dictionary{{PickerInfoKey::mediaType, Value(kUTTypeImage)},
                                {PickerInfoKey::originalImage, Value(std::shared_ptr<PlatformObject>(
                                                                   PlatformImage::fromBitmap(testing::quadrants(8, 8))))}});
  }
  runAll();
  EXPECT_THAT(answersFor(), IsEmpty());
  EXPECT_EQ(events_->names().size(), c.onScreen ? 1u : 0u) << "nothing dismissed";
  EXPECT_EQ(core().pickerController.load(), sentinel);
  EXPECT_TRUE(core()._hasPendingOperation.load());
}

INSTANTIATE_TEST_SUITE_P(
    Pickers, PickerGuards,
    ::testing::Values(StrangerCase{"finishFromAPlatformPickerOnTheScreen", false, true, false},
                      StrangerCase{"finishFromThePluginsPickerOffTheScreen", true, false, false},
                      StrangerCase{"cancelFromThePluginsPickerOffTheScreen", true, false, true}),
    [](const auto& info) { return std::string(info.param.name); });

// Without a current callback nothing is sent, yet the capture still ends.
class WithoutACurrentCallback : public PickerFinish, public ::testing::WithParamInterface<bool> {};

TEST_P(WithoutACurrentCallback, NothingIsSentAndTheCaptureEnds) {
  const bool cancel = GetParam();
  auto picker = std::make_shared<CameraPicker>(device_, device_);
  auto options = std::make_shared<PictureOptions>();
  options->sourceType = SourceType::photoLibrary;  // answered at once, whatever the location flag says
  options->destinationType = DestinationType::destinationTypeDataUrl;
  options->encodingType = EncodingType::encodingTypePNG;
  picker->setup(options);
  plugin_->viewController()->presentViewController(picker, true, nullptr);
  core().pickerController.store(picker);
  core()._hasPendingOperation.store(true);
  runAll();
  if (cancel) {
    core().ops().pickerDelegate()->imagePickerControllerDidCancel(picker);
  } else {
    finish(picker, Dictionary{{PickerInfoKey::mediaType, Value(kUTTypeImage)},
                              {PickerInfoKey::originalImage, Value(std::shared_ptr<PlatformObject>(
                                                                 PlatformImage::fromBitmap(testing::quadrants(8, 8))))}});
  }
  runAll();
  EXPECT_EQ(answers_->size(), 0u);
  EXPECT_EQ(events_->names().back(), "pickerDismissed");
  EXPECT_FALSE(core()._hasPendingOperation.load());
  EXPECT_EQ(core().pickerController.load(), nullptr);
}

INSTANTIATE_TEST_SUITE_P(Paths, WithoutACurrentCallback, ::testing::Values(false, true),
                         [](const auto& info) { return std::string(info.param ? "cancel" : "finish"); });

}  // namespace
}  // namespace velqor
