#pragma once

#include <memory>

#include "core/PluginCore.h"
#include "core/PluginOperations.h"

namespace velqor {

class PickerCompletion;
class LocationDelegate;

// The plug-in's operation table for its own parts: each entry forwards to the
// part that implements it. Owned by the core it serves.
//
// Threads: as each part states.
class CameraOperations final : public PluginOperations {
 public:
  explicit CameraOperations(PluginCore& core);
  ~CameraOperations() override;
  // Makes the delegates; called once the core is owned by a shared_ptr.
  void attached();

  void addCameraVC(std::shared_ptr<PictureOptions> options) override;
  void showDenyCameraPermission() override;
  void retryPermission() override;
  std::string getLocalizingString(const std::string& key) override;
  std::string tempFilePath(const std::string& extension) override;
  Url urlTransformer(const Url& url) override;
  std::shared_ptr<ImagePickerDelegate> pickerDelegate() override;
  void imagePickerControllerReturnImageResult() override;
  std::shared_ptr<LocationManager> locationManager() override;
  Task<ResultPair> resultForImage(std::shared_ptr<PictureOptions> options, Dictionary info) override;
  Task<ResultPair> resultForVideo(std::shared_ptr<PictureOptions> options, Dictionary info) override;

 private:
  std::shared_ptr<PluginCore> core() const { return core_.shared_from_this(); }

  PluginCore& core_;
  std::shared_ptr<PickerCompletion> pickerDelegate_;
  std::shared_ptr<LocationDelegate> locationDelegate_;
};

}  // namespace velqor
