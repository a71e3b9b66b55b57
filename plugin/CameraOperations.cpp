#include "plugin/CameraOperations.h"

#include "capture/TakePictureFlow.h"
#include "files/TempFiles.h"
#include "files/UrlTransformer.h"
#include "prompts/LocalizedStrings.h"
#include "prompts/PermissionPrompts.h"
#include "prompts/PickerCompletion.h"

namespace velqor {

CameraOperations::CameraOperations(PluginCore& core) : core_(core) {}

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

std::shared_ptr<ImagePickerDelegate> CameraOperations::pickerDelegate() {
  if (!pickerDelegate_) pickerDelegate_ = std::make_shared<PickerCompletion>(core());
  return pickerDelegate_;
}

void CameraOperations::imagePickerControllerReturnImageResult() {}

Task<ResultPair> CameraOperations::resultForImage(std::shared_ptr<PictureOptions>, Dictionary) {
  co_await runOnPool(*core_.services.workerPool);
  co_return ResultPair::failure(CommandStatus::FAIL_TAKE_PICTURE, "image results are not built yet");
}

Task<ResultPair> CameraOperations::resultForVideo(std::shared_ptr<PictureOptions>, Dictionary) {
  co_await runOnPool(*core_.services.workerPool);
  co_return ResultPair::failure(CommandStatus::FAIL_TAKE_PICTURE, "video results are not built yet");
}

}  // namespace velqor
