#include "capture/CameraPicker.h"

#include <cstdio>

namespace velqor {

std::shared_ptr<PictureOptions> CameraPicker::pictureOptions() const {
  std::lock_guard lock(optionsMutex_);
  return pictureOptions_;
}

void CameraPicker::setup(std::shared_ptr<PictureOptions> o) {
  {
    std::lock_guard lock(optionsMutex_);
    pictureOptions_ = o;
  }
  setSourceType(o->sourceType.value_or(SourceType::camera));
  setAllowsEditing(o->allowsEditing);
  std::string line = "cameraDirection " + cameraDeviceText(o->cameraDirection.value_or(CameraDevice::rear)) + "\n";
  std::fwrite(line.data(), 1, line.size(), stdout);
  std::fflush(stdout);

  const std::int64_t source = sourceType();
  const bool camera = source == SourceType::camera;
  if (o->mediaType == MediaType::mediaTypeVideo) {
    if (camera) {
      setMediaTypes({kUTTypeMovie});
      setCameraCaptureMode(CameraCaptureMode::video);
    } else {
      setMediaTypes({kUTTypeVideo});
    }
  } else if (o->mediaType == MediaType::mediaTypePicture || camera) {
    setMediaTypes({kUTTypeImage});
    if (camera) setCameraDevice(o->cameraDirection.value_or(CameraDevice::rear));
  } else {
    // All media types, or none given, from a library source: what it lists.
    auto listed = sources_ ? sources_->availableMediaTypesForSourceType(source) : std::nullopt;
    setMediaTypes(listed ? *listed : std::vector<std::string>{kUTTypeImage});
  }
}

void CameraPicker::viewWillAppear(bool animated) {
  setNeedsStatusBarAppearanceUpdate();
  ImagePickerController::viewWillAppear(animated);
}

}  // namespace velqor
