// Web soak: data-URL captures through the web host, as the page makes them
// (call, picker upload, answer polled from /api/state), reporting resident
// memory, the bytes of answers kept, and uploads left behind.
//
//   web_soak [CAPTURES]      (default 1000)
//
// Exit 0 when memory after the warm-up grows by less than the goal, the kept
// answers stay within the server's retention, and no upload is left.
#include <httplib.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <thread>

#include "platform/linux/SampleImages.h"
#include "session/DeviceSession.h"
#include "web/WebServer.h"

namespace fs = std::filesystem;
using namespace velqor;

namespace {

constexpr double kGrowthGoalMiB = 64.0;
constexpr size_t kRetainedBytes = size_t{16} << 20;
constexpr int kWarmUp = 50;
const httplib::Headers kPage{{"X-Velqor-Request", "1"}};

double residentMiB() {
  std::ifstream statm("/proc/self/statm");
  long pages = 0, resident = 0;
  statm >> pages >> resident;
  return static_cast<double>(resident) * static_cast<double>(::sysconf(_SC_PAGESIZE)) / (1024.0 * 1024.0);
}

// One capture as the page makes it; false (with a line on stderr) when a step fails.
bool capture(httplib::Client& client, const std::string& photo, size_t& answersSeen) {
  auto call = client.Post("/api/call", kPage, R"({"operation":"takePicture","args":[90,0,1]})",
                          "application/json");
  if (!call || call->status != 200) return std::cerr << "call failed\n", false;
  for (int i = 0; i < 2000; ++i) {
    auto state = client.Get("/api/state?answers=" + std::to_string(answersSeen) + "&events=999999999");
    if (state && nlohmann::json::parse(state->body)["screen"]["picker"].is_object()) break;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  httplib::MultipartFormDataItems items{{"file", photo, "p.jpg", "image/jpeg"}, {"kind", "photo", "", ""}};
  auto chosen = client.Post("/api/picker/file", kPage, items);
  if (!chosen || chosen->status != 200) return std::cerr << "upload failed\n", false;
  for (int i = 0; i < 5000; ++i) {
    auto state = client.Get("/api/state?answers=" + std::to_string(answersSeen) + "&events=999999999");
    if (!state) continue;
    const auto answers = nlohmann::json::parse(state->body)["answers"];
    if (!answers.empty()) {
      answersSeen += answers.size();
      // The summary carries no payload: the answer itself is read by its index.
      auto whole = client.Get("/api/answers/" + std::to_string(answers.back()["index"].get<size_t>()));
      if (!whole || whole->status != 200) return std::cerr << "answer not served\n", false;
      const std::string uri = nlohmann::json::parse(whole->body)["payload"]["callbackURI"];
      if (uri.rfind("data:image/jpeg;base64,", 0) != 0) return std::cerr << "not a data URL\n", false;
      return true;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return std::cerr << "no answer\n", false;
}

}  // namespace

int main(int argc, char** argv) {
  const int captures = argc > 1 ? std::atoi(argv[1]) : 1000;
  std::string pattern = (fs::temp_directory_path() / "velqor-web-soak-XXXXXX").string();
  if (!::mkdtemp(pattern.data())) return 2;
  const std::string root = pattern;
  fs::create_directories(root + "/uploads");
  WebServer::Options options;
  options.port = 0;
  options.uploadsDirectory = root + "/uploads";
  WebServer server(options);
  auto port = server.bind();
  DeviceConfig config;
  config.temporaryDirectory = root + "/tmp";
  config.libraryDirectory = root + "/library";
  auto session = DeviceSession::create(config);
  if (!port.ok() || !session.ok()) return 2;
  auto& s = **session;
  s.host().answers()->setRetentionBytes(kRetainedBytes);
  WebBridge bridge(s, root + "/uploads");
  server.start(bridge, s.services().mainQueue, ContainedFiles({s.services().temporaryDirectory->path()}));
  auto sample = SampleImages::cameraJpeg(1600, 1200, 6, 90);
  const std::string photo(sample->begin(), sample->end());

  std::atomic<bool> done{false};
  std::atomic<int> completed{0};
  double warm = 0;
  std::thread client([&] {
    httplib::Client c("127.0.0.1", *port);
    size_t answersSeen = 0;
    for (int i = 0; i < captures; ++i) {
      if (!capture(c, photo, answersSeen)) break;
      if (++completed == kWarmUp) warm = residentMiB();
    }
    done = true;
  });
  while (!done) {
    s.host().mainQueue().waitForWork(std::chrono::milliseconds(20));
    s.host().mainQueue().runPending();
  }
  client.join();
  const double end = residentMiB();
  size_t keptBytes = 0;
  for (const auto& a : s.host().answers()->answers()) keptBytes += a.toJson().dump().size();
  const bool uploadsEmpty = fs::is_empty(root + "/uploads");
  server.stop();
  std::error_code ec;
  fs::remove_all(root, ec);

  const double growth = end - (warm > 0 ? warm : end);
  std::cout << "captures: " << completed << " of " << captures << "\n"
            << "resident MiB after " << kWarmUp << ": " << warm << ", at the end: " << end << " (growth " << growth
            << ", goal < " << kGrowthGoalMiB << ")\n"
            << "answers kept: " << s.host().answers()->answers().size() << " (" << keptBytes / 1024 << " KiB, retention "
            << kRetainedBytes / 1024 << " KiB)\n"
            << "uploads left: " << (uploadsEmpty ? 0 : 1) << "\n";
  const bool ok = completed == captures && growth < kGrowthGoalMiB && keptBytes <= kRetainedBytes + (8 << 20) &&
                  uploadsEmpty;
  std::cout << (ok ? "web soak: PASS" : "web soak: FAIL") << "\n";
  return ok ? 0 : 1;
}
