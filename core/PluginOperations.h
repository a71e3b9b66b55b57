#pragma once

#include <memory>
#include <string>

#include "host/Task.h"
#include "host/Url.h"
#include "host/Value.h"
#include "core/ResultPair.h"

namespace velqor {

class PictureOptions;
class ImagePickerDelegate;
class LocationManager;

// The plug-in's operations as its parts call them on each other. The parts
// live in separate libraries (capture, prompts, results, files); they reach one
// another only through this table, which the plug-in object fills.
//
// Threads: as each operation states in its own part.
class PluginOperations {
 public:
  virtual ~PluginOperations() = default;

  virtual void addCameraVC(std::shared_ptr<PictureOptions> options) = 0;
  virtual void showDenyCameraPermission() = 0;
  virtual void retryPermission() = 0;
  virtual std::string getLocalizingString(const std::string& key) = 0;
  virtual std::string tempFilePath(const std::string& extension) = 0;
  virtual Url urlTransformer(const Url& url) = 0;
  // The object the picker reports to (the plug-in, as its delegate).
  virtual std::shared_ptr<ImagePickerDelegate> pickerDelegate() = 0;
  virtual void imagePickerControllerReturnImageResult() = 0;
  // The `locationManager` property: made on first read.
  virtual std::shared_ptr<LocationManager> locationManager() = 0;
  // The result builders: they leave the caller's thread for the worker pool.
  virtual Task<ResultPair> resultForImage(std::shared_ptr<PictureOptions> options, Dictionary info) = 0;
  virtual Task<ResultPair> resultForVideo(std::shared_ptr<PictureOptions> options, Dictionary info) = 0;
};

}  // namespace velqor
