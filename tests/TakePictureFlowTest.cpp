#include "tests/PluginHarness.h"

#include "capture/CameraPicker.h"

namespace velqor {
namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;
using testing::PluginHarness;

struct FlowCase {
  const char* name;
  const char* args;
  std::function<void(SimDeviceState&)> device;
  std::optional<CommandStatus> status;  // none: the command stays open
  const char* message;
  std::vector<std::string> events;
  bool pendingAfter;
};
void PrintTo(const FlowCase& c, std::ostream* os) { *os << c.name; }

class TakePictureBranches : public PluginHarness, public ::testing::WithParamInterface<FlowCase> {};

TEST_P(TakePictureBranches, AnswerEventsAndState) {
  const auto& c = GetParam();
  SimDeviceState state;
  c.device(state);
  build(state);
  takePicture(c.args);
  runAll();

  auto answers = answersFor();
  if (c.status) {
    ASSERT_EQ(answers.size(), 1u);
    EXPECT_EQ(answers[0].status, *c.status);
    EXPECT_EQ(answers[0].messageText(), c.message);
    EXPECT_FALSE(answers[0].keepCallback);
  } else {
    EXPECT_THAT(answers, IsEmpty());
  }
  EXPECT_THAT(events_->names(), ElementsAreArray(c.events));
  EXPECT_EQ(core()._hasPendingOperation.load(), c.pendingAfter);
}

using S = SimDeviceState;
auto device(std::function<void(S&)> f) { return f; }
const auto plain = device([](S&) {});

INSTANTIATE_TEST_SUITE_P(
    Branches, TakePictureBranches,
    ::testing::Values(
        FlowCase{"noCamera", "[]", device([](S& s) { s.availableSources = {0, 2}; }),
                 CommandStatus::OBJECT_REFERENCE_FAILED, "Camera disabled device", {}, true},
        FlowCase{"unknownSourceUnavailable", "[50, 1, 7]", plain, CommandStatus::OBJECT_REFERENCE_FAILED,
                 "Camera disabled device", {}, true},
        FlowCase{"unknownSourceAvailable", "[50, 1, 7]", device([](S& s) { s.availableSources.insert(7); }),
                 std::nullopt, "", {}, true},
        FlowCase{"cameraAuthorized", "[50, 1, 1]", plain, std::nullopt, "", {"pickerPresented"}, false},
        FlowCase{"cameraDeniedCancel", "[]", device([](S& s) {
                   s.cameraAccess = AccessState::denied;
                   s.alertTap = "cancel";
                 }),
                 CommandStatus::NO_PERMISSION, "Not have permission to use the camera.",
                 {"alertShown", "alertTapped", "alertDismissed"}, false},
        FlowCase{"cameraRestrictedSettings", "[]", device([](S& s) {
                   s.cameraAccess = AccessState::restricted;
                   s.alertTap = "settings";
                 }),
                 std::nullopt, "", {"alertShown", "alertTapped", "settingsOpened", "alertDismissed"}, true},
        FlowCase{"cameraAskedAndRefused", "[]", device([](S& s) {
                   s.cameraAccess = AccessState::notDetermined;
                   s.cameraRequestGranted = false;
                   s.alertTap = "cancel";
                 }),
                 CommandStatus::NO_PERMISSION, "Not have permission to use the camera.",
                 {"permissionRequested", "permissionAnswered", "alertShown", "alertTapped", "alertDismissed"}, false},
        FlowCase{"cameraAskedAndGranted", "[]", device([](S& s) { s.cameraAccess = AccessState::notDetermined; }),
                 std::nullopt, "", {"permissionRequested", "permissionAnswered", "pickerPresented"}, false},
        FlowCase{"cameraAllMediaTypes", "[50, 1, 1, null, null, 0, 2]", plain, CommandStatus::INVALID_PARAM,
                 "Not supported mediaType", {}, true},
        FlowCase{"cameraAskedAllMediaTypes", "[50, 1, 1, null, null, 0, 2]",
                 device([](S& s) { s.cameraAccess = AccessState::notDetermined; }), CommandStatus::INVALID_PARAM,
                 "Not supported mediaType", {"permissionRequested", "permissionAnswered"}, true},
        FlowCase{"libraryAllMediaTypes", "[50, 1, 0, null, null, 0, 2]", plain, std::nullopt, "",
                 {"pickerPresented"}, false},
        FlowCase{"libraryVideoUsesCamera", "[50, 1, 0, null, null, 0, 1]",
                 device([](S& s) { s.libraryAccess = AccessState::denied; }), std::nullopt, "",
                 {"pickerPresented"}, false},
        FlowCase{"libraryAskedAndRefused", "[50, 1, 0]", device([](S& s) {
                   s.libraryAccess = AccessState::notDetermined;
                   s.libraryRequestAnswer = AccessState::denied;
                 }),
                 CommandStatus::NO_PERMISSION, "has no access to PhotoLibrary",
                 {"permissionRequested", "permissionAnswered"}, true},
        FlowCase{"libraryAskedAndRestricted", "[50, 1, 2]", device([](S& s) {
                   s.libraryAccess = AccessState::notDetermined;
                   s.libraryRequestAnswer = AccessState::restricted;
                 }),
                 CommandStatus::NO_PERMISSION, "has no access to PhotoLibrary",
                 {"permissionRequested", "permissionAnswered"}, true},
        FlowCase{"libraryAskedAndGranted", "[50, 1, 0]", device([](S& s) { s.libraryAccess = AccessState::notDetermined; }),
                 std::nullopt, "", {"permissionRequested", "permissionAnswered", "pickerPresented"}, false},
        FlowCase{"libraryAskedAndLimited", "[50, 1, 0]", device([](S& s) {
                   s.libraryAccess = AccessState::notDetermined;
                   s.libraryRequestAnswer = AccessState::limited;
                 }),
                 std::nullopt, "", {"permissionRequested", "permissionAnswered"}, true},
        FlowCase{"libraryLimited", "[50, 1, 0]", device([](S& s) { s.libraryAccess = AccessState::limited; }),
                 std::nullopt, "", {}, true},
        FlowCase{"libraryDeniedCancel", "[50, 1, 0]", device([](S& s) {
                   s.libraryAccess = AccessState::denied;
                   s.alertTap = "cancel";
                 }),
                 CommandStatus::NO_PERMISSION, "has no access to PhotoLibrary.",
                 {"alertShown", "alertTapped", "alertDismissed"}, true},
        FlowCase{"libraryDeniedSettings", "[50, 1, 2]", device([](S& s) {
                   s.libraryAccess = AccessState::restricted;
                   s.alertTap = "settings";
                 }),
                 CommandStatus::NO_PERMISSION, "has no access to PhotoLibrary.",
                 {"alertShown", "alertTapped", "settingsOpened", "alertDismissed"}, true},
        FlowCase{"libraryDeniedNoSettingsPage", "[50, 1, 0]", device([](S& s) {
                   s.libraryAccess = AccessState::denied;
                   s.alertTap = "settings";
                   s.settingsUrlAvailable = false;
                 }),
                 std::nullopt, "", {"alertShown", "alertTapped", "alertDismissed"}, true}),
    [](const auto& info) { return std::string(info.param.name); });

class TakePictureFlowTest : public PluginHarness {};

TEST_F(TakePictureFlowTest, SourceCheckLogsTheSourceAndLine) {
  SimDeviceState s;
  s.availableSources = {};
  build(s);
  takePicture("[50, 1, 2]");
  runAll();
  auto errors = log_->errors();
  ASSERT_EQ(errors.size(), 1u);
  EXPECT_EQ(errors[0].message, "Camera.getPicture: source type 2 not available.");
  EXPECT_EQ(errors[0].line, 118);
  EXPECT_EQ(errors[0].funcName, "takePicture(_:)");
  EXPECT_EQ(errors[0].filename, "VelqorCameraPlugin");
}

TEST_F(TakePictureFlowTest, ALibraryRequestIsAskedFromTheMainQueueAndRefusedToItsOwnCommand) {
  SimDeviceState s;
  s.libraryAccess = AccessState::notDetermined;
  s.libraryRequestAnswer = AccessState::denied;
  build(s);
  takePicture("[50, 1, 0]", "asked");
  main_->runOne();  // the flow: it only queues the request
  EXPECT_THAT(events_->names(), IsEmpty());
  takePicture("[50, 1, 1]", "newer");  // a camera command becomes the current one meanwhile
  main_->runOne();  // the queued block asks the user
  EXPECT_THAT(events_->names(), ElementsAre("permissionRequested"));
  main_->runUntilIdle();  // the newer command's picker comes up
  EXPECT_THAT(answersFor("asked"), IsEmpty());
  platform_->runUntilIdle();  // the refusal is answered right there, off the main queue
  EXPECT_FALSE(main_->hasPending());
  ASSERT_EQ(answersFor("asked").size(), 1u);
  EXPECT_EQ(answersFor("asked")[0].status, CommandStatus::NO_PERMISSION);
  EXPECT_EQ(answersFor("asked")[0].messageText(), "has no access to PhotoLibrary");
  EXPECT_THAT(answersFor("newer"), IsEmpty());
  EXPECT_THAT(log_->debugLines(), ElementsAre("PHAuthorization denied or restricted"));
}

TEST_F(TakePictureFlowTest, CameraGrantArrivesOffMainAndOnlyQueuesThePicker) {
  SimDeviceState s;
  s.cameraAccess = AccessState::notDetermined;
  build(s);
  takePicture("[]");
  main_->runUntilIdle();
  EXPECT_EQ(core().pickerController.load(), nullptr);
  platform_->runUntilIdle();  // the grant: addCameraVC queues the picker work
  EXPECT_EQ(core().pickerController.load(), nullptr);
  EXPECT_TRUE(main_->hasPending());
  main_->runUntilIdle();
  EXPECT_NE(core().pickerController.load(), nullptr);
  EXPECT_THAT(events_->names(), ElementsAre("permissionRequested", "permissionAnswered", "pickerPresented"));
}

TEST_F(TakePictureFlowTest, EveryStepIsQueuedAndThePendingFlagFallsOnceThePickerIsShown) {
  main_->post([this] { takePicture("[]"); });
  main_->runOne();
  EXPECT_FALSE(core()._hasPendingOperation.load());  // queued even from the main queue
  main_->runOne();  // the flow: authorized, the picker work is queued
  EXPECT_TRUE(core()._hasPendingOperation.load());
  EXPECT_EQ(core().pickerController.load(), nullptr);
  main_->runOne();  // the picker is made, set up and handed to the screen
  EXPECT_NE(core().pickerController.load(), nullptr);
  EXPECT_THAT(events_->names(), IsEmpty());
  EXPECT_TRUE(core()._hasPendingOperation.load()) << "lowered before the picker is on the screen";
  main_->runOne();  // the presentation completes
  EXPECT_THAT(events_->names(), ElementsAre("pickerPresented"));
  EXPECT_FALSE(core()._hasPendingOperation.load());
}

TEST_F(TakePictureFlowTest, AFreshPlugInHoldsNothingAndHasMadeNothing) {
  EXPECT_EQ(core().currentCallBack.load(), nullptr);
  EXPECT_FALSE(core()._hasPendingOperation.load());
  EXPECT_EQ(core().cameraDelegate, nullptr);
  EXPECT_EQ(core().pickerController.load(), nullptr);
  EXPECT_EQ(core().data.load(), nullptr);
  EXPECT_FALSE(core().metadata.load());
  EXPECT_EQ(core()._locationManager.load(), nullptr);
  EXPECT_TRUE(std::filesystem::is_empty(dir_.path("tmp")));
  EXPECT_FALSE(main_->hasPending());
  EXPECT_THAT(events_->names(), IsEmpty());
}

struct ReleaseCase {
  const char* name;
  const char* args;
  std::function<void(SimDeviceState&)> device;
  const char* answer;  // what still reaches the command; "" for nothing
};
void PrintTo(const ReleaseCase& c, std::ostream* os) { *os << c.name; }

class ReleasedBeforeThePermissionAnswer : public PluginHarness, public ::testing::WithParamInterface<ReleaseCase> {};

TEST_P(ReleasedBeforeThePermissionAnswer, ShowsNothingAndOnlyALibraryRefusalStillAnswers) {
  const auto& c = GetParam();
  SimDeviceState s;
  c.device(s);
  build(s);
  takePicture(c.args);
  main_->runUntilIdle();  // the user is asked; the answer waits on the platform thread
  std::weak_ptr<PluginCore> released = plugin_->core();
  plugin_.reset();
  ops_.clear();
  ASSERT_TRUE(released.expired());
  platform_->runUntilIdle();
  main_->runUntilIdle();
  EXPECT_THAT(events_->names(), ElementsAre("permissionRequested", "permissionAnswered"));
  auto answers = answersFor();
  if (*c.answer) {
    ASSERT_EQ(answers.size(), 1u);
    EXPECT_EQ(answers[0].messageText(), c.answer);
  } else {
    EXPECT_THAT(answers, IsEmpty());
  }
}

INSTANTIATE_TEST_SUITE_P(
    Answers, ReleasedBeforeThePermissionAnswer,
    ::testing::Values(
        ReleaseCase{"cameraGranted", "[]", device([](S& s) { s.cameraAccess = AccessState::notDetermined; }), ""},
        ReleaseCase{"cameraRefused", "[]", device([](S& s) {
                      s.cameraAccess = AccessState::notDetermined;
                      s.cameraRequestGranted = false;
                      s.alertTap = "cancel";
                    }), ""},
        ReleaseCase{"libraryAuthorized", "[50, 1, 0]", device([](S& s) { s.libraryAccess = AccessState::notDetermined; }),
                    ""},
        // The library handler holds the command itself, not the plug-in.
        ReleaseCase{"libraryDenied", "[50, 1, 0]", device([](S& s) {
                      s.libraryAccess = AccessState::notDetermined;
                      s.libraryRequestAnswer = AccessState::denied;
                    }), "has no access to PhotoLibrary"}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(TakePictureFlowTest, WithoutViewControllerThePickerIsMadeButNeverShown) {
  build(SimDeviceState{}, /*withViewController=*/false);
  takePicture("[]");
  runAll();
  EXPECT_NE(core().pickerController.load(), nullptr);
  EXPECT_THAT(events_->names(), IsEmpty());
  EXPECT_THAT(answersFor(), IsEmpty());
  EXPECT_TRUE(core()._hasPendingOperation.load());
}

TEST_F(TakePictureFlowTest, PromptsWithoutViewControllerShowNothing) {
  SimDeviceState s;
  s.cameraAccess = AccessState::denied;
  s.alertTap = "cancel";
  build(s, false);
  takePicture("[]");
  runAll();
  plugin_->retryPermission();
  runAll();
  EXPECT_THAT(events_->names(), IsEmpty());
  EXPECT_THAT(answersFor(), IsEmpty());
}

TEST_F(TakePictureFlowTest, ASecondCommandReceivesTheFirstCommandsLaterAnswers) {
  SimDeviceState s;
  s.cameraAccess = AccessState::denied;
  build(s);
  takePicture("[]", "first");
  runAll();
  takePicture("[50, 1, 1, null, null, 0, 2]", "second");
  runAll();
  // The second command was answered for its media type; the first prompt is still up.
  ASSERT_EQ(answersFor("second").size(), 0u);  // camera refused before the media-type check
  EXPECT_TRUE(device_->tapAlertButton("cancel"));
  runAll();
  EXPECT_THAT(answersFor("first"), IsEmpty());
  ASSERT_EQ(answersFor("second").size(), 1u);
  EXPECT_EQ(answersFor("second")[0].messageText(), "Not have permission to use the camera.");
}

TEST_F(TakePictureFlowTest, RetryPermissionBeforeAnyCommandAnswersNothing) {
  plugin_->retryPermission();
  runAll();
  EXPECT_THAT(events_->names(), ElementsAre("alertShown"));
  EXPECT_TRUE(device_->tapAlertButton("cancel"));
  runAll();
  EXPECT_EQ(answers_->size(), 0u);
}

TEST_F(TakePictureFlowTest, RetryPermissionAfterACommandAnswersItsCallback) {
  SimDeviceState s;
  s.cameraAccess = AccessState::denied;
  s.alertTap = "settings";
  build(s);
  takePicture("[]");
  runAll();
  EXPECT_THAT(answersFor(), IsEmpty());  // the camera prompt's settings button answers nothing
  plugin_->retryPermission();
  runAll();
  ASSERT_EQ(answersFor().size(), 1u);
  EXPECT_EQ(answersFor()[0].messageText(), "has no access to PhotoLibrary.");
  EXPECT_TRUE(core()._hasPendingOperation.load());  // unchanged by the prompt
}

TEST_F(TakePictureFlowTest, NoSecondPresentationOverAPickerOnTheScreen) {
  takePicture("[]");
  runAll();
  plugin_->retryPermission();
  runAll();
  EXPECT_THAT(events_->names(), ElementsAre("pickerPresented", "presentationRefused"));
}

struct PickerCase {
  const char* name;
  const char* args;
  std::int64_t source;
  std::vector<std::string> mediaTypes;
  std::int64_t captureMode;
  std::int64_t cameraDevice;
  bool editing;
  const char* stdoutLine;
};
void PrintTo(const PickerCase& c, std::ostream* os) { *os << c.name; }

class PickerSetup : public PluginHarness, public ::testing::WithParamInterface<PickerCase> {};

TEST_P(PickerSetup, ConfiguresThePickerFromTheOptions) {
  const auto& c = GetParam();
  ::testing::internal::CaptureStdout();
  takePicture(c.args);
  runAll();
  std::string out = ::testing::internal::GetCapturedStdout();
  EXPECT_EQ(out, std::string(c.stdoutLine) + "\n");
  auto picker = std::dynamic_pointer_cast<CameraPicker>(core().pickerController.load());
  ASSERT_TRUE(picker);
  EXPECT_EQ(picker->sourceType(), c.source);
  EXPECT_EQ(picker->mediaTypes(), c.mediaTypes);
  EXPECT_EQ(picker->cameraCaptureMode(), c.captureMode);
  EXPECT_EQ(picker->cameraDevice(), c.cameraDevice);
  EXPECT_EQ(picker->allowsEditing(), c.editing);
  EXPECT_EQ(picker->modalPresentationStyle(), 0);
  EXPECT_EQ(picker->statusBarUpdates(), 1);
  EXPECT_EQ(picker->pictureOptions()->sourceType, c.source);
}

INSTANTIATE_TEST_SUITE_P(
    Options, PickerSetup,
    ::testing::Values(
        PickerCase{"cameraPhotoFront", "[50,1,1,null,null,0,0,false,false,false,null,true]", 1, {"public.image"}, 0, 1,
                   false, "cameraDirection front"},
        PickerCase{"cameraVideoIgnoresFront", "[50,1,1,null,null,0,1,false,false,false,null,true]", 1,
                   {"public.movie"}, 1, 0, false, "cameraDirection front"},
        PickerCase{"cameraNoMediaType", "[50,1,1,null,null,0,9]", 1, {"public.image"}, 0, 0, false,
                   "cameraDirection rear"},
        PickerCase{"albumVideo", "[50,1,2,null,null,0,1]", 2, {"public.video"}, 0, 0, false, "cameraDirection rear"},
        PickerCase{"libraryAll", "[50,1,0,null,null,0,2]", 0, {"public.image", "public.movie"}, 0, 0, false,
                   "cameraDirection rear"},
        PickerCase{"libraryPictureEditing", "[50,1,0,null,null,0,0,true]", 0, {"public.image"}, 0, 0, true,
                   "cameraDirection rear"}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(TakePictureFlowTest, ALibraryPickerForEveryMediaTypeFallsBackToStillImagesWithoutAPlatformList) {
  SimDeviceState bare;
  bare.availableSources = {};  // the platform lists no media types for any source
  auto device = std::make_shared<SimDevice>(bare, main_, platform_, events_);
  auto options = std::make_shared<PictureOptions>();
  options->sourceType = SourceType::photoLibrary;
  options->mediaType = MediaType::mediaTypeAll;
  auto picker = std::make_shared<CameraPicker>(device, device);
  picker->setMediaTypes({kUTTypeMovie});
  ::testing::internal::CaptureStdout();
  picker->setup(options);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "cameraDirection rear\n");
  EXPECT_EQ(picker->mediaTypes(), std::vector<std::string>{kUTTypeImage});
}

struct CancelCase {
  const char* name;
  const char* args;
  std::int64_t cameraAccessAtCancel;
  std::int64_t libraryAccessAtCancel;
  const char* message;
};
void PrintTo(const CancelCase& c, std::ostream* os) { *os << c.name; }

class PickerCancel : public PluginHarness, public ::testing::WithParamInterface<CancelCase> {};

TEST_P(PickerCancel, AnswersNoPermissionWithTheMessageForTheAccessState) {
  const auto& c = GetParam();
  takePicture(c.args);
  runAll();
  auto s = device_->state();
  s.cameraAccess = c.cameraAccessAtCancel;
  s.libraryAccess = c.libraryAccessAtCancel;
  device_->setState(s);
  ASSERT_TRUE(device_->cancelPicker());
  main_->runOne();  // the cancel work: asks for the dismissal
  EXPECT_THAT(answersFor(), IsEmpty()) << "answered before the picker left the screen";
  runAll();
  ASSERT_EQ(answersFor().size(), 1u);
  EXPECT_EQ(answersFor()[0].status, CommandStatus::NO_PERMISSION);
  auto answers = answersFor();
  auto* payload = std::get_if<Dictionary>(&answers[0].payload);
  ASSERT_TRUE(payload);
  EXPECT_EQ(*payload, (Dictionary{{"errorMsg", Value(c.message)}}));
  EXPECT_FALSE(core()._hasPendingOperation.load());
  EXPECT_EQ(core().pickerController.load(), nullptr);
}

INSTANTIATE_TEST_SUITE_P(
    Table, PickerCancel,
    ::testing::Values(CancelCase{"cameraGranted", "[]", 3, 0, "no image selected"},
                      CancelCase{"cameraDenied", "[]", 2, 3, "has no access to camera"},
                      CancelCase{"cameraNotDetermined", "[]", 0, 3, "has no access to camera"},
                      CancelCase{"libraryGranted", "[50,1,0]", 0, 3, "no image selected"},
                      CancelCase{"libraryNotDetermined", "[50,1,0]", 3, 0, "has no access to assets"},
                      CancelCase{"libraryLimited", "[50,1,0]", 3, 4, "has no access to assets"},
                      CancelCase{"albumIsNotCamera", "[50,1,2]", 3, 2, "has no access to assets"}),
    [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace velqor
