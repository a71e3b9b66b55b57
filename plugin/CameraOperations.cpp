#include "plugin/CameraOperations.h"

#include "capture/TakePictureFlow.h"
#include "files/TempFiles.h"
#include "files/UrlTransformer.h"
#include "prompts/LocalizedStrings.h"
#include "prompts/PermissionPrompts.h"
#include "prompts/PickerCompletion.h"
#include "results/DeferredDelivery.h"
#include "results/Geolocation.h"
#include "results/ImageResult.h"
#include "results/VideoResult.h"

namespace velqor {

CameraOperations::CameraOperations(PluginCore& core) : core_(core) {}

void CameraOperations::attached() {
  pickerDelegate_ = std::make_shared<PickerCompletion>(core());
  locationDelegate_ = std::make_shared<LocationDelegate>(core());
}

CameraOperations::~CameraOperations() = default;

void CameraOperations::addCameraVC(std::shared_ptr<PictureOptions> options) {
  TakePictureFlow::addCameraVC(core(), std::move(options));
}

void CameraOperations::showDenyCameraPermission() { PermissionPrompts::showDenyCameraPermission(core()); }

void CameraOperations::retryPermission() { PermissionPrompts::retryPermission(core()); }

std::string CameraOperations::getLocalizingString(const std::string& key) {
  return LocalizedStrings::getLocalizingString(core_, key);
}

std::string CameraOperations::tempFilePath(const std::string& extension) {
  return TempFiles::tempFilePath(core_, extension);
}

Url CameraOperations::urlTransformer(const Url& url) { return UrlTransformer::transform(core_, url); }

std::shared_ptr<ImagePickerDelegate> CameraOperations::pickerDelegate() { return pickerDelegate_; }

void CameraOperations::imagePickerControllerReturnImageResult() {
  DeferredDelivery::imagePickerControllerReturnImageResult(core_);
}

std::shared_ptr<LocationManager> CameraOperations::locationManager() {
  // The delegate is made with the operations, before any thread can ask.
  return Geolocation::locationManager(core_, locationDelegate_);
}

Task<ResultPair> CameraOperations::resultForImage(std::shared_ptr<PictureOptions> options, Dictionary info) {
  return ImageResult::resultForImage(core(), std::move(options), std::move(info));
}

Task<ResultPair> CameraOperations::resultForVideo(std::shared_ptr<PictureOptions> options, Dictionary info) {
  return VideoResult::resultForVideo(core(), std::move(options), std::move(info));
}

}  // namespace velqor
