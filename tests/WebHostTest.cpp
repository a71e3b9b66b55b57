#include <httplib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <future>

#include <gtest/gtest.h>

#include "session/DeviceSession.h"
#include "platform/linux/SampleImages.h"
#include "tests/RawHttpClient.h"
#include "tests/TestDirectory.h"
#include "web/ContainedFiles.h"
#include "web/HttpFraming.h"
#include "web/LinkFreeOpen.h"
#include "web/IsoTime.h"
#include "web/StaticFolder.h"
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
    dir_.write("app/index.html", "<!doctype html><title>my app</title>");
    dir_.write("app/js/main.mjs", "export const x = 1;");
    options.appDirectory = dir_.path("app");
    options.keepalive = std::chrono::milliseconds(300);
    server_ = std::make_unique<WebServer>(options);
    auto port = server_->bind();
    ASSERT_TRUE(port.ok()) << port.status().message();
    port_ = *port;
    DeviceConfig config;
    config.temporaryDirectory = dir_.path("tmp");
    config.libraryDirectory = dir_.path("library");
    config.fileUrlPrefix = server_->origin() + "/files";
    config.device.bundlePath = std::string(VELQOR_SOURCE_DIR) + "/resources/Velqor.bundle";
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

  // A raw connection's bytes, read while this thread runs the main queue,
  // until `needle` has arrived `times` times or `limit` passes.
  std::string readWhilePumping(int fd, const std::string& needle, size_t times = 1,
                               std::chrono::milliseconds limit = std::chrono::seconds(5)) {
    std::string in;
    const auto end = std::chrono::steady_clock::now() + limit;
    const auto count = [&] {
      size_t n = 0;
      for (size_t at = in.find(needle); at != std::string::npos; at = in.find(needle, at + 1)) ++n;
      return n;
    };
    while (count() < times && std::chrono::steady_clock::now() < end) {
      session_->host().mainQueue().runPending();
      pollfd p{fd, POLLIN, 0};
      if (::poll(&p, 1, 1) <= 0) continue;
      char buffer[8192];
      const ssize_t n = ::recv(fd, buffer, sizeof buffer, 0);
      if (n <= 0) break;
      in.append(buffer, static_cast<size_t>(n));
    }
    return in;
  }
  UniqueFd openEvents(const std::string& extra = "", const std::string& query = "") {
    UniqueFd fd = testing::RawHttpClient::connectTo(port_);
    testing::RawHttpClient::sendAll(fd.get(), "GET /api/events" + query + " HTTP/1.1\r\nHost: 127.0.0.1:" +
                                                  std::to_string(port_) + "\r\n" + extra + "\r\n");
    return fd;
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
  for (int i = 0; i < 500 && (screen.empty() || screen["picker"].is_null()); ++i) {
    session_->host().runUntilQuiescent(std::chrono::milliseconds(10));
    auto state = send([](httplib::Client& c) { return c.Get("/api/state"); });
    ASSERT_TRUE(state);
    screen = nlohmann::json::parse(state->body)["screen"];
  }
  EXPECT_EQ(screen["picker"]["event"], "pickerPresented");
  EXPECT_TRUE(screen["alert"].is_null());

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
  auto fix = postJson("/api/location",
                      R"({"latitude":-33.5,"longitude":151.25,"altitude":12,"timestamp":"2026-05-01T23:30:00-02:00"})");
  ASSERT_EQ(fix->status, 200) << fix->body;
  ASSERT_EQ(session_->host().runUntilAnswered(located, std::chrono::seconds(10)), HostRuntime::RunResult::answered);
  const std::string url = session_->host().answers()->answersFor(located)[0].toJson()["payload"]["callbackURI"];
  auto served = send([&](httplib::Client& c) { return c.Get(url.substr(server_->origin().size())); });
  ASSERT_TRUE(served);
  auto metadata = WebBridge::metadataOf(served->body);
  EXPECT_EQ(metadata["{GPS}"]["LatitudeRef"], "S") << metadata.dump();
  EXPECT_NEAR(metadata["{GPS}"]["Longitude"].get<double>(), 151.25, 1e-6);
  EXPECT_EQ(metadata["{GPS}"]["DateStamp"], "2026:05:02") << "the page's fix time, in UTC";
  EXPECT_EQ(metadata["{GPS}"]["TimeStamp"].get<std::string>().substr(0, 8), "01:30:00");
}

// ---- the app's folder, the push stream, answers by their own route ------------

struct StaticCase {
  std::string name;
  std::string path;
  int status;
  std::string type;  // expected Content-Type when served
};

class StaticFolderTest : public ::testing::TestWithParam<StaticCase> {
 protected:
  void SetUp() override {
    dir_.write("app/index.html", "<h1>app</h1>");
    dir_.write("app/js/app.mjs", "export {}");
    dir_.write("app/style.css", "p{}");
    dir_.write("app/data.bin", "b");
    dir_.write("app/.env", "SECRET=1");
    dir_.write("outside/secret.txt", "secret");
    ::symlink(dir_.path("outside/secret.txt").c_str(), dir_.path("app/escape.txt").c_str());
    ::symlink(dir_.path("outside").c_str(), dir_.path("app/out").c_str());
    ::symlink(dir_.path("app/style.css").c_str(), dir_.path("app/again.css").c_str());
  }
  TestDirectory dir_;
};

TEST_P(StaticFolderTest, ServesOnlyFilesInsideWithTheirType) {
  const auto& c = GetParam();
  auto opened = StaticFolder(dir_.path("app")).open(c.path);
  EXPECT_EQ(opened.ok() ? 200 : 404, c.status) << c.path << ": " << opened.status().message();
  if (opened.ok()) {
    EXPECT_EQ(StaticFolder::contentType(opened->path), c.type);
    char first = 0;
    EXPECT_EQ(::pread(opened->fd.get(), &first, 1, 0), 1);
    EXPECT_NE(first, 's') << "read the outside file";
  }
}

INSTANTIATE_TEST_SUITE_P(
    Paths, StaticFolderTest,
    ::testing::Values(StaticCase{"RootIsIndex", "/", 200, "text/html; charset=utf-8"},
                      StaticCase{"ModuleScript", "/js/app.mjs", 200, "text/javascript; charset=utf-8"},
                      StaticCase{"Style", "/style.css", 200, "text/css; charset=utf-8"},
                      StaticCase{"UnknownTypeIsBytes", "/data.bin", 200, "application/octet-stream"},
                      StaticCase{"LinkStayingInside", "/again.css", 200, "text/css; charset=utf-8"},
                      StaticCase{"FolderWithoutIndex", "/js/", 404, ""},
                      StaticCase{"HiddenFile", "/.env", 404, ""},
                      StaticCase{"DotDot", "/js/../../outside/secret.txt", 404, ""},
                      StaticCase{"LinkToOutsideFile", "/escape.txt", 404, ""},
                      StaticCase{"ThroughLinkedFolder", "/out/secret.txt", 404, ""},
                      StaticCase{"Missing", "/none.js", 404, ""}),
    [](const auto& info) { return info.param.name; });

// A path one resolution left link-free is opened folder by folder; a part
// that is a link by the time of the open (a folder swapped for a link after
// the resolution) is refused, never followed out of the root.
struct LinkFreeCase {
  std::string name;
  std::string path;  // below the test folder; "root/" is the root
  bool opens;
};

class LinkFreeOpenTest : public ::testing::TestWithParam<LinkFreeCase> {
 protected:
  void SetUp() override {
    dir_.write("root/a/b.txt", "inside");
    dir_.write("outside/b.txt", "outside");
    std::filesystem::create_symlink(dir_.path("outside"), dir_.path("root/swapped"));
    std::filesystem::create_symlink(dir_.path("outside/b.txt"), dir_.path("root/a/link.txt"));
    std::filesystem::create_symlink(dir_.path("root/a"), dir_.path("root/again"));
  }
  std::string root() const { return std::filesystem::canonical(dir_.path("root")).string(); }
  testing::TestDirectory dir_;
};

TEST_P(LinkFreeOpenTest, OpensOnlyWhatLiesBelowWithoutALink) {
  const auto& c = GetParam();
  const std::string base = std::filesystem::canonical(dir_.root()).string() + "/";
  UniqueFd fd = LinkFreeOpen::below(root(), base + c.path);
  ASSERT_EQ(fd.valid(), c.opens);
  if (!fd.valid()) return;
  char text[16] = {};
  ASSERT_GT(::read(fd.get(), text, sizeof text - 1), 0);
  EXPECT_STREQ(text, "inside");
}

INSTANTIATE_TEST_SUITE_P(
    Paths, LinkFreeOpenTest,
    ::testing::Values(LinkFreeCase{"PlainFile", "root/a/b.txt", true},
                      LinkFreeCase{"FolderSwappedForALink", "root/swapped/b.txt", false},
                      LinkFreeCase{"LastPartALink", "root/a/link.txt", false},
                      LinkFreeCase{"LinkStayingInside", "root/again/b.txt", false},
                      LinkFreeCase{"OutsideTheRoot", "outside/b.txt", false},
                      LinkFreeCase{"DotDotOut", "root/a/../../outside/b.txt", false},
                      LinkFreeCase{"TheRootItself", "root", false},
                      LinkFreeCase{"MissingFolder", "root/none/b.txt", false}),
    [](const auto& info) { return info.param.name; });

struct FramingCase {
  std::string name;
  HttpFraming::Fields fields;
  int status;  // 0: accepted
};

class HttpFramingTest : public ::testing::TestWithParam<FramingCase> {};

TEST_P(HttpFramingTest, RefusesEveryAmbiguousOrUndeclaredBodyLength) {
  const auto& c = GetParam();
  const auto refusal = HttpFraming::check(c.fields);
  EXPECT_EQ(refusal ? refusal->status : 0, c.status);
}

INSTANTIATE_TEST_SUITE_P(
    Heads, HttpFramingTest,
    ::testing::Values(
        FramingCase{"LengthOnly", {{"Content-Length", "12"}}, 0},
        FramingCase{"NoBody", {{"Accept", "*/*"}}, 0},
        FramingCase{"SameLengthTwice", {{"Content-Length", "5"}, {"Content-Length", "5"}}, 0},
        FramingCase{"ChunkedOnly", {{"Transfer-Encoding", "chunked"}}, 411},
        FramingCase{"ChunkedAnyCase", {{"transfer-encoding", " Chunked "}}, 411},
        FramingCase{"LengthAndChunked", {{"Content-Length", "5"}, {"Transfer-Encoding", "chunked"}}, 400},
        FramingCase{"ChunkedAndLength", {{"Transfer-Encoding", "chunked"}, {"content-length", "0"}}, 400},
        FramingCase{"LargerLengthFirst", {{"Content-Length", "50"}, {"Content-Length", "5"}}, 400},
        FramingCase{"SmallerLengthFirst", {{"Content-Length", "5"}, {"Content-Length", "50"}}, 400},
        FramingCase{"LengthList", {{"Content-Length", "5, 5"}}, 400},
        FramingCase{"NegativeLength", {{"Content-Length", "-1"}}, 400},
        FramingCase{"GzipThenChunked", {{"Transfer-Encoding", "gzip, chunked"}}, 400},
        FramingCase{"ChunkedTwice", {{"Transfer-Encoding", "chunked"}, {"Transfer-Encoding", "chunked"}}, 400},
        FramingCase{"Identity", {{"Transfer-Encoding", "identity"}}, 400}),
    [](const auto& info) { return info.param.name; });

struct TimeCase {
  std::string text;
  long long epochMilliseconds;  // -1: refused
};

class IsoTimeTest : public ::testing::TestWithParam<TimeCase> {};

TEST_P(IsoTimeTest, ReadsTheInstant) {
  const auto& c = GetParam();
  const auto when = IsoTime::parse(c.text);
  if (c.epochMilliseconds < 0) {
    EXPECT_FALSE(when) << c.text;
    return;
  }
  ASSERT_TRUE(when) << c.text;
  EXPECT_EQ(std::chrono::duration_cast<std::chrono::milliseconds>(when->time_since_epoch()).count(),
            c.epochMilliseconds);
}

INSTANTIATE_TEST_SUITE_P(Texts, IsoTimeTest,
                         ::testing::Values(TimeCase{"2026-05-01T12:30:00Z", 1777638600000},
                                           TimeCase{"2026-05-01T12:30:00.250Z", 1777638600250},
                                           TimeCase{"2026-05-01T14:30:00+02:00", 1777638600000},
                                           TimeCase{"2026-05-01T07:00:00-0530", 1777638600000},
                                           TimeCase{"2026-05-01T12:30:00", -1},
                                           TimeCase{"2026-02-30T12:30:00Z", -1},
                                           TimeCase{"2026-05-01 12:30:00Z", -1},
                                           TimeCase{"yesterday", -1}));

TEST_F(WebHostTest, ServesTheAppAtTheRootAndTheControlPanelBelowVelqor) {
  auto index = send([](httplib::Client& c) { return c.Get("/"); });
  ASSERT_TRUE(index);
  EXPECT_EQ(index->status, 200);
  EXPECT_NE(index->body.find("my app"), std::string::npos);
  EXPECT_NE(index->get_header_value("Content-Security-Policy").find("default-src 'self'"), std::string::npos);
  auto module = send([](httplib::Client& c) { return c.Get("/js/main.mjs"); });
  ASSERT_TRUE(module);
  EXPECT_EQ(module->get_header_value("Content-Type"), "text/javascript; charset=utf-8");
  auto panel = send([](httplib::Client& c) { return c.Get("/velqor/"); });
  ASSERT_TRUE(panel);
  EXPECT_EQ(panel->status, 200);
  EXPECT_NE(panel->body.find("<html"), std::string::npos);
  auto missing = send([](httplib::Client& c) { return c.Get("/velqor/none.js"); });
  EXPECT_EQ(missing->status, 404);
  EXPECT_EQ(missing->get_header_value("Connection"), "close");
}

TEST_F(WebHostTest, AChangeReachesAConnectedStreamAndResumingNeitherLosesNorRepeats) {
  UniqueFd stream = openEvents();
  std::string in = readWhilePumping(stream.get(), "\n\n");
  ASSERT_NE(in.find("text/event-stream"), std::string::npos) << in;
  ASSERT_NE(in.find("id: 0.0\nevent: state\ndata: {"), std::string::npos) << in;

  // A settings change makes no event, yet reaches the page.
  const auto changed = std::chrono::steady_clock::now();
  ASSERT_EQ(postJson("/api/device", R"({"hasViewController":false})")->status, 200);
  in = readWhilePumping(stream.get(), "\"hasViewController\":false");
  EXPECT_NE(in.find("\"hasViewController\":false"), std::string::npos) << in;
  RecordProperty("pushMicroseconds", std::to_string(std::chrono::duration_cast<std::chrono::microseconds>(
                                                        std::chrono::steady_clock::now() - changed).count()));

  // An answer arrives as a summary, never with its payload.
  ASSERT_EQ(postJson("/api/call", R"({"operation":"cleanup","args":[]})")->status, 200);
  session_->host().runUntilQuiescent(std::chrono::seconds(5));
  in = readWhilePumping(stream.get(), "\"answerCount\":1");
  ASSERT_NE(in.find("\"answers\":[{"), std::string::npos) << in;
  EXPECT_EQ(in.find("\"payload\""), std::string::npos) << in;
  const auto id = in.rfind("id: 1.");
  ASSERT_NE(id, std::string::npos) << in;
  const std::string lastId = in.substr(id + 4, in.find('\n', id) - id - 4);

  // Quiet: a keepalive comment.
  EXPECT_NE(readWhilePumping(stream.get(), ": keepalive").find(": keepalive"), std::string::npos);

  // Resuming from the last id gets no answer again; from 0, every one.
  UniqueFd resumed = openEvents("Last-Event-ID: " + lastId + "\r\n");
  in = readWhilePumping(resumed.get(), "\n\n");
  EXPECT_NE(in.find("\"answers\":[]"), std::string::npos) << in;
  UniqueFd late = openEvents("", "?answers=0&events=0");
  in = readWhilePumping(late.get(), "\n\n");
  EXPECT_NE(in.find("\"answers\":[{"), std::string::npos) << in;

  // Stopping the server ends every stream at once.
  const auto start = std::chrono::steady_clock::now();
  server_->stop();
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
  EXPECT_TRUE(testing::RawHttpClient::closedBy(stream.get(), std::chrono::seconds(1)));
}

TEST_F(WebHostTest, AnAlertIsShownInTheLanguagesTheDeviceIsSetTo) {
  EXPECT_EQ(postJson("/api/device", R"({"languages":["fr",3]})")->status, 400);
  auto set = postJson("/api/device", R"({"cameraAccess":"denied","languages":["fr-CA","en"]})");
  ASSERT_EQ(set->status, 200) << set->body;
  EXPECT_EQ(nlohmann::json::parse(set->body)["languages"], nlohmann::json({"fr-CA", "en"}));
  ASSERT_EQ(postJson("/api/call", R"({"operation":"takePicture","args":[50,1,1]})")->status, 200);
  session_->host().runUntilQuiescent(std::chrono::seconds(5));
  auto state = send([](httplib::Client& c) { return c.Get("/api/state"); });
  const auto alert = nlohmann::json::parse(state->body)["screen"]["alert"];
  ASSERT_TRUE(alert.is_object()) << state->body;
  EXPECT_EQ(alert["buttons"][1]["title"], "Annuler") << alert.dump();
}

TEST_F(WebHostTest, AnAnswersPayloadComesByItsOwnRouteWithItsLength) {
  ASSERT_EQ(postJson("/api/device", R"({"cameraAccess":"denied"})")->status, 200);
  auto call = postJson("/api/call", R"({"operation":"takePicture","args":[50,1,1]})");
  session_->host().runUntilQuiescent(std::chrono::seconds(5));
  auto state = send([](httplib::Client& c) { return c.Get("/api/state"); });
  const auto summary = nlohmann::json::parse(state->body);
  EXPECT_EQ(summary["screen"]["alert"]["buttons"][1]["style"], "default") << summary["screen"].dump();
  EXPECT_EQ(summary["screen"]["alert"]["buttons"].size(), 2u);
  const auto tapped = std::chrono::system_clock::now();
  ASSERT_EQ(postJson("/api/alert", R"({"button":"cancel"})")->status, 200);
  session_->host().runUntilQuiescent(std::chrono::seconds(5));
  state = send([](httplib::Client& c) { return c.Get("/api/state"); });
  const auto answer = nlohmann::json::parse(state->body)["answers"][0];
  // When the plug-in answered, on the page's clock, so a page can time the answer's road.
  const double since = std::chrono::duration<double, std::milli>(tapped.time_since_epoch()).count();
  EXPECT_GE(answer["answeredAt"].get<double>(), since) << answer.dump();
  EXPECT_LT(answer["answeredAt"].get<double>(), since + 5000) << answer.dump();
  EXPECT_EQ(answer["status"], "NO_PERMISSION") << answer.dump();
  EXPECT_FALSE(answer.contains("payload"));
  EXPECT_EQ(answer["note"], "Not have permission to use the camera.");
  auto whole = send([](httplib::Client& c) { return c.Get("/api/answers/0"); });
  ASSERT_TRUE(whole);
  EXPECT_EQ(whole->status, 200);
  EXPECT_EQ(whole->get_header_value("Content-Length"), std::to_string(whole->body.size()));
  const auto payload = nlohmann::json::parse(whole->body);
  EXPECT_EQ(payload["payload"], "Not have permission to use the camera.");
  EXPECT_EQ(payload["payload"].dump().size(), answer["size"].get<size_t>());
  EXPECT_EQ(payload["callbackId"], nlohmann::json::parse(call->body)["callbackId"]);
  EXPECT_EQ(send([](httplib::Client& c) { return c.Get("/api/answers/1"); })->status, 404);
}

TEST_F(WebHostTest, AFixWithAMalformedTimestampIsRefused) {
  auto bad = postJson("/api/location", R"({"latitude":1,"longitude":2,"timestamp":"noon"})");
  EXPECT_EQ(bad->status, 400);
  EXPECT_NE(bad->body.find("ISO-8601"), std::string::npos);
}

// ---- the request guard, each rule at its edge with every other one satisfied ----

struct GuardCase {
  std::string name;
  std::function<void(RequestGuard::Head&)> change;  // applied to a head that passes every rule
  int status;                                        // 0: passes
};

class RequestGuardEdges : public ::testing::TestWithParam<GuardCase> {};

TEST_P(RequestGuardEdges, RefusesExactlyPastEachRule) {
  const RequestGuard guard("127.0.0.1", 8080,
                           RequestGuard::Limits{.maxJsonBytes = 100, .maxUploadBytes = 1000, .maxImageBytes = 500,
                                                .maxHeaders = 10});
  RequestGuard::Head head;
  head.method = "POST";
  head.path = "/api/call";
  head.host = "127.0.0.1:8080";
  head.customHeader = "1";
  head.contentType = "application/json";
  head.contentLength = 100;
  head.headerCount = 10;
  ASSERT_FALSE(guard.check(head)) << "the base head must pass";
  GetParam().change(head);
  const auto refusal = guard.check(head);
  EXPECT_EQ(refusal ? refusal->status : 0, GetParam().status) << (refusal ? refusal->message : "passed");
}

using H = RequestGuard::Head;
INSTANTIATE_TEST_SUITE_P(
    Rules, RequestGuardEdges,
    ::testing::Values(
        GuardCase{"JsonAtItsLimit", [](H& h) { h.contentLength = 100; }, 0},
        GuardCase{"JsonOnePastItsLimit", [](H& h) { h.contentLength = 101; }, 413},
        GuardCase{"HeadersAtTheCount", [](H& h) { h.headerCount = 10; }, 0},
        GuardCase{"HeadersOnePastTheCount", [](H& h) { h.headerCount = 11; }, 431},
        GuardCase{"HostLocalhost", [](H& h) { h.host = "localhost:8080"; }, 0},
        GuardCase{"HostIpv6Loopback", [](H& h) { h.host = "[::1]:8080"; }, 0},
        GuardCase{"HostWithoutPort", [](H& h) { h.host = "127.0.0.1"; }, 403},
        GuardCase{"HostOtherPort", [](H& h) { h.host = "127.0.0.1:8081"; }, 403},
        GuardCase{"HostRebound", [](H& h) { h.host = "attacker.example:8080"; }, 403},
        GuardCase{"HostMissing", [](H& h) { h.host.reset(); }, 403},
        GuardCase{"OriginOwnAlone", [](H& h) { h.origin = "http://localhost:8080"; }, 0},
        GuardCase{"OriginOtherAlone", [](H& h) { h.origin = "http://evil.example"; }, 403},
        GuardCase{"OriginOtherPortAlone", [](H& h) { h.origin = "http://127.0.0.1:8081"; }, 403},
        GuardCase{"OriginNullAlone", [](H& h) { h.origin = "null"; }, 403},
        GuardCase{"FetchSiteSameOriginAlone", [](H& h) { h.fetchSite = "same-origin"; }, 0},
        GuardCase{"FetchSiteSameSiteAlone", [](H& h) { h.fetchSite = "same-site"; }, 403},
        GuardCase{"FetchSiteCrossSiteAlone", [](H& h) { h.fetchSite = "cross-site"; }, 403},
        GuardCase{"CustomHeaderMissing", [](H& h) { h.customHeader.reset(); }, 403},
        GuardCase{"CustomHeaderNotOne", [](H& h) { h.customHeader = "0"; }, 403},
        GuardCase{"JsonAsText", [](H& h) { h.contentType = "text/plain"; }, 400},
        GuardCase{"GetWithoutBody", [](H& h) { h.method = "GET"; h.path = "/api/state"; h.contentLength = 0; }, 0},
        GuardCase{"GetWithOneByte", [](H& h) { h.method = "GET"; h.path = "/api/state"; h.contentLength = 1; }, 413},
        GuardCase{"UnknownApiRoute", [](H& h) { h.method = "GET"; h.path = "/api/nothing"; h.contentLength.reset(); },
                  404},
        GuardCase{"MetadataNeedsNoCustomHeaderAtItsLimit",
                  [](H& h) { h.path = "/api/metadata"; h.customHeader.reset(); h.contentType = "image/png"; h.contentLength = 500; },
                  0},
        GuardCase{"MetadataOnePastItsLimit",
                  [](H& h) { h.path = "/api/metadata"; h.contentType = "image/png"; h.contentLength = 501; }, 413},
        GuardCase{"UploadAtItsLimit",
                  [](H& h) { h.path = "/api/picker/file"; h.contentType = "multipart/form-data; boundary=x"; h.contentLength = 1000; },
                  0},
        GuardCase{"UploadOnePastItsLimit",
                  [](H& h) { h.path = "/api/picker/file"; h.contentType = "multipart/form-data; boundary=x"; h.contentLength = 1001; },
                  413}),
    [](const auto& info) { return info.param.name; });

}  // namespace
}  // namespace velqor
