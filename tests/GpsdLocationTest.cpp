#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <condition_variable>
#include <fstream>
#include <random>

#include "host/FileBytes.h"
#include "host/UniqueFd.h"
#include "platform/linux/GpsdLocationService.h"
#include "imaging/metadata/ImageMetadata.h"
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

// A port for a private gpsd: below the range the kernel hands out to outgoing
// connections (so no client socket takes it meanwhile), free now, and kept
// from the other test processes by a lock held for the test's lifetime.
// Returns the lock's descriptor, or -1 when no port could be had.
int reservePort(std::string& port) {
  std::mt19937 rng(std::random_device{}());
  for (int attempt = 0; attempt < 200; ++attempt) {
    const int candidate = 20000 + static_cast<int>(rng() % 10000);
    const std::string lockPath = "/tmp/velqor-gpsd-port-" + std::to_string(candidate) + ".lock";
    int lock = ::open(lockPath.c_str(), O_CREAT | O_RDWR | O_CLOEXEC, 0600);
    if (lock < 0) continue;
    if (::flock(lock, LOCK_EX | LOCK_NB) != 0) {
      ::close(lock);
      continue;
    }
    int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    addr.sin_port = htons(static_cast<std::uint16_t>(candidate));
    const bool free = fd >= 0 && ::bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0;
    if (fd >= 0) ::close(fd);
    if (free) {
      port = std::to_string(candidate);
      return lock;
    }
    ::close(lock);
  }
  return -1;
}

// True once a client watching gpsd on `port` hears a position, before `deadline`.
bool hearsAFix(const std::string& port, std::chrono::steady_clock::time_point deadline) {
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  addr.sin_port = htons(static_cast<std::uint16_t>(std::stoi(port)));
  while (std::chrono::steady_clock::now() < deadline) {
    UniqueFd fd(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!fd.valid() || ::connect(fd.get(), reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0) {
      std::this_thread::sleep_for(std::chrono::milliseconds(100));
      continue;
    }
    const std::string watch = "?WATCH={\"enable\":true,\"json\":true};\n";
    if (::write(fd.get(), watch.data(), watch.size()) != static_cast<ssize_t>(watch.size())) continue;
    std::string heard;
    char buffer[4096];
    while (std::chrono::steady_clock::now() < deadline) {
      pollfd p{fd.get(), POLLIN, 0};
      if (::poll(&p, 1, 200) <= 0) continue;
      const ssize_t n = ::read(fd.get(), buffer, sizeof buffer);
      if (n <= 0) break;
      heard.append(buffer, static_cast<size_t>(n));
      if (heard.find("\"class\":\"TPV\"") != std::string::npos && heard.find("\"lat\":") != std::string::npos)
        return true;
    }
  }
  return false;
}

// Generous: a loaded machine may take many seconds to start gpsd and feed it.
constexpr auto kDeadline = std::chrono::seconds(60);

// gpsd's replay tool feeding the log to a private gpsd on a port of its own,
// over and over, so a client that connects late on a loaded machine still
// hears fixes. Each test starts once a client of that gpsd has heard a fix.
class GpsdReplay : public testing::MediaHarness {
 protected:
  void SetUp() override {
    MediaHarness::SetUp();
    if (::access("/usr/bin/gpsfake", X_OK) != 0 || ::access("/usr/sbin/gpsd", X_OK) != 0)
      GTEST_SKIP() << "gpsd or gpsfake is not installed (scripts/install-deps.sh installs them); skipping the "
                      "gpsd-backed location tests";
    std::ofstream(dir_.path("fix.nmea")) << nmeaLog();
    // gpsfake hands its device to gpsd through a control socket and gives up
    // silently when gpsd is not yet accepting there: such a gpsd never reads
    // the log. A replay that stays silent is started again.
    for (int attempt = 1; attempt <= 3; ++attempt) {
      if (startReplay() && hearsAFix(port_, std::chrono::steady_clock::now() + std::chrono::seconds(10))) return;
      stopReplay();
    }
    FAIL() << "gpsd never reported a fix from the replayed log";
  }

  bool startReplay() {
    portLock_ = reservePort(port_);
    if (portLock_ < 0) return false;
    std::string timeout = "/usr/bin/timeout", seconds = "600", fake = "/usr/bin/gpsfake", quiet = "-q",
                cycle = "-c", cycleValue = "0.05", portFlag = "-P", log = dir_.path("fix.nmea");
    char* argv[] = {timeout.data(), seconds.data(), fake.data(), quiet.data(), cycle.data(),
                    cycleValue.data(), portFlag.data(), port_.data(), log.data(), nullptr};
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
    // gpsfake names that control socket after its own process id in $TMPDIR;
    // a private one keeps sockets left by earlier runs out of its way.
    std::filesystem::create_directories(dir_.path("gpsfake"));
    std::vector<std::string> env{"TMPDIR=" + dir_.path("gpsfake")};
    for (char** e = environ; *e; ++e)
      if (std::string(*e).rfind("TMPDIR=", 0) != 0) env.emplace_back(*e);
    std::vector<char*> envp;
    for (auto& e : env) envp.push_back(e.data());
    envp.push_back(nullptr);
    // A group of its own, so that stopping it reaches gpsfake and its gpsd too.
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP);
    posix_spawnattr_setpgroup(&attributes, 0);
    const bool spawned = posix_spawn(&replay_, timeout.c_str(), &actions, &attributes, argv, envp.data()) == 0;
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    if (!spawned) replay_ = -1;
    return spawned;
  }

  void stopReplay() {
    if (replay_ > 0) {
      // gpsfake can miss its TERM (seen when its gpsd died first): the group
      // gets a KILL if it is still there after a grace period.
      ::kill(-replay_, SIGTERM);
      UniqueFd exited(static_cast<int>(::syscall(SYS_pidfd_open, replay_, 0)));
      pollfd ended{exited.get(), POLLIN, 0};
      if (!exited.valid() || ::poll(&ended, 1, 5000) <= 0) ::kill(-replay_, SIGKILL);
      ::waitpid(replay_, nullptr, 0);
      ::kill(-replay_, SIGKILL);  // whatever of the group outlived its leader
      replay_ = -1;
    }
    if (portLock_ >= 0) ::close(portLock_);
    portLock_ = -1;
  }

  void TearDown() override {
    stopReplay();
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
  int portLock_ = -1;
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
