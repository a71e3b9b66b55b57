#pragma once

#include <memory>
#include <string>
#include <vector>

#include "velqor/CameraPlugin.h"
#include "velqor/DeviceSetup.h"
#include "velqor/StatusOr.h"

namespace velqor {

/// A host, a simulated phone and the VelqorCamera plug-in in one process: the
/// main queue, a worker pool, the platform's threads, the photo library, the
/// media export and the location service, wired the way a phone's host wires
/// them. Run captures through plugin().
///
/// ```
/// velqor::DeviceSetup setup;
/// setup.pickerAction = velqor::DeviceSetup::PickerAction::photo;
/// setup.pickerFile = "photo.jpg";
/// auto session = velqor::CameraSession::open(setup);
/// auto id = (*session)->plugin().callCommand("takePicture:", "[50, 1, 1]");
/// (*session)->plugin().runUntilAnswered(*id, std::chrono::seconds(30));
/// ```
///
/// Ownership: the caller owns the session; it owns the plug-in, the device and
/// their threads. Destroying it lets the work already queued run out (at most
/// five seconds, without calling the answer handler), then joins the threads. Files the plug-in
/// writes stay in the temporary directory until a `cleanup:` command.
///
/// Threads: open, drive and destroy a session on one thread, which becomes
/// its main thread. Several sessions may live in one process; each has its own
/// threads, and `usesGeolocation` is shared among them (it is process-wide).
class CameraSession {
 public:
  /// Sets up the device and the plug-in. Refused with the reason for a setup
  /// it cannot use: an unknown access state or source, a refused temporary
  /// directory, a photo library that cannot be opened, a file to pick that
  /// cannot be imported.
  static StatusOr<std::unique_ptr<CameraSession>> open(const DeviceSetup& setup);
  ~CameraSession();
  CameraSession(const CameraSession&) = delete;
  CameraSession& operator=(const CameraSession&) = delete;

  /// The plug-in object and the host calls into it.
  CameraPlugin& plugin();

  /// Why a command is still open, one reason a line (an alert waiting for a
  /// tap, the picker waiting for the user, no view controller, limited
  /// library access, a location fix that never came); never empty.
  std::vector<std::string> whyOpen() const;

  /// What the user has seen so far, one JSON object a line with an "event"
  /// key (pickerPresented, alertShown, pickerDismissed, ...).
  std::vector<std::string> events() const;

  /// The application's temporary directory the plug-in writes into.
  std::string temporaryDirectory() const;
  /// The photo library's directory.
  std::string libraryDirectory() const;

 private:
  struct Parts;
  explicit CameraSession(std::unique_ptr<Parts> parts);
  std::unique_ptr<Parts> parts_;
};

}  // namespace velqor
