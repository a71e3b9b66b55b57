#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/ImagePickerDelegate.h"
#include "platform/PickerTypes.h"
#include "platform/ViewController.h"

namespace velqor {

// The platform's image picker: its source, editing flag, media types and
// camera settings, and a weak reference to its delegate. The device decides
// what the user does with it once it is on the screen.
//
// Threads: main queue (settings are guarded so a diagnosis may read them).
class ImagePickerController : public ViewController {
 public:
  explicit ImagePickerController(std::shared_ptr<Screen> screen) : ViewController(std::move(screen)) {}

  std::string kindName() const override { return "picker"; }

  std::int64_t sourceType() const;
  void setSourceType(std::int64_t source);
  bool allowsEditing() const;
  void setAllowsEditing(bool editing);
  std::vector<std::string> mediaTypes() const;
  void setMediaTypes(std::vector<std::string> types);
  std::int64_t cameraDevice() const;
  void setCameraDevice(std::int64_t device);
  std::int64_t cameraCaptureMode() const;
  void setCameraCaptureMode(std::int64_t mode);

  std::shared_ptr<ImagePickerDelegate> delegate() const;
  void setDelegate(const std::shared_ptr<ImagePickerDelegate>& delegate);

  // Asks the platform to refresh the status bar; counted for tests.
  void setNeedsStatusBarAppearanceUpdate();
  int statusBarUpdates() const;

 private:
  mutable std::mutex mutex_;
  std::int64_t sourceType_ = SourceType::photoLibrary;
  bool allowsEditing_ = false;
  std::vector<std::string> mediaTypes_{kUTTypeImage};
  std::int64_t cameraDevice_ = CameraDevice::rear;
  std::int64_t cameraCaptureMode_ = CameraCaptureMode::photo;
  std::weak_ptr<ImagePickerDelegate> delegate_;
  int statusBarUpdates_ = 0;
};

}  // namespace velqor
