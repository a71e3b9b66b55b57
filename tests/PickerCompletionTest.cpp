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

TEST_F(PickerFinish, WithoutAMediaTypeTheVideoBuilderAnswers) {
  auto picker = presented("[50, 1, 1]");
  finish(picker, Dictionary{});
  runAll();
  ASSERT_EQ(answersFor().size(), 1u);
  EXPECT_EQ(answersFor()[0].status, CommandStatus::FAIL_TAKE_PICTURE);
  EXPECT_EQ(answersFor()[0].messageText(), "Fail take picture");
}

TEST_F(PickerFinish, AnEmptySuccessIsAnsweredWithAnEmptyDictionary) {
  auto picker = presented("[50, 1, 1, null, null, 7]");  // no encoding type: nothing encoded
  finish(picker, Dictionary{{PickerInfoKey::mediaType, Value(kUTTypeImage)}});
  runAll();
  ASSERT_EQ(answersFor().size(), 1u);
  EXPECT_EQ(answersFor()[0].status, CommandStatus::OK);
  EXPECT_EQ(answersFor()[0].toJson()["payload"], nlohmann::json::object());
}

TEST_F(PickerFinish, APickerNotOnTheScreenOrNotTheCamerasIsIgnored) {
  auto picker = presented("[50, 1, 1]");
  auto stranger = std::make_shared<ImagePickerController>(device_);
  finish(stranger, Dictionary{});
  core().ops().pickerDelegate()->imagePickerControllerDidCancel(stranger);
  runAll();
  EXPECT_THAT(answersFor(), IsEmpty());
  EXPECT_EQ(core().pickerController.load(), picker);  // state untouched
}

TEST_F(PickerFinish, NoCurrentCallbackStillEndsTheCapture) {
  build(SimDeviceState{});
  auto picker = std::make_shared<CameraPicker>(device_, device_);
  auto options = std::make_shared<PictureOptions>();
  picker->setup(options);
  plugin_->viewController()->presentViewController(picker, true, nullptr);
  core().pickerController.store(picker);
  core()._hasPendingOperation.store(true);
  runAll();
  core().ops().pickerDelegate()->imagePickerControllerDidCancel(picker);
  runAll();
  EXPECT_EQ(answers_->size(), 0u);
  EXPECT_FALSE(core()._hasPendingOperation.load());
  EXPECT_EQ(core().pickerController.load(), nullptr);
}

}  // namespace
}  // namespace velqor
