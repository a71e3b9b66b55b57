#include <gtest/gtest.h>

#include "host/FileBytes.h"
#include "imaging/codecs/LinuxImageCodec.h"
#include "platform/linux/SampleImages.h"
#include "session/DeviceSession.h"
#include "tests/TestDirectory.h"
#include "web/WebBridge.h"

namespace velqor {
namespace {

using nlohmann::json;
using testing::TestDirectory;

// The bridge as the page drives it, on the test's own thread: the test runs
// the host's main queue between the page's requests.
class WebBridgeTest : public ::testing::Test {
 protected:
  void SetUp() override {
    DeviceConfig config;
    config.temporaryDirectory = dir_.path("tmp");
    config.libraryDirectory = dir_.path("library");
    config.fileUrlPrefix = "http://127.0.0.1:1/files";
    auto session = DeviceSession::create(config);
    ASSERT_TRUE(session.ok()) << session.status().message();
    session_ = std::move(*session);
    std::filesystem::create_directories(dir_.path("uploads"));
    bridge_ = std::make_unique<WebBridge>(*session_, dir_.path("uploads"));
  }

  void settle() { session_->host().runUntilQuiescent(std::chrono::seconds(10)); }

  std::string call(const std::string& args) {
    auto r = bridge_->call(json{{"operation", "takePicture"}, {"args", json::parse(args)}});
    EXPECT_TRUE(r.ok()) << r.status().message();
    settle();
    return r.ok() ? (*r)["callbackId"].get<std::string>() : std::string();
  }

  std::string samplePhoto(int width, int height) {
    auto jpeg = SampleImages::cameraJpeg(width, height, 1, 90);
    EXPECT_TRUE(jpeg.ok());
    return jpeg.ok() ? std::string(jpeg->begin(), jpeg->end()) : std::string();
  }

  // The "open" entries of the page's state for one command.
  std::vector<json> openFor(const std::string& id) {
    std::vector<json> out;
    const json state = bridge_->state(0, 0);
    for (const auto& o : state["open"])
      if (o["command"] == id) out.push_back(o);
    return out;
  }

  TestDirectory dir_;
  std::unique_ptr<DeviceSession> session_;
  std::unique_ptr<WebBridge> bridge_;
};

// ---- why a command is open --------------------------------------------------

enum class UserStep { nothing, tapSettings, choosePhoto, cancel, callAgain };

struct OpenCase {
  std::string name;
  std::string device;  // a device change first, or empty
  std::string args;
  UserStep step;
  std::string reason;  // part of the explanation; empty: the command is answered, not open
  std::string action;
  friend void PrintTo(const OpenCase& c, std::ostream* os) { *os << c.name; }
};

class OpenCommands : public WebBridgeTest, public ::testing::WithParamInterface<OpenCase> {};

TEST_P(OpenCommands, SayWhyAndWhatMovesThemOn) {
  const auto& c = GetParam();
  if (!c.device.empty()) {
    ASSERT_TRUE(bridge_->configureDevice(json::parse(c.device)).ok());
  }
  const std::string id = call(c.args);
  switch (c.step) {
    case UserStep::nothing: break;
    case UserStep::tapSettings: ASSERT_TRUE(bridge_->tapAlert({{"button", "settings"}}).ok()); break;
    case UserStep::choosePhoto: ASSERT_TRUE(bridge_->finishPickerWithFile("photo", "p.jpg", samplePhoto(64, 48), "").ok()); break;
    case UserStep::cancel: ASSERT_TRUE(bridge_->cancelPicker().ok()); break;
    case UserStep::callAgain: call(c.args); break;
  }
  settle();
  const auto open = openFor(id);
  if (c.reason.empty()) {
    EXPECT_TRUE(open.empty()) << json(open).dump();
    EXPECT_TRUE(session_->host().answers()->isAnswered(id));
    return;
  }
  ASSERT_FALSE(open.empty()) << "the command is not listed as open";
  EXPECT_NE(open[0]["reason"].get<std::string>().find(c.reason), std::string::npos) << open[0].dump();
  EXPECT_EQ(open[0]["action"], c.action);
  EXPECT_EQ(open[0]["operation"], "takePicture");
  EXPECT_EQ(open[0]["reason"].get<std::string>().find("--"), std::string::npos) << "a command-line hint in the page";
}

constexpr const char* kWithLocation = "[50,1,1,null,null,0,0,false,false,false,null,false,true]";

INSTANTIATE_TEST_SUITE_P(
    Cases, OpenCommands,
    ::testing::Values(
        OpenCase{"AlertWaitsForATap", R"({"cameraAccess":"denied"})", "[50,1,1]", UserStep::nothing,
                 "an alert is on the screen waiting for a tap", "tapAlert"},
        OpenCase{"SettingsWereOpened", R"({"cameraAccess":"denied"})", "[50,1,1]", UserStep::tapSettings,
                 "the settings page was opened from the permission alert", "none"},
        OpenCase{"PickerWaitsForTheUser", "", "[50,1,1]", UserStep::nothing, "the picker is on the screen", "finishPicker"},
        OpenCase{"PhotoWaitsForAFix", "", kWithLocation, UserStep::choosePhoto, "waits for a location fix", "deliverFix"},
        OpenCase{"ReplacedByALaterCommand", "", "[50,1,1]", UserStep::callAgain, "a later takePicture replaced it", "none"},
        OpenCase{"LimitedLibrary", R"({"libraryAccess":"limited"})", "[50,1,0]", UserStep::nothing,
                 "photo-library access is limited", "none"},
        OpenCase{"CancelledIsAnswered", "", "[50,1,1]", UserStep::cancel, "", ""},
        OpenCase{"PhotoIsAnswered", "", "[50,1,1]", UserStep::choosePhoto, "", ""}),
    [](const auto& info) { return info.param.name; });

// Settings opened for an earlier command do not follow a later one around.
TEST_F(WebBridgeTest, ALaterCommandHasOnlyItsOwnReasons) {
  ASSERT_TRUE(bridge_->configureDevice({{"cameraAccess", "denied"}}).ok());
  call("[50,1,1]");
  ASSERT_TRUE(bridge_->tapAlert({{"button", "settings"}}).ok());
  settle();
  ASSERT_TRUE(bridge_->configureDevice({{"cameraAccess", "authorized"}}).ok());
  const std::string second = call("[50,1,1]");
  const auto open = openFor(second);
  ASSERT_EQ(open.size(), 1u) << json(open).dump();
  EXPECT_EQ(open[0]["action"], "finishPicker");
}

// ---- a library pick cropped in the picker -----------------------------------

TEST_F(WebBridgeTest, ALibraryPickIsCroppedAndShowsItsMetadataBefore) {
  dir_.write("photo.jpg", samplePhoto(800, 600));
  auto imported = session_->library().importFile(dir_.path("photo.jpg"));
  ASSERT_TRUE(imported.ok()) << imported.status();
  const std::string id = call("[50,1,0,null,null,0,0,true]");
  auto picked = bridge_->pickAsset({{"asset", imported->localIdentifier}, {"edit", "100,50,300,200"}});
  ASSERT_TRUE(picked.ok()) << picked.status().message();
  EXPECT_EQ((*picked)["before"]["PixelWidth"], 800);
  EXPECT_EQ((*picked)["before"]["{Exif}"]["DateTimeOriginal"], "2024:03:05 14:07:31");
  settle();
  const auto answers = session_->host().answers()->answersFor(id);
  ASSERT_EQ(answers.size(), 1u);
  const std::string url = answers[0].toJson()["payload"]["callbackURI"];
  const std::string prefix = "http://127.0.0.1:1/files";
  ASSERT_EQ(url.rfind(prefix, 0), 0u) << url;
  auto bytes = FileBytes::read(url.substr(prefix.size()));
  ASSERT_TRUE(bytes.ok()) << bytes.status();
  LinuxImageCodec codec;
  auto image = codec.imageWithData(std::make_shared<const Bytes>(std::move(*bytes)));
  ASSERT_TRUE(image);
  EXPECT_EQ(image->size().width, 300);
  EXPECT_EQ(image->size().height, 200);
}

struct BadEdit {
  std::string name;
  json edit;
  friend void PrintTo(const BadEdit& c, std::ostream* os) { *os << c.name; }
};

class BadEdits : public WebBridgeTest, public ::testing::WithParamInterface<BadEdit> {};

// A crop the page cannot mean is refused with a message; the picker stays up
// and the command stays open for a good pick.
TEST_P(BadEdits, AreRefusedAndThePickerStays) {
  dir_.write("photo.jpg", samplePhoto(64, 48));
  auto imported = session_->library().importFile(dir_.path("photo.jpg"));
  ASSERT_TRUE(imported.ok());
  const std::string id = call("[50,1,0,null,null,0,0,true]");
  auto picked = bridge_->pickAsset({{"asset", imported->localIdentifier}, {"edit", GetParam().edit}});
  ASSERT_FALSE(picked.ok());
  EXPECT_NE(picked.status().message().find("edit"), std::string::npos) << picked.status().message();
  settle();
  ASSERT_EQ(openFor(id).size(), 1u);
  EXPECT_EQ(openFor(id)[0]["action"], "finishPicker");
}

INSTANTIATE_TEST_SUITE_P(Edits, BadEdits,
                         ::testing::Values(BadEdit{"Words", "all of it"}, BadEdit{"ThreeNumbers", "1,2,3"},
                                           BadEdit{"ZeroWidth", "0,0,0,10"}, BadEdit{"Negative", "-5,0,10,10"},
                                           BadEdit{"TrailingJunk", "0,0,10,10;rm"}, BadEdit{"NotText", json::array({0, 0, 1, 1})}),
                         [](const auto& info) { return info.param.name; });

}  // namespace
}  // namespace velqor
