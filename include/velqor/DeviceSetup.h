#pragma once

#include <array>
#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace velqor {

/// One location fix the simulated location service delivers.
///
/// Threads: a plain value.
struct LocationReading {
  double latitude = 0;   ///< degrees, -90 to 90
  double longitude = 0;  ///< degrees, -180 to 180
  std::optional<double> altitude;  ///< metres; none when unknown
  /// When the fix was taken; none: when it is delivered.
  std::optional<std::chrono::system_clock::time_point> timestamp;
};

/// The simulated phone a CameraSession runs the plug-in on, and what its user
/// does. The defaults describe a device that offers every source, has camera
/// and library access granted and a host view controller, and whose user
/// leaves the picker on the screen.
///
/// A plain value: build it on any thread; CameraSession::open reads it once.
struct DeviceSetup {
  /// Sources the device offers: "library", "camera", "album" (or their numbers 0, 1, 2).
  std::vector<std::string> sources{"library", "camera", "album"};
  /// Camera access: "notDetermined", "restricted", "denied" or "authorized".
  std::string cameraAccess = "authorized";
  /// Photo-library access: the camera's states or "limited".
  std::string libraryAccess = "authorized";
  /// What the user answers when asked for the camera.
  bool cameraRequestGranted = true;
  /// What the user answers when asked for the library (a library access state).
  std::string libraryRequestAnswer = "authorized";
  /// Whether the host has a view controller for the plug-in to present on.
  bool viewController = true;
  /// Whether the settings page address forms a URL.
  bool settingsPage = true;
  /// The button the user taps on an alert: "settings", "cancel" or a button's
  /// title; none: the alert stays on the screen.
  std::optional<std::string> alertTap;

  /// The application's `Velqor.bundle` directory; none: the bundle installed
  /// with the library (see README, "Installed files").
  std::optional<std::string> bundleDirectory;
  /// The application ships no strings bundle at all (alerts show their keys).
  bool withoutBundle = false;
  /// The user's language ("fr", "de-CH"); empty: from LANGUAGE, LC_ALL, LANG.
  std::string language;
  /// The application's temporary directory; empty: a private default. The
  /// plug-in's `cleanup` empties it, so it must be a folder of its own.
  std::string temporaryDirectory;
  /// The photo library directory; empty: a private default beside the
  /// temporary directory.
  std::string libraryDirectory;
  /// The host's URL transformer: `file:///path` becomes PREFIX + `/path`.
  std::optional<std::string> fileUrlPrefix;

  /// What the user does once the picker is on the screen.
  enum class PickerAction {
    wait,    ///< nothing: the command stays open
    cancel,  ///< cancels the picker
    photo,   ///< takes `pickerFile` as a photo with the camera
    video,   ///< records `pickerFile` as a movie
    pick,    ///< picks a library asset: a local identifier, or a file imported first
  };
  PickerAction pickerAction = PickerAction::wait;
  /// The photo or movie file, or the asset to pick. Never modified.
  std::string pickerFile;
  /// A crop the user makes in the picker: x, y, width, height in upright pixels.
  std::optional<std::array<double, 4>> edit;

  /// The fixes the location service delivers, in order; empty: none ever comes.
  std::vector<LocationReading> locationFixes;
};

}  // namespace velqor
