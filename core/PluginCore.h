#pragma once

#include <atomic>
#include <memory>
#include <optional>

#include "host/CallBackManager.h"
#include "host/SharedField.h"
#include "host/Value.h"
#include "host/VelqorPlugin.h"
#include "platform/PlatformServices.h"
#include "core/PluginOperations.h"

namespace velqor {

// The source file name the plug-in's error log lines report.
inline constexpr const char* kPluginSourceFile = "VelqorCameraPlugin";

class CameraPicker;
class LocationManager;

// A delegate for permission denials. Nothing in the plug-in sets one.
class CameraDelegate {
 public:
  virtual ~CameraDelegate() = default;
  virtual void cameraPermissionDeny() = 0;
  virtual void photoLibraryPermissionDeny() = 0;
};

// The state and services of the one camera plug-in object. The host-facing
// VelqorCameraPlugin owns it through a shared_ptr; queued work that must keep
// the plug-in alive holds it strongly, completions that must not hold it weakly
// and do nothing once it is gone.
//
// Threads: the fields are read and written from the main queue, the worker
// that builds a result and the location callback's thread; each is an atomic
// load/store (SharedField), so every access is race-free while the order of
// effects stays as the parts write them.
class PluginCore : public std::enable_shared_from_this<PluginCore> {
 public:
  PluginCore(PlatformServices services, std::shared_ptr<ViewControllerSlot> viewControllerSlot)
      : services(std::move(services)), viewControllerSlot_(std::move(viewControllerSlot)) {}

  // The answer channel of the most recent takePicture; never cleared.
  SharedField<std::shared_ptr<CallBackManager>> currentCallBack;
  // Raised at the start of a takePicture, lowered when it ends; nothing decides on it.
  std::atomic<bool> _hasPendingOperation{false};
  // Always absent: no operation sets it.
  std::shared_ptr<CameraDelegate> cameraDelegate;
  // The picker of the running capture.
  SharedField<std::shared_ptr<CameraPicker>> pickerController;
  // The encoded image of a capture waiting for a location fix.
  SharedField<std::shared_ptr<const Bytes>> data;
  // That capture's image metadata.
  SharedField<std::optional<Dictionary>> metadata;
  // The location manager behind the `locationManager` property.
  SharedField<std::shared_ptr<LocationManager>> _locationManager;

  const PlatformServices services;

  std::shared_ptr<ViewController> viewController() const { return viewControllerSlot_->get(); }

  PluginOperations& ops() const { return *ops_; }
  void setOperations(std::unique_ptr<PluginOperations> ops) { ops_ = std::move(ops); }

 private:
  std::shared_ptr<ViewControllerSlot> viewControllerSlot_;
  std::unique_ptr<PluginOperations> ops_;
};

}  // namespace velqor
