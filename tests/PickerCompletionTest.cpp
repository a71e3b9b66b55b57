#include "tests/MediaHarness.h"
#include "tests/TestImages.h"

#include "capture/CameraPicker.h"
#include "platform/PickerInfoKeys.h"

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

TEST_F(PickerFinish, ADeferredCameraPhotoKeepsItsStateEvenWhenTheBuilderFails) {
  auto picker = presented("[50, 1, 1, null, null, 0, 0, false, false, false, null, false, true]");
  core()._hasPendingOperation.store(true);
  // An image without pixels: the builder produces nothing, and still nothing is answered.
  finish(picker, Dictionary{{PickerInfoKey::mediaType, Value(kUTTypeImage)}});
  runAll();
  EXPECT_THAT(answersFor(), IsEmpty());
  EXPECT_TRUE(core()._hasPendingOperation.load());
  EXPECT_EQ(core().pickerController.load(), picker);
}

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
