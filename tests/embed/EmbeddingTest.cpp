// The embedding API as a program that links libvelqor_camera.so sees it: only
// the headers of include/velqor/ are used here.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <turbojpeg.h>

#include <filesystem>
#include <fstream>
#include <functional>

#include <unistd.h>

#include <velqor/Velqor.h>

namespace {
namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::StartsWith;
using Action = velqor::DeviceSetup::PickerAction;

// A gradient JPEG written with libjpeg-turbo, so this test needs nothing private.
void writeJpeg(const fs::path& path, int width, int height) {
  std::vector<unsigned char> rgb(static_cast<size_t>(width) * height * 3);
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x) {
      unsigned char* p = &rgb[(static_cast<size_t>(y) * width + x) * 3];
      p[0] = static_cast<unsigned char>(x * 255 / width);
      p[1] = static_cast<unsigned char>(y * 255 / height);
      p[2] = 128;
    }
  tjhandle handle = tjInitCompress();
  unsigned char* jpeg = nullptr;
  unsigned long size = 0;
  ASSERT_EQ(tjCompress2(handle, rgb.data(), width, 0, height, TJPF_RGB, &jpeg, &size, TJSAMP_420, 90, 0), 0);
  std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(jpeg), static_cast<std::streamsize>(size));
  tjFree(jpeg);
  tjDestroy(handle);
}

class EmbeddingFixture : public ::testing::Test {
 protected:
  void SetUp() override {
    work_ = fs::temp_directory_path() / ("velqor-embed-" + std::to_string(::getpid()) + "-" +
                                         ::testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::remove_all(work_);
    fs::create_directories(work_);
    writeJpeg(work_ / "photo.jpg", 640, 480);
  }
  void TearDown() override { fs::remove_all(work_); }

  velqor::DeviceSetup setup() const {
    velqor::DeviceSetup s;
    s.temporaryDirectory = (work_ / "tmp").string();
    s.libraryDirectory = (work_ / "library").string();
    s.language = "en";
    return s;
  }
  std::unique_ptr<velqor::CameraSession> open(const velqor::DeviceSetup& s) {
    auto session = velqor::CameraSession::open(s);
    EXPECT_TRUE(session.ok()) << session.status().message();
    return session.ok() ? std::move(*session) : nullptr;
  }

  fs::path work_;
};

// One capture from the call to its answer, for each road a user can take.
struct CaptureCase {
  const char* name;
  std::function<void(velqor::DeviceSetup&, const fs::path& work)> device;
  const char* arguments;
  velqor::CameraPlugin::RunOutcome outcome;
  velqor::CommandStatus status;
  const char* payloadStart;  // the answer's payload JSON starts with this
};

class Captures : public EmbeddingFixture, public ::testing::WithParamInterface<CaptureCase> {};

TEST_P(Captures, AnswerAsTheUserActed) {
  const auto& c = GetParam();
  auto s = setup();
  c.device(s, work_);
  auto session = open(s);
  ASSERT_TRUE(session);
  auto& plugin = session->plugin();
  auto id = plugin.callCommand("takePicture:", c.arguments);
  ASSERT_TRUE(id.ok()) << id.status().message();
  EXPECT_EQ(plugin.runUntilAnswered(*id, std::chrono::seconds(60)), c.outcome);
  auto answers = plugin.answersFor(*id);
  if (c.outcome != velqor::CameraPlugin::RunOutcome::answered) {
    EXPECT_TRUE(answers.empty());
    EXPECT_THAT(session->whyOpen().front(), HasSubstr(c.payloadStart));
    return;
  }
  ASSERT_EQ(answers.size(), 1u);
  EXPECT_EQ(answers[0].status, c.status);
  EXPECT_THAT(answers[0].payloadJson, StartsWith(c.payloadStart));
  EXPECT_FALSE(answers[0].afterFinal);
  EXPECT_THAT(answers[0].jsonLine, HasSubstr(answers[0].payloadJson));
}

void takesPhoto(velqor::DeviceSetup& s, const fs::path& work) {
  s.pickerAction = Action::photo;
  s.pickerFile = (work / "photo.jpg").string();
}

using Outcome = velqor::CameraPlugin::RunOutcome;
using velqor::CommandStatus;
INSTANTIATE_TEST_SUITE_P(
    Roads, Captures,
    ::testing::Values(
        CaptureCase{"photoAsDataUrl", takesPhoto, "[50, 0, 1, 320, 240]", Outcome::answered, CommandStatus::OK,
                    R"({"callbackURI":"data:image/jpeg;base64,/9j/)"},
        CaptureCase{"photoAsPngDataUrl", takesPhoto, "[50, 0, 1, 160, 120, 1]", Outcome::answered, CommandStatus::OK,
                    R"({"callbackURI":"data:image/png;base64,iVBOR)"},
        CaptureCase{"cancelled", [](auto& s, auto&) { s.pickerAction = Action::cancel; }, "[]", Outcome::answered,
                    CommandStatus::NO_PERMISSION, R"({"errorMsg":)"},
        CaptureCase{"noCamera", [](auto& s, auto&) { s.sources = {"library"}; }, "[]", Outcome::answered,
                    CommandStatus::OBJECT_REFERENCE_FAILED, R"("Camera disabled device")"},
        CaptureCase{"cameraDeniedThenCancel",
                    [](auto& s, auto&) {
                      s.cameraAccess = "denied";
                      s.alertTap = "cancel";
                    },
                    "[]", Outcome::answered, CommandStatus::NO_PERMISSION, R"("Not have permission to use the camera.")"},
        CaptureCase{"allMediaFromCamera", takesPhoto, "[50, 1, 1, null, null, 0, 2]", Outcome::answered,
                    CommandStatus::INVALID_PARAM, R"("Not supported mediaType")"},
        CaptureCase{"noViewController", [](auto& s, auto&) { s.viewController = false; }, "[]", Outcome::open,
                    CommandStatus::OK, "no view controller"}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(EmbeddingFixture, FileUriAnswerNamesAFileInTheTemporaryDirectory) {
  auto s = setup();
  takesPhoto(s, work_);
  auto session = open(s);
  ASSERT_TRUE(session);
  auto id = session->plugin().callCommand("takePicture:", "[50, 1, 1, 200, 200]");
  ASSERT_TRUE(id.ok());
  ASSERT_EQ(session->plugin().runUntilAnswered(*id, std::chrono::seconds(60)), Outcome::answered);
  const std::string payload = session->plugin().answersFor(*id).at(0).payloadJson;
  const std::string tmp = session->temporaryDirectory();
  ASSERT_THAT(payload, HasSubstr(tmp));
  const auto start = payload.find(tmp);
  const fs::path file = payload.substr(start, payload.find('"', start) - start);
  EXPECT_TRUE(fs::is_regular_file(file)) << file;
  EXPECT_EQ(file.extension(), ".jpg");
  const auto events = session->events();
  ASSERT_FALSE(events.empty());
  EXPECT_THAT(events.front(), HasSubstr(R"("event":"pickerPresented")"));
}

TEST_F(EmbeddingFixture, TheAnswerHandlerSeesEachAnswerOnce) {
  auto s = setup();
  s.pickerAction = Action::cancel;
  auto session = open(s);
  ASSERT_TRUE(session);
  std::vector<velqor::CommandAnswer> seen;
  session->plugin().setAnswerHandler([&seen](const velqor::CommandAnswer& a) { seen.push_back(a); });
  auto id = session->plugin().callCommand("takePicture:");
  ASSERT_TRUE(id.ok());
  session->plugin().runUntilAnswered(*id, std::chrono::seconds(30));
  session->plugin().runUntilQuiescent(std::chrono::seconds(10));
  ASSERT_EQ(seen.size(), 1u);
  EXPECT_EQ(seen[0].callbackId, *id);
  EXPECT_EQ(seen[0].jsonLine, session->plugin().answersFor(*id).at(0).jsonLine);
}

// A setup the session cannot use is refused by name, before anything is created.
struct RefusedSetup {
  const char* name;
  std::function<void(velqor::DeviceSetup&)> change;
  const char* named;  // the message names this
};

class SetupRefusals : public EmbeddingFixture, public ::testing::WithParamInterface<RefusedSetup> {};

TEST_P(SetupRefusals, NameTheField) {
  auto s = setup();
  GetParam().change(s);
  auto session = velqor::CameraSession::open(s);
  ASSERT_FALSE(session.ok());
  EXPECT_THAT(session.status().message(), HasSubstr(GetParam().named));
  EXPECT_FALSE(fs::exists(work_ / "library")) << "nothing is created for a refused setup";
}

INSTANTIATE_TEST_SUITE_P(
    Fields, SetupRefusals,
    ::testing::Values(RefusedSetup{"access", [](auto& s) { s.cameraAccess = "sometimes"; }, "cameraAccess"},
                      RefusedSetup{"limitedCamera", [](auto& s) { s.cameraAccess = "limited"; }, "cameraAccess"},
                      RefusedSetup{"source", [](auto& s) { s.sources = {"moon"}; }, "moon"},
                      RefusedSetup{"photoWithoutFile", [](auto& s) { s.pickerAction = Action::photo; }, "pickerFile"},
                      RefusedSetup{"fileWithoutAction", [](auto& s) { s.pickerFile = "x.jpg"; }, "pickerFile"},
                      RefusedSetup{"editWhileWaiting", [](auto& s) { s.edit = std::array<double, 4>{0, 0, 9, 9}; },
                                   "edit"},
                      RefusedSetup{"bundleTwice",
                                   [](auto& s) {
                                     s.withoutBundle = true;
                                     s.bundleDirectory = "/nowhere";
                                   },
                                   "bundleDirectory"},
                      RefusedSetup{"latitude", [](auto& s) { s.locationFixes = {{100, 0, {}, {}}}; }, "latitude"},
                      RefusedSetup{"sharedTemp", [](auto& s) { s.temporaryDirectory = "/tmp"; }, "/tmp"}),
    [](const auto& info) { return std::string(info.param.name); });

// Calls by host name: the wrong kind of call or malformed JSON is refused; the
// plain operations answer as the plug-in does.
struct HostCallCase {
  const char* name;
  bool command;
  const char* operation;
  const char* json;
  bool accepted;
  const char* resultHas;  // accepted: the result contains this; refused: the message does
};

class HostCalls : public EmbeddingFixture, public ::testing::WithParamInterface<HostCallCase> {};

TEST_P(HostCalls, AnswerOrRefuse) {
  const auto& c = GetParam();
  auto s = setup();
  s.language = "fr";
  auto session = open(s);
  ASSERT_TRUE(session);
  auto result = c.command ? session->plugin().callCommand(c.operation, c.json)
                          : session->plugin().callPlain(c.operation, c.json);
  ASSERT_EQ(result.ok(), c.accepted) << (result.ok() ? *result : result.status().message());
  EXPECT_THAT(result.ok() ? *result : result.status().message(), HasSubstr(c.resultHas));
  session->plugin().runUntilQuiescent(std::chrono::seconds(10));
}

INSTANTIATE_TEST_SUITE_P(
    Operations, HostCalls,
    ::testing::Values(HostCallCase{"unknown", true, "takePhoto:", "[]", false, "takePhoto:"},
                      HostCallCase{"plainAsCommand", true, "tempFilePath:", "[]", false, "callPlain"},
                      HostCallCase{"commandAsPlain", false, "cleanup:", "null", false, "callCommand"},
                      HostCallCase{"argumentsNotArray", true, "takePicture:", "{\"a\": 1}", false, "array"},
                      HostCallCase{"malformed", false, "getLocalizingString:", "\"CANCEL", false, "not JSON"},
                      HostCallCase{"installedStrings", false, "getLocalizingString:", "\"CANCEL\"", true, "\"Annuler\""},
                      HostCallCase{"geolocationBeforeAnyCapture", false, "usesGeolocation", "null", true, "false"},
                      HostCallCase{"tempPath", false, "tempFilePath:", "\"png\"", true, ".png\""},
                      HostCallCase{"cleanup", true, "cleanup:", "[]", true, "VelqorCamera"}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(EmbeddingFixture, OperationNamesAreTheHostNames) {
  auto session = open(setup());
  ASSERT_TRUE(session);
  EXPECT_THAT(session->plugin().operationNames(),
              ::testing::IsSupersetOf({"takePicture:", "cleanup:", "retryPermission", "usesGeolocation",
                                       "urlTransformer:", "tempFilePath:", "getLocalizingString:",
                                       "imagePickerControllerReturnImageResult"}));
}

class Scenarios : public EmbeddingFixture {};

TEST_F(Scenarios, AShippedScenarioPassesAndAWrongExpectationIsReported) {
  const fs::path shipped = fs::path(VELQOR_SOURCE_DIR) / "scenarios" / "camera-denied-cancel.json";
  auto report = velqor::ScenarioPlayer::run(shipped.string(), (work_ / "runs").string());
  ASSERT_TRUE(report.ok()) << report.status().message();
  EXPECT_TRUE(report->passed);
  EXPECT_EQ(report->answers.size(), 1u);

  std::ifstream in(shipped);
  std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  text.replace(text.find("\"NO_PERMISSION\""), 15, "\"INVALID_PARAM\"");
  std::ofstream(work_ / "wrong.json") << text;
  auto wrong = velqor::ScenarioPlayer::run((work_ / "wrong.json").string(), (work_ / "runs").string());
  ASSERT_TRUE(wrong.ok());
  EXPECT_FALSE(wrong->passed);
  ASSERT_FALSE(wrong->differences.empty());
  EXPECT_THAT(wrong->differences.front(), HasSubstr("INVALID_PARAM"));

  EXPECT_FALSE(velqor::ScenarioPlayer::run((work_ / "none.json").string(), (work_ / "runs").string()).ok());
}

}  // namespace
