#include "platform/ImagePickerController.h"

namespace velqor {

#define VELQOR_GUARDED_ACCESSORS(Type, getter, setter, field) \
  Type ImagePickerController::getter() const {                \
    std::lock_guard lock(mutex_);                              \
    return field;                                              \
  }                                                            \
  void ImagePickerController::setter(Type value) {            \
    std::lock_guard lock(mutex_);                              \
    field = std::move(value);                                  \
  }

VELQOR_GUARDED_ACCESSORS(std::int64_t, sourceType, setSourceType, sourceType_)
VELQOR_GUARDED_ACCESSORS(bool, allowsEditing, setAllowsEditing, allowsEditing_)
VELQOR_GUARDED_ACCESSORS(std::vector<std::string>, mediaTypes, setMediaTypes, mediaTypes_)
VELQOR_GUARDED_ACCESSORS(std::int64_t, cameraDevice, setCameraDevice, cameraDevice_)
VELQOR_GUARDED_ACCESSORS(std::int64_t, cameraCaptureMode, setCameraCaptureMode, cameraCaptureMode_)

#undef VELQOR_GUARDED_ACCESSORS

std::shared_ptr<ImagePickerDelegate> ImagePickerController::delegate() const {
  std::lock_guard lock(mutex_);
  return delegate_.lock();
}

void ImagePickerController::setDelegate(const std::shared_ptr<ImagePickerDelegate>& delegate) {
  std::lock_guard lock(mutex_);
  delegate_ = delegate;
}

void ImagePickerController::setNeedsStatusBarAppearanceUpdate() {
  std::lock_guard lock(mutex_);
  ++statusBarUpdates_;
}

int ImagePickerController::statusBarUpdates() const {
  std::lock_guard lock(mutex_);
  return statusBarUpdates_;
}

}  // namespace velqor
