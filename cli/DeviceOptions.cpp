#include "cli/DeviceOptions.h"

#include "cli/Cli.h"

namespace velqor::cli {
namespace {

std::int64_t accessState(const std::string& text, bool allowLimited, const std::string& option) {
  static const std::map<std::string, std::int64_t> kStates{{"notDetermined", AccessState::notDetermined},
                                                           {"restricted", AccessState::restricted},
                                                           {"denied", AccessState::denied},
                                                           {"authorized", AccessState::authorized},
                                                           {"limited", AccessState::limited}};
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

}  // namespace

void DeviceOptions::addTo(CLI::App& app, bool withUserActions) {
  app.add_option("--sources", sources_, "Sources the device offers (library, camera, album); default all")
      ->delimiter(',');
  app.add_flag("--no-camera", noCamera_, "The device has no camera");
  app.add_option("--camera-access", cameraAccess_, "notDetermined|restricted|denied|authorized");
  app.add_option("--library-access", libraryAccess_, "notDetermined|restricted|denied|authorized|limited");
  app.add_option("--camera-answer", cameraAnswer_, "What the user answers when asked for the camera: granted|denied");
  app.add_option("--library-answer", libraryAnswer_, "What the user answers when asked for the library (an access state)");
  app.add_flag("--no-view-controller", noViewController_, "The host has no view controller to present on");
  app.add_flag("--no-settings-page", noSettingsPage_, "The settings page address forms no URL");
  app.add_option("--lang", lang_, "The user's language (default: from LANGUAGE/LC_ALL/LANG)");
  app.add_option("--bundle", bundle_, "The application's Velqor.bundle directory");
  app.add_flag("--no-bundle", noBundle_, "The application ships no Velqor.bundle");
  app.add_option("--temp-dir", tempDir_, "The application's temporary directory");
  app.add_option("--file-url-prefix", fileUrlPrefix_, "Host URL transformer: file:///path becomes PREFIX/path");
  if (withUserActions) {
    app.add_option("--tap", tap_, "Button the user taps on an alert: settings|cancel");
    app.add_flag("--cancel", cancel_, "The user cancels the picker");
    app.add_flag("--events", events, "Print what the user sees as JSON lines");
    app.add_option("--timeout", timeoutSeconds, "Seconds to wait for an answer (default 30)");
  }
}

DeviceConfig DeviceOptions::toConfig() const {
  DeviceConfig c;
  if (!sources_.empty()) {
    c.device.availableSources.clear();
    for (const auto& s : sources_) c.device.availableSources.insert(sourceNamed(s));
  }
  if (noCamera_) c.device.availableSources.erase(SourceType::camera);
  c.device.cameraAccess = accessState(cameraAccess_, false, "--camera-access");
  c.device.libraryAccess = accessState(libraryAccess_, true, "--library-access");
  if (cameraAnswer_ != "granted" && cameraAnswer_ != "denied")
    throw UsageError{"--camera-answer: expected granted or denied, got \"" + cameraAnswer_ + "\""};
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
  return c;
}

}  // namespace velqor::cli
