// The web host's request handling as a fuzz target: each input is the bytes a
// client sends on one connection, handed to a running WebServer through a
// socket pair, with the device session's main queue driven on a thread.
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <poll.h>
#include <thread>

#include "fuzz/FuzzTargets.h"
#include "session/DeviceSession.h"
#include "web/WebServer.h"

namespace velqor::fuzz {
namespace {

// One server for the whole fuzzing process, torn down at exit.
class HttpHarness {
 public:
  HttpHarness() {
    std::string pattern = (std::filesystem::temp_directory_path() / "velqor-http-fuzz-XXXXXX").string();
    if (!::mkdtemp(pattern.data())) return;
    root_ = pattern;
    std::filesystem::create_directories(root_ + "/uploads");
    WebServer::Options options;
    options.port = 0;
    options.uploadsDirectory = root_ + "/uploads";
    options.maxJsonBytes = 64 * 1024;
    server_ = std::make_unique<WebServer>(options);
    if (!server_->bind().ok()) return;
    DeviceConfig config;
    config.temporaryDirectory = root_ + "/tmp";
    config.libraryDirectory = root_ + "/library";
    auto session = DeviceSession::create(config);
    if (!session.ok()) return;
    session_ = std::move(*session);
    bridge_ = std::make_unique<WebBridge>(*session_, root_ + "/uploads");
    server_->start(*bridge_, session_->services().mainQueue,
                   ContainedFiles({session_->services().temporaryDirectory->path(), root_ + "/library"}));
    driver_ = std::thread([this] {
      while (!stop_) {
        session_->host().mainQueue().waitForWork(std::chrono::milliseconds(20));
        session_->host().mainQueue().runPending();
      }
    });
  }
  ~HttpHarness() {
    if (server_) server_->stop();
    stop_ = true;
    if (driver_.joinable()) driver_.join();
    bridge_.reset();
    session_.reset();
    std::error_code ec;
    if (!root_.empty()) std::filesystem::remove_all(root_, ec);
  }
  bool ready() const { return bridge_ != nullptr; }

  // Sends the bytes, closes the sending side, and reads the answer until the
  // server closes (or a few seconds pass).
  void exchange(const std::uint8_t* data, std::size_t size) {
    int pair[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair) != 0) return;
    if (!server_->adopt(pair[1]).ok()) {
      ::close(pair[0]);
      return;
    }
    for (size_t sent = 0; sent < size;) {
      const ssize_t n = ::send(pair[0], data + sent, size - sent, MSG_NOSIGNAL);
      if (n <= 0) break;
      sent += static_cast<size_t>(n);
    }
    ::shutdown(pair[0], SHUT_WR);
    char buffer[65536];
    pollfd p{pair[0], POLLIN, 0};
    while (::poll(&p, 1, 5000) > 0 && ::recv(pair[0], buffer, sizeof buffer, 0) > 0) {
    }
    ::close(pair[0]);
  }

 private:
  std::string root_;
  std::unique_ptr<WebServer> server_;
  std::unique_ptr<DeviceSession> session_;
  std::unique_ptr<WebBridge> bridge_;
  std::atomic<bool> stop_{false};
  std::thread driver_;
};

}  // namespace

int httpRequest(const std::uint8_t* data, std::size_t size) {
  static HttpHarness harness;
  if (harness.ready()) harness.exchange(data, size);
  return 0;
}

std::vector<std::pair<std::string, std::string>> httpSeeds() {
  const std::string host = "Host: 127.0.0.1:1\r\n";
  const std::string json = R"({"operation":"takePicture","args":[50,1,1]})";
  return {
      {"state.http", "GET /api/state?answers=0&events=0 HTTP/1.1\r\n" + host + "\r\n"},
      {"call.http", "POST /api/call HTTP/1.1\r\n" + host + "Content-Type: application/json\r\nX-Velqor-Request: 1\r\n" +
                        "Content-Length: " + std::to_string(json.size()) + "\r\n\r\n" + json},
      {"chunked.http", "POST /api/device HTTP/1.1\r\n" + host +
                           "Content-Type: application/json\r\nX-Velqor-Request: 1\r\nTransfer-Encoding: chunked\r\n\r\n"
                           "5\r\n{\"cam\r\n3\r\nx\":1\r\n1\r\n}\r\n0\r\n\r\n"},
      {"upload.http", [&] {
         const std::string form =
             "--Bq7x\r\nContent-Disposition: form-data; name=\"kind\"\r\n\r\nphoto\r\n--Bq7x\r\n"
             "Content-Disposition: form-data; name=\"file\"; filename=\"a.jpg\"\r\n\r\nxx\r\n--Bq7x--\r\n";
         return "POST /api/picker/file HTTP/1.1\r\n" + host +
                "Content-Type: multipart/form-data; boundary=Bq7x\r\nX-Velqor-Request: 1\r\nContent-Length: " +
                std::to_string(form.size()) + "\r\n\r\n" + form;
       }()},
      {"deep.http", "POST /api/alert HTTP/1.1\r\n" + host + "Content-Type: application/json\r\nX-Velqor-Request: 1\r\n" +
                        "Content-Length: 2000\r\n\r\n" + std::string(1000, '[') + std::string(1000, ']')},
      {"files.http", "GET /files/etc/passwd HTTP/1.1\r\n" + host + "\r\n"},
      {"pipelined.http", "GET / HTTP/1.1\r\n" + host + "\r\nGET /app.js HTTP/1.1\r\n" + host + "\r\n"},
  };
}

}  // namespace velqor::fuzz
