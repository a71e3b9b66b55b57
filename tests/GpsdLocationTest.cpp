#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <condition_variable>
#include <fstream>

#include "host/FileBytes.h"
#include "platform/linux/GpsdLocationService.h"
#include "platform/linux/ImageMetadata.h"
#include "results/Geolocation.h"
#include "tests/MediaHarness.h"

extern char** environ;

namespace velqor {
namespace {

// A recorded NMEA log: fixes at 33.5 S, 151.2 E, 25 m, on 5 March 2024.
std::string nmeaLog() {
  auto sentence = [](const std::string& body) {
    unsigned cs = 0;
    for (char c : body) cs ^= static_cast<unsigned char>(c);
    char tail[8];
    std::snprintf(tail, sizeof tail, "*%02X\r\n", cs);
    return "$" + body + tail;
  };
  std::string log;
  for (int i = 0; i < 40; ++i) {
    char t[32];
    std::snprintf(t, sizeof t, "2359%02d.25", 10 + i);
    log += sentence(std::string("GPGGA,") + t + ",3330.0000,S,15112.0000,E,1,08,0.9,25.0,M,0.0,M,,");
    log += sentence(std::string("GPRMC,") + t + ",A,3330.0000,S,15112.0000,E,0.0,0.0,050324,,,A");
  }
  return log;
}

// A port nobody listens on now, for a private gpsd.
std::string freePort() {
  int fd = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof addr;
  if (fd < 0 || ::bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0 ||
      ::getsockname(fd, reinterpret_cast<sockaddr*>(&addr), &size) != 0) {
    if (fd >= 0) ::close(fd);
    return std::to_string(29500 + ::getpid() % 400);
  }
  ::close(fd);
  return std::to_string(ntohs(addr.sin_port));
}

bool accepting(const std::string& port) {
  int fd = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  addr.sin_port = htons(static_cast<std::uint16_t>(std::stoi(port)));
  const bool ok = fd >= 0 && ::connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0;
  if (fd >= 0) ::close(fd);
  return ok;
}

// Generous: a loaded machine may take many seconds to start gpsd and feed it.
constexpr auto kDeadline = std::chrono::seconds(60);

// gpsd's replay tool feeding the log to a private gpsd on a port of its own,
// over and over, so a client that connects late on a loaded machine still
// hears fixes. Each test starts once gpsd accepts connections.
class GpsdReplay : public testing::MediaHarness {
 protected:
  void SetUp() override {
    MediaHarness::SetUp();
    if (::access("/usr/bin/gpsfake", X_OK) != 0 || ::access("/usr/sbin/gpsd", X_OK) != 0)
      GTEST_SKIP() << "gpsd or gpsfake is not installed (scripts/install-deps.sh installs them); skipping the "
                      "gpsd-backed location tests";
    std::ofstream(dir_.path("fix.nmea")) << nmeaLog();
    port_ = freePort();
    std::string timeout = "/usr/bin/timeout", seconds = "600", fake = "/usr/bin/gpsfake", quiet = "-q",
                cycle = "-c", cycleValue = "0.05", portFlag = "-P", log = dir_.path("fix.nmea");
    char* argv[] = {timeout.data(), seconds.data(), fake.data(), quiet.data(), cycle.data(),
                    cycleValue.data(), portFlag.data(), port_.data(), log.data(), nullptr};
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
    ASSERT_EQ(posix_spawn(&replay_, timeout.c_str(), &actions, nullptr, argv, environ), 0);
    posix_spawn_file_actions_destroy(&actions);
    const auto deadline = std::chrono::steady_clock::now() + kDeadline;
    while (!accepting(port_)) {
      ASSERT_LT(std::chrono::steady_clock::now(), deadline) << "gpsd never listened on port " << port_;
      ASSERT_EQ(::waitpid(replay_, nullptr, WNOHANG), 0) << "gpsfake ended before gpsd listened";
      std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
  }
  void TearDown() override {
    if (replay_ > 0) {
      ::kill(replay_, SIGTERM);
      ::waitpid(replay_, nullptr, 0);
    }
    MediaHarness::TearDown();
  }
  void customize(PlatformServices& s) override {
    MediaHarness::customize(s);
    if (!port_.empty()) {
      gpsd_ = std::make_shared<GpsdLocationService>("127.0.0.1", port_);
      s.locationService = gpsd_;
    }
  }

  std::string port_;
  pid_t replay_ = -1;
  std::shared_ptr<GpsdLocationService> gpsd_;
};

class Recorder : public LocationManagerDelegate {
 public:
  void locationManagerDidUpdateLocations(const std::shared_ptr<LocationManager>&,
                                         const std::vector<LocationFix>& fixes) override {
    std::lock_guard lock(mutex);
    received.insert(received.end(), fixes.begin(), fixes.end());
    cv.notify_all();
  }
  std::mutex mutex;
  std::condition_variable cv;
  std::vector<LocationFix> received;
};

TEST_F(GpsdReplay, DeliversTheRecordedFixOffTheCallersThread) {
  build(SimDeviceState{});
  auto recorder = std::make_shared<Recorder>();
  auto manager = gpsd_->makeManager();
  manager->setDelegate(recorder);
  manager->startUpdatingLocation();
  std::unique_lock lock(recorder->mutex);
  ASSERT_TRUE(recorder->cv.wait_for(lock, kDeadline, [&] { return !recorder->received.empty(); }))
      << "no fix from gpsd";
  const LocationFix fix = recorder->received.front();
  lock.unlock();
  manager->stopUpdatingLocation();
  EXPECT_NEAR(fix.latitude, -33.5, 1e-9);
  EXPECT_NEAR(fix.longitude, 151.2, 1e-9);
  if (!std::isnan(fix.altitude)) {
    EXPECT_NEAR(fix.altitude, 25, 1e-6);
  }
  EXPECT_EQ(Geolocation::gpsDictionary(fix).at("DateStamp"), Value("2024:03:05"));
  EXPECT_EQ(manager->location()->latitude, fix.latitude);
}

TEST_F(GpsdReplay, ACameraPhotoIsAnsweredWithTheGpsdFix) {
  build(SimDeviceState{});
  SimPickerChoice choice;
  choice.file = writeCameraJpeg();
  userChooses(choice);
  takePicture("[50, 1, 1, null, null, 0, 0, false, false, false, null, false, true]");
  const auto deadline = std::chrono::steady_clock::now() + kDeadline;
  while (answersFor().empty() && std::chrono::steady_clock::now() < deadline) {
    runAll();
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  ASSERT_EQ(answersFor().size(), 1u) << "no answer after the gpsd fix";
  auto bytes = FileBytes::read(find(payloadOf(answersFor()[0]), "callbackURI")->asUrl()->path());
  auto metadata = ImageMetadata::read(*bytes);
  const Dictionary& gps = *find(*metadata, "{GPS}")->asDictionary();
  EXPECT_EQ(*find(gps, "LatitudeRef")->asString(), "S");
  EXPECT_NEAR(*find(gps, "Latitude")->asFloat(), 33.5, 1e-6);
  EXPECT_NEAR(*find(gps, "Longitude")->asFloat(), 151.2, 1e-6);
  EXPECT_EQ(*find(gps, "DateStamp")->asString(), "2024:03:05");
}

}  // namespace
}  // namespace velqor
