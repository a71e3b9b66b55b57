#include <httplib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <future>

#include <gtest/gtest.h>

#include "session/DeviceSession.h"
#include "platform/linux/SampleImages.h"
#include "tests/TestDirectory.h"
#include "web/ContainedFiles.h"
#include "web/WebServer.h"

namespace velqor {
namespace {

using testing::TestDirectory;

// ---- which names the file route opens -------------------------------------

struct ContainedCase {
  std::string name;
  std::string requested;  // relative to the test directory; "/..." is absolute
  bool opens;
};

class ContainedFilesTest : public ::testing::TestWithParam<ContainedCase> {
 protected:
  void SetUp() override {
    dir_.write("tmp/photo.jpg", "jpeg");
    dir_.write("tmp/with space %25 name.jpg", "jpeg");
    dir_.write("library/asset.png", "png");
    dir_.write("outside/secret.txt", "secret");
    ::symlink(dir_.path("outside/secret.txt").c_str(), dir_.path("tmp/escape.jpg").c_str());
    ::symlink(dir_.path("outside").c_str(), dir_.path("tmp/escape-dir").c_str());
    ::symlink(dir_.path("tmp/photo.jpg").c_str(), dir_.path("library/inside-link.jpg").c_str());
    ::mkfifo(dir_.path("tmp/pipe.jpg").c_str(), 0600);
    std::filesystem::create_directories(dir_.path("tmp/sub"));
  }
  TestDirectory dir_;
};

TEST_P(ContainedFilesTest, OpensOnlyRegularFilesInsideTheRoots) {
  ContainedFiles files({dir_.path("tmp"), dir_.path("library")});
  const auto& c = GetParam();
  const std::string requested = c.requested.front() == '/' ? c.requested : dir_.path(c.requested);
  auto opened = files.open(requested);
  EXPECT_EQ(opened.ok(), c.opens) << requested << ": " << opened.status().message();
  if (opened.ok()) {
    char first = 0;
    EXPECT_EQ(::pread(opened->fd.get(), &first, 1, 0), 1);
    EXPECT_NE(first, 's') << "read the outside file";
  }
}

INSTANTIATE_TEST_SUITE_P(
    Names, ContainedFilesTest,
    ::testing::Values(ContainedCase{"TemporaryFile", "tmp/photo.jpg", true},
                      ContainedCase{"NameWithSpaceAndPercent", "tmp/with space %25 name.jpg", true},
                      ContainedCase{"LibraryFile", "library/asset.png", true},
                      ContainedCase{"LinkStayingInside", "library/inside-link.jpg", true},
                      ContainedCase{"LinkToOutsideFile", "tmp/escape.jpg", false},
                      ContainedCase{"ThroughLinkedDirectory", "tmp/escape-dir/secret.txt", false},
                      ContainedCase{"DotDotOut", "tmp/../outside/secret.txt", false},
                      ContainedCase{"DotDotBackIn", "tmp/../tmp/photo.jpg", false},
                      ContainedCase{"OutsideFile", "outside/secret.txt", false},
                      ContainedCase{"SystemFile", "/etc/passwd", false},
                      ContainedCase{"RootItself", "tmp", false},
                      ContainedCase{"Directory", "tmp/sub", false},
                      ContainedCase{"Fifo", "tmp/pipe.jpg", false},
                      ContainedCase{"Missing", "tmp/none.jpg", false}),
    [](const auto& info) { return info.param.name; });

TEST(ContainedFilesRoot, ARootOfSlashContainsNothing) {
  ContainedFiles files({"/"});
  EXPECT_FALSE(files.open("/etc/passwd").ok());
  EXPECT_FALSE(files.open("relative/name").ok());
}

// ---- the HTTP face, malformed and hostile requests ------------------------

// What the page's fetch helper sends with every state-changing request.
const httplib::Headers kPageHeaders{{"X-Velqor-Request", "1"}};

// A web host on a free loopback port; the test thread drives the main queue
// while a client request is in flight.
class WebHostTest : public ::testing::Test {
 protected:
  void SetUp() override {
    WebServer::Options options;
    options.host = "127.0.0.1";
    options.port = 0;
    options.pageDirectory = std::string(VELQOR_SOURCE_DIR) + "/web/page";
    options.maxJsonBytes = 4096;
    options.uploadsDirectory = dir_.path("uploads");
    std::filesystem::create_directories(options.uploadsDirectory);
    server_ = std::make_unique<WebServer>(options);
    auto port = server_->bind();
    ASSERT_TRUE(port.ok()) << port.status().message();
    port_ = *port;
    DeviceConfig config;
    config.temporaryDirectory = dir_.path("tmp");
    config.libraryDirectory = dir_.path("library");
    config.fileUrlPrefix = server_->origin() + "/files";
    auto session = DeviceSession::create(config);
    ASSERT_TRUE(session.ok()) << session.status().message();
    session_ = std::move(*session);
    std::filesystem::create_directories(dir_.path("uploads"));
    bridge_ = std::make_unique<WebBridge>(*session_, dir_.path("uploads"));
    server_->start(*bridge_, session_->services().mainQueue,
                   ContainedFiles({session_->services().temporaryDirectory->path(), dir_.path("library")}));
  }
  void TearDown() override {
    if (server_) server_->stop();
  }

  // Sends a request from another thread and runs the main queue until it is answered.
  httplib::Result send(std::function<httplib::Result(httplib::Client&)> request) {
    auto future = std::async(std::launch::async, [this, request] {
      httplib::Client client("127.0.0.1", port_);
      return request(client);
    });
    while (future.wait_for(std::chrono::milliseconds(1)) != std::future_status::ready)
      session_->host().mainQueue().runPending();
    return future.get();
  }
  httplib::Result postJson(const std::string& path, const std::string& body,
                           const std::string& type = "application/json") {
    return send([=](httplib::Client& c) { return c.Post(path, kPageHeaders, body, type); });
  }

  TestDirectory dir_;
  std::unique_ptr<WebServer> server_;
  int port_ = 0;
  std::unique_ptr<DeviceSession> session_;
  std::unique_ptr<WebBridge> bridge_;
};

struct BadRequest {
  std::string name;
  std::string path;
  std::string type;
  std::string body;
  int status;
  std::string error;
};

class WebHostBadRequestTest : public WebHostTest, public ::testing::WithParamInterface<BadRequest> {};

TEST_P(WebHostBadRequestTest, AnswersWithAStatusAndAMessage) {
  const auto& c = GetParam();
  auto res = postJson(c.path, c.body, c.type);
  ASSERT_TRUE(res) << "no answer";
  EXPECT_EQ(res->status, c.status);
  EXPECT_NE(res->body.find(c.error), std::string::npos) << res->body;
  EXPECT_EQ(session_->host().answers()->size(), 0u) << "a bad request reached the plug-in";
}

INSTANTIATE_TEST_SUITE_P(
    Requests, WebHostBadRequestTest,
    ::testing::Values(
        BadRequest{"NotJson", "/api/call", "application/json", "{oops", 400, "not valid JSON"},
        BadRequest{"FormEncoded", "/api/call", "application/x-www-form-urlencoded", "operation=takePicture", 400,
                   "application/json"},
        BadRequest{"NotAnObject", "/api/call", "application/json", "[1]", 400, "JSON object"},
        BadRequest{"UnknownOperation", "/api/call", "application/json", R"({"operation":"rmRf","args":[]})", 400,
                   "no command operation"},
        BadRequest{"OperationWithColon", "/api/call", "application/json", R"({"operation":"takePicture:"})", 400,
                   "no command operation"},
        BadRequest{"ArgsNotArray", "/api/call", "application/json", R"({"operation":"takePicture","args":3})", 400,
                   "must be an array"},
        BadRequest{"TooLarge", "/api/call", "application/json", std::string(5000, ' ') + "{}", 413, "too large"},
        BadRequest{"NoPickerToPick", "/api/picker/pick", "application/json", R"({"asset":"nope/L0/001"})", 404, "error"},
        BadRequest{"NoAlertToTap", "/api/alert", "application/json", R"({"button":"OK"})", 409, "no alert"},
        BadRequest{"LatitudeOutOfRange", "/api/location", "application/json", R"({"latitude":91,"longitude":0})", 400,
                   "latitude"},
        BadRequest{"UnknownAccessState", "/api/device", "application/json", R"({"cameraAccess":"maybe"})", 400,
                   "unknown access state"},
        BadRequest{"UnknownSetting", "/api/device", "application/json", R"({"jailbreak":true})", 400,
                   "unknown device setting"},
        BadRequest{"FileWithoutMultipart", "/api/picker/file", "application/json", "{}", 400, "multipart"},
        BadRequest{"UnknownRoute", "/api/nothing", "application/json", "{}", 404, "error"},
        BadRequest{"NestedTooDeep", "/api/call", "application/json", std::string(100, '[') + std::string(100, ']'), 400,
                   "more than 64 deep"}),
    [](const auto& info) { return info.param.name; });

TEST_F(WebHostTest, RefusesForeignHostNamesAndFilesOutsideItsDirectories) {
  auto rebound = send([](httplib::Client& c) { return c.Get("/api/state", {{"Host", "attacker.example"}}); });
  ASSERT_TRUE(rebound);
  EXPECT_EQ(rebound->status, 403);
  dir_.write("outside.txt", "secret");
  for (const std::string& path : std::vector<std::string>{"/files" + dir_.path("outside.txt"), "/files/etc/passwd",
                                 "/files" + dir_.path("tmp/../outside.txt"), "/files/" + std::string("%00")}) {
    auto res = send([path](httplib::Client& c) { return c.Get(path); });
    ASSERT_TRUE(res) << path;
    EXPECT_GE(res->status, 400) << path;
    EXPECT_EQ(res->body.find("secret"), std::string::npos) << path;
  }
}

TEST_F(WebHostTest, ACaptureThroughTheBridgeAnswersWithAServedFile) {
  auto call = postJson("/api/call", R"({"operation":"takePicture","args":[40,1,1,200,200]})");
  ASSERT_TRUE(call);
  ASSERT_EQ(call->status, 200) << call->body;
  const std::string id = nlohmann::json::parse(call->body)["callbackId"];
  // The picker comes on the screen once the host has run the presentation.
  nlohmann::json screen;
  for (int i = 0; i < 500 && screen.empty(); ++i) {
    session_->host().runUntilQuiescent(std::chrono::milliseconds(10));
    auto state = send([](httplib::Client& c) { return c.Get("/api/state"); });
    ASSERT_TRUE(state);
    screen = nlohmann::json::parse(state->body)["screen"];
  }
  ASSERT_EQ(screen.size(), 1u);
  EXPECT_EQ(screen[0]["event"], "pickerPresented");

  const std::string photo = dir_.path("photo.jpg");
  auto sample = SampleImages::cameraJpeg(400, 300, 6, 90);
  ASSERT_TRUE(sample.ok());
  dir_.write("photo.jpg", std::string(sample->begin(), sample->end()));
  auto chosen = send([&](httplib::Client& c) {
    httplib::MultipartFormDataItems items{{"file", TestDirectory::read(photo), "photo.jpg", "image/jpeg"},
                                          {"kind", "photo", "", ""}};
    return c.Post("/api/picker/file", kPageHeaders, items);
  });
  ASSERT_TRUE(chosen);
  ASSERT_EQ(chosen->status, 200) << chosen->body;
  EXPECT_EQ(nlohmann::json::parse(chosen->body)["before"]["Orientation"], 6);
  EXPECT_TRUE(std::filesystem::is_empty(dir_.path("uploads"))) << "the upload stayed after the picker took it";

  ASSERT_EQ(session_->host().runUntilAnswered(id, std::chrono::seconds(20)), HostRuntime::RunResult::answered);
  const auto answers = session_->host().answers()->answersFor(id);
  ASSERT_EQ(answers.size(), 1u);
  const std::string url = answers[0].toJson()["payload"]["callbackURI"];
  const std::string prefix = server_->origin() + "/files";
  ASSERT_EQ(url.rfind(prefix, 0), 0u) << url;
  auto served = send([&](httplib::Client& c) { return c.Get(url.substr(server_->origin().size())); });
  ASSERT_TRUE(served);
  EXPECT_EQ(served->status, 200);
  EXPECT_EQ(served->get_header_value("Content-Type"), "image/jpeg");
  EXPECT_EQ(served->body.substr(0, 2), "\xFF\xD8");
}

// The page acts as the user: a camera refused in the device settings shows the
// alert, whose cancel button answers the command; a photo waiting for a
// location fix is answered once the page delivers one, with GPS in the file.
TEST_F(WebHostTest, ThePageActsAsTheUserOnAlertsAndLocation) {
  auto denied = postJson("/api/device", R"({"cameraAccess":"denied"})");
  ASSERT_TRUE(denied);
  ASSERT_EQ(denied->status, 200) << denied->body;
  auto call = postJson("/api/call", R"({"operation":"takePicture","args":[50,1,1]})");
  ASSERT_TRUE(call);
  const std::string refused = nlohmann::json::parse(call->body)["callbackId"];
  session_->host().runUntilQuiescent(std::chrono::seconds(5));
  auto tap = postJson("/api/alert", R"({"button":"cancel"})");
  ASSERT_TRUE(tap);
  ASSERT_EQ(tap->status, 200) << tap->body;
  ASSERT_EQ(session_->host().runUntilAnswered(refused, std::chrono::seconds(5)), HostRuntime::RunResult::answered);
  EXPECT_EQ(session_->host().answers()->answersFor(refused)[0].messageText(), "Not have permission to use the camera.");

  ASSERT_EQ(postJson("/api/device", R"({"cameraAccess":"authorized"})")->status, 200);
  call = postJson("/api/call", R"({"operation":"takePicture","args":[50,1,1,null,null,0,0,false,false,false,null,false,true]})");
  const std::string located = nlohmann::json::parse(call->body)["callbackId"];
  session_->host().runUntilQuiescent(std::chrono::seconds(5));
  auto sample = SampleImages::cameraJpeg(200, 150, 1, 90);
  auto chosen = send([&](httplib::Client& c) {
    httplib::MultipartFormDataItems items{{"file", std::string(sample->begin(), sample->end()), "p.jpg", "image/jpeg"},
                                          {"kind", "photo", "", ""}};
    return c.Post("/api/picker/file", kPageHeaders, items);
  });
  ASSERT_EQ(chosen->status, 200) << chosen->body;
  session_->host().runUntilQuiescent(std::chrono::seconds(10));
  EXPECT_FALSE(session_->host().answers()->isAnswered(located)) << "answered before the fix";
  auto fix = postJson("/api/location", R"({"latitude":-33.5,"longitude":151.25,"altitude":12})");
  ASSERT_EQ(fix->status, 200) << fix->body;
  ASSERT_EQ(session_->host().runUntilAnswered(located, std::chrono::seconds(10)), HostRuntime::RunResult::answered);
  const std::string url = session_->host().answers()->answersFor(located)[0].toJson()["payload"]["callbackURI"];
  auto served = send([&](httplib::Client& c) { return c.Get(url.substr(server_->origin().size())); });
  ASSERT_TRUE(served);
  auto metadata = WebBridge::metadataOf(served->body);
  EXPECT_EQ(metadata["{GPS}"]["LatitudeRef"], "S") << metadata.dump();
  EXPECT_NEAR(metadata["{GPS}"]["Longitude"].get<double>(), 151.25, 1e-6);
}

}  // namespace
}  // namespace velqor
