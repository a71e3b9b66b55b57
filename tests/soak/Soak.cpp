// Soak: many capture cycles in one host process, reporting resident memory
// growth, open file descriptors, files left in the temporary directory after
// the final cleanup, and commands answered never or more than once.
//
//   soak [CYCLES]      (default 10000)
//
// The cycles mix photos in all three destinations, cancels, movies, library
// picks, album saves, a second command while one waits in the picker, and
// cleanups. Exit 0 when every goal holds.
#include <dirent.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <set>

#include "session/DeviceSession.h"
#include "host/FileBytes.h"
#include "platform/linux/SampleImages.h"
#include "platform/linux/SampleMovies.h"

namespace fs = std::filesystem;
using namespace velqor;

namespace {

constexpr double kGrowthGoalMiB = 5.0;

double residentMiB() {
  std::ifstream statm("/proc/self/statm");
  long pages = 0, resident = 0;
  statm >> pages >> resident;
  return static_cast<double>(resident) * static_cast<double>(::sysconf(_SC_PAGESIZE)) / (1024.0 * 1024.0);
}

int openDescriptors() {
  int n = 0;
  for (const auto& e : fs::directory_iterator("/proc/self/fd")) (void)e, ++n;
  return n;
}

Array takePictureArgs(std::int64_t destination, std::int64_t source, std::int64_t media, bool save) {
  return Array{Value(std::int64_t{40}), Value(destination), Value(source), Value(96.0), Value(96.0),
               Value(std::int64_t{0}), Value(media), Value(false), Value(true), Value(save)};
}

}  // namespace

int main(int argc, char** argv) {
  const int cycles = argc > 1 ? std::max(1, std::atoi(argv[1])) : 10000;
  std::string pattern = (fs::temp_directory_path() / "velqor-soak-XXXXXX").string();
  if (!::mkdtemp(pattern.data())) return 1;
  const fs::path root = pattern;
  struct Remove {
    fs::path root;
    ~Remove() {
      std::error_code ec;
      fs::remove_all(root, ec);
    }
  } remove{root};

  const std::string photo = (root / "photo.jpg").string();
  const std::string movie = (root / "movie.mov").string();
  auto jpeg = SampleImages::cameraJpeg(320, 240, 6, 85);
  if (!jpeg.ok() || !FileBytes::writeAtomically(photo, *jpeg).ok()) return 1;
  MovieSpec recipe;
  recipe.seconds = 0.2;
  if (!SampleMovies::make(movie, recipe).ok()) return 1;

  DeviceConfig config;
  config.temporaryDirectory = (root / "tmp").string();
  config.libraryDirectory = (root / "library").string();
  config.device.bundlePath = DeviceSession::shippedBundle();
  auto created = DeviceSession::create(config);
  if (!created.ok()) {
    std::cerr << "soak: " << created.status().message() << "\n";
    return 1;
  }
  auto& s = **created;
  // One host process running for hours keeps recent answers and events only.
  s.host().answers()->setRetention(64);
  s.device().events()->setRetention(256);
  auto library = s.library().importFile(photo);
  if (!library.ok()) return 1;

  // What the user does in the picker this cycle.
  auto user = [&](SimDeviceState::PickerChoice choice, SimPickerChoice media) {
    auto st = s.device().state();
    st.pickerChoice = choice;
    st.makePickerInfo = s.pickerInfoFor(std::move(media));
    s.device().setState(std::move(st));
  };
  const SimPickerChoice takePhoto{SimPickerChoice::Kind::photo, photo, "", {}};
  const SimPickerChoice recordMovie{SimPickerChoice::Kind::video, movie, "", {}};
  const SimPickerChoice pickAsset{SimPickerChoice::Kind::pick, "", library->localIdentifier, {}};

  std::vector<std::string> commands;
  auto call = [&](Array args) {
    auto id = s.host().callCommand("takePicture:", std::move(args));
    commands.push_back(*id);
    return *id;
  };
  auto settle = [&] { s.host().runUntilQuiescent(std::chrono::seconds(60)); };

  double baseline = 0;
  int baselineFds = 0;
  std::set<std::string> pairFirsts;
  const auto started = std::chrono::steady_clock::now();
  for (int i = 0; i < cycles; ++i) {
    switch (i % 10) {
      case 0: case 1: case 2:
        user(SimDeviceState::PickerChoice::finish, takePhoto);
        call(takePictureArgs(i % 3, 1, 0, false));
        break;
      case 3:
        user(SimDeviceState::PickerChoice::cancel, takePhoto);
        call(takePictureArgs(1, 1, 0, false));
        break;
      case 4:
        user(SimDeviceState::PickerChoice::finish, recordMovie);
        call(takePictureArgs(i % 20 == 4 ? 0 : 1, 1, 1, false));
        break;
      case 5:
        user(SimDeviceState::PickerChoice::finish, pickAsset);
        call(takePictureArgs(2, 0, 0, false));
        break;
      case 6: {
        // A second command while the first waits in the picker; then the user takes the photo.
        user(SimDeviceState::PickerChoice::wait, takePhoto);
        pairFirsts.insert(call(takePictureArgs(1, 1, 0, false)));
        settle();
        call(takePictureArgs(0, 1, 0, false));
        settle();
        s.device().finishPicker();
        break;
      }
      case 7:
        user(SimDeviceState::PickerChoice::finish, takePhoto);
        call(takePictureArgs(1, 1, 0, i % 100 == 7));
        break;
      case 8: {
        auto id = s.host().callCommand("cleanup:", Array{});
        commands.push_back(*id);
        break;
      }
      default:
        user(SimDeviceState::PickerChoice::finish, takePhoto);
        call(takePictureArgs(1, 1, 0, false));
        break;
    }
    settle();
    // Anything still on the screen is dismissed by the user before the next cycle.
    while (s.device().cancelPicker()) settle();
    if (i == std::min(cycles - 1, 500)) {
      baseline = residentMiB();
      baselineFds = openDescriptors();
    }
  }
  auto id = s.host().callCommand("cleanup:", Array{});
  commands.push_back(*id);
  settle();
  s.library().drain();

  // The first command of a pair is superseded by the second, which takes over
  // the picker: it stays open by the plug-in's contract. Any other command
  // without an answer is lost.
  int lost = 0, doubled = 0, superseded = 0;
  for (const auto& c : commands) {
    const size_t answers = s.host().answers()->answerCount(c);
    if (answers == 0) ++(pairFirsts.count(c) ? superseded : lost);
    if (answers > 1) ++doubled;
  }
  int leftFiles = 0;
  std::error_code ec;
  for (const auto& e : fs::directory_iterator(config.temporaryDirectory, ec)) (void)e, ++leftFiles;
  const double growth = residentMiB() - baseline;
  const int fds = openDescriptors();
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();

  std::cout << "soak: " << cycles << " cycles, " << commands.size() << " commands in " << seconds << " s\n"
            << "  resident memory: " << baseline << " MiB after warm-up, growth " << growth << " MiB (goal < "
            << kGrowthGoalMiB << ")\n"
            << "  open file descriptors: " << baselineFds << " after warm-up, " << fds << " at the end\n"
            << "  files left in the temporary directory after the final cleanup: " << leftFiles << "\n"
            << "  commands answered more than once: " << doubled << "\n"
            << "  first commands of a pair left open, superseded by the second: " << superseded << " of "
            << pairFirsts.size() << "\n"
            << "  answers lost: " << lost << "\n";
  const bool ok = growth < kGrowthGoalMiB && fds <= baselineFds && leftFiles == 0 && doubled == 0 && lost == 0;
  std::cout << (ok ? "soak: within every goal\n" : "soak: GOAL MISSED\n");
  return ok ? 0 : 1;
}
