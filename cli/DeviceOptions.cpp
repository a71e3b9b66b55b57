#include "cli/DeviceOptions.h"

#include "cli/Cli.h"
#include "platform/sim/AccessStateNames.h"

#include <cmath>
#include <cstdio>
#include <ctime>
#include <filesystem>

namespace velqor::cli {
namespace {

std::int64_t accessState(const std::string& text, bool allowLimited, const std::string& option) {
  const auto& kStates = accessStateNames();
  auto it = kStates.find(text);
  if (it == kStates.end() || (!allowLimited && it->second == AccessState::limited))
    throw UsageError{option + ": unknown access state \"" + text + "\" (notDetermined, restricted, denied, authorized" +
                     (allowLimited ? ", limited)" : ")")};
  return it->second;
}

std::int64_t sourceNamed(const std::string& text) {
  if (text == "library" || text == "photoLibrary" || text == "0") return SourceType::photoLibrary;
  if (text == "camera" || text == "1") return SourceType::camera;
  if (text == "album" || text == "savedPhotosAlbum" || text == "2") return SourceType::savedPhotosAlbum;
  try {
    return std::stoll(text);
  } catch (...) {
    throw UsageError{"--sources: unknown source \"" + text + "\" (library, camera, album or a number)"};
  }
}

LocationFix parseFix(const std::string& text) {
  LocationFix fix;
  fix.timestamp = std::chrono::system_clock::now();
  std::string coords = text.substr(0, text.find('@'));
  double alt = std::nan("");
  int n = std::sscanf(coords.c_str(), "%lf,%lf,%lf", &fix.latitude, &fix.longitude, &alt);
  if (n < 2 || std::abs(fix.latitude) > 90 || std::abs(fix.longitude) > 180)
    throw UsageError{"--location: expected LAT,LON[,ALT] in degrees and metres, got \"" + text + "\""};
  if (n == 3) fix.altitude = alt;
  if (size_t at = text.find('@'); at != std::string::npos) {
    std::tm tm{};
    double seconds = 0;
    int y, mo, d, h, mi;
    if (std::sscanf(text.c_str() + at + 1, "%d-%d-%dT%d:%d:%lfZ", &y, &mo, &d, &h, &mi, &seconds) != 6)
      throw UsageError{"--location: expected a time like 2024-03-05T23:59:59.250Z after @"};
    tm.tm_year = y - 1900;
    tm.tm_mon = mo - 1;
    tm.tm_mday = d;
    tm.tm_hour = h;
    tm.tm_min = mi;
    tm.tm_sec = static_cast<int>(seconds);
    fix.timestamp = std::chrono::system_clock::from_time_t(::timegm(&tm)) +
                    std::chrono::microseconds(std::llround((seconds - tm.tm_sec) * 1e6));
  }
  return fix;
}

bool given(const CLI::App& app, const std::string& option) {
  const CLI::Option* o = app.get_option_no_throw(option);
  return o && o->count() > 0;
}

}  // namespace

void DeviceOptions::addTo(CLI::App& app, bool withUserActions) {
  app_ = &app;
  app.add_option("--sources", sources_, "Sources the device offers (library, camera, album); default all")
      ->delimiter(',');
  app.add_flag("--no-camera", noCamera_, "The device has no camera");
  app.add_option("--camera-access", cameraAccess_, "notDetermined|restricted|denied|authorized");
  app.add_option("--library-access", libraryAccess_, "notDetermined|restricted|denied|authorized|limited");
  app.add_option("--camera-answer", cameraAnswer_, "What the user answers when asked for the camera: granted|denied")
      ->check(CLI::IsMember({"granted", "denied"}));
  app.add_option("--library-answer", libraryAnswer_, "What the user answers when asked for the library (an access state)");
  app.add_flag("--no-view-controller", noViewController_, "The host has no view controller to present on");
  app.add_flag("--no-settings-page", noSettingsPage_, "The settings page address forms no URL");
  app.add_option("--lang", lang_, "The user's preferred languages, most preferred first: fr-CA or sv:pt (default: LANGUAGE, then LC_ALL/LC_MESSAGES/LANG)");
  app.add_option("--bundle", bundle_, "The application's Velqor.bundle directory");
  app.add_flag("--no-bundle", noBundle_, "The application ships no Velqor.bundle");
  app.add_option("--temp-dir", tempDir_, "The application's temporary directory");
  app.add_option("--file-url-prefix", fileUrlPrefix_, "Host URL transformer: file:///path becomes PREFIX/path");
  app.add_option("--library", library_, "The photo library directory");
  app.add_flag("--force", force_, "Use a --temp-dir or --library that holds files this tool did not write");
  if (withUserActions) {
    app.add_option("--tap", tap_, "Button the user taps on an alert: settings|cancel")
        ->check(CLI::IsMember({"settings", "cancel"}));
    app.add_flag("--cancel", cancel_, "The user cancels the picker");
    app.add_flag("--events", events, "Print what the user sees as JSON lines");
    app.add_option("--timeout", timeoutSeconds, "Seconds to wait for an answer (default 30)");
    app.add_option("--photo", photo_, "The user takes this photo with the camera");
    app.add_option("--video", video_, "The user records this movie with the camera");
    app.add_option("--pick", pick_,
                   "The user picks this library asset: a local identifier (UUID/L0/001) when the library has it, "
                   "else a file, imported first");
    app.add_option("--edit", edit_, "The user crops the picture to X,Y,W,H (upright pixels)");
    app.add_option("--location", locations_, "A location fix LAT,LON[,ALT][@2024-03-05T23:59:59.250Z]; repeat for more");
    app.add_flag("--no-fix", noFix_, "The location service never delivers a fix");
    app.add_option("--gpsd", gpsd_, "Take real fixes from the gpsd daemon at HOST[:PORT] instead");
    app.add_option("--location-timeout", locationTimeout_,
                   "Deliver a photo waiting for a location fix after S seconds without one");
  }
}

void DeviceOptions::refuseMeaninglessCombinations() const {
  const CLI::App& a = *app_;
  refuseTogether(a, "--no-bundle", "--bundle", "the application either ships a bundle or not");
  refuseTogether(a, "--no-camera", "--sources", "--sources already names every source the device offers");
  if (a.count("--camera-answer") && cameraAccess_ != "notDetermined")
    throw UsageError{"--camera-answer: the user is asked only when --camera-access is notDetermined"};
  if (a.count("--library-answer") && libraryAccess_ != "notDetermined")
    throw UsageError{"--library-answer: the user is asked only when --library-access is notDetermined"};
  if (given(a, "--edit") && photo_.empty() && pick_.empty())
    throw UsageError{"--edit: crops what the user takes or picks: give --photo or --pick too"};
  if (given(a, "--location-timeout") && photo_.empty())
    throw UsageError{"--location-timeout: only a camera photo waits for a fix: give --photo too"};
}

std::optional<std::string> DeviceOptions::pickedIdentifier() const {
  // Identifiers look like paths ("UUID/L0/001"), so a slash decides nothing:
  // the session looks the name up in the library first and takes a regular
  // file only when the library has no such asset.
  std::error_code ec;
  if (pick_.empty() || std::filesystem::is_regular_file(pick_, ec)) return std::nullopt;
  return pick_;
}

DeviceConfig DeviceOptions::toConfig() const {
  refuseMeaninglessCombinations();
  if (!photo_.empty()) requireReadableFile("--photo", photo_);
  if (!video_.empty()) requireReadableFile("--video", video_);
  if (!bundle_.empty() && !std::filesystem::is_directory(bundle_))
    throw UsageError{"--bundle: no such directory \"" + bundle_ + "\""};
  DeviceConfig c;
  if (!sources_.empty()) {
    c.device.availableSources.clear();
    for (const auto& s : sources_) c.device.availableSources.insert(sourceNamed(s));
  }
  if (noCamera_) c.device.availableSources.erase(SourceType::camera);
  c.device.cameraAccess = accessState(cameraAccess_, false, "--camera-access");
  c.device.libraryAccess = accessState(libraryAccess_, true, "--library-access");
  c.device.cameraRequestGranted = cameraAnswer_ == "granted";
  c.device.libraryRequestAnswer = accessState(libraryAnswer_, true, "--library-answer");
  c.device.settingsUrlAvailable = !noSettingsPage_;
  if (!tap_.empty()) c.device.alertTap = tap_;
  if (cancel_) c.device.pickerChoice = SimDeviceState::PickerChoice::cancel;
  if (noBundle_) {
    c.device.bundlePath.reset();
  } else if (!bundle_.empty()) {
    c.device.bundlePath = bundle_;
  } else {
    c.device.bundlePath = DeviceSession::shippedBundle();
  }
  c.viewController = !noViewController_;
  c.temporaryDirectory = tempDir_;
  c.language = lang_;
  if (!fileUrlPrefix_.empty()) c.fileUrlPrefix = fileUrlPrefix_;
  if (timeoutSeconds <= 0) throw UsageError{"--timeout must be positive"};
  c.libraryDirectory = library_;
  c.checkFolders = true;
  c.forceFolders = force_;
  const int chosen = !photo_.empty() + !video_.empty() + !pick_.empty() + cancel_;
  if (chosen > 1) throw UsageError{"choose one of --photo, --video, --pick and --cancel"};
  if (!photo_.empty() || !video_.empty() || !pick_.empty()) {
    SimPickerChoice choice;
    choice.kind = !photo_.empty() ? SimPickerChoice::Kind::photo
                                  : (!video_.empty() ? SimPickerChoice::Kind::video : SimPickerChoice::Kind::pick);
    choice.file = !photo_.empty() ? photo_ : video_;
    choice.asset = pick_;
    if (!edit_.empty()) {
      std::array<double, 4> r{};
      if (std::sscanf(edit_.c_str(), "%lf,%lf,%lf,%lf", &r[0], &r[1], &r[2], &r[3]) != 4 || r[2] <= 0 || r[3] <= 0)
        throw UsageError{"--edit: expected X,Y,W,H with a positive width and height"};
      choice.edit = r;
    }
    c.pickerChoice = choice;
  }
  if (noFix_ && !locations_.empty()) throw UsageError{"--no-fix and --location exclude each other"};
  if (!gpsd_.empty()) {
    if (!locations_.empty()) throw UsageError{"--gpsd and --location exclude each other"};
    c.gpsd = gpsd_;
  }
  for (const auto& text : locations_) c.locationFixes.push_back(parseFix(text));
  if (locationTimeout_ < 0) throw UsageError{"--location-timeout must not be negative"};
  return c;
}

}  // namespace velqor::cli
