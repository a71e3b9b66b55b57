#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <string>

#include "host/StatusOr.h"
#include "host/Value.h"
#include "platform/DeviceAccess.h"
#include "platform/PickerTypes.h"

namespace velqor {

class ImagePickerController;

// Everything about the simulated device and its user, in one place, so a test
// or the CLI states a whole device at once.
struct SimDeviceState {
  std::set<std::int64_t> availableSources{SourceType::photoLibrary, SourceType::camera,
                                          SourceType::savedPhotosAlbum};
  std::int64_t cameraAccess = AccessState::authorized;
  std::int64_t libraryAccess = AccessState::authorized;
  // What the user answers when asked for access.
  bool cameraRequestGranted = true;
  std::int64_t libraryRequestAnswer = AccessState::authorized;
  // The settings page address can be formed into a URL.
  bool settingsUrlAvailable = true;
  // Where the application's resource bundle "Velqor.bundle" lies; none: missing.
  std::optional<std::string> bundlePath;

  // What the user does with an alert: tap the button with this title (or
  // "settings"/"cancel" for the first/second button); none: leave it.
  std::optional<std::string> alertTap;

  // What the user does with a picker on the screen.
  enum class PickerChoice { wait, cancel, finish };
  PickerChoice pickerChoice = PickerChoice::wait;
  // Builds the picker's info for `finish` (a photo, a video, a library pick).
  std::function<StatusOr<Dictionary>(const ImagePickerController&)> makePickerInfo;
};

}  // namespace velqor
