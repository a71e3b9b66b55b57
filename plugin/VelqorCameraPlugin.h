#pragma once

#include <memory>
#include <string>

#include "host/HostCall.h"
#include "host/Url.h"
#include "host/VelqorPlugin.h"
#include "platform/PlatformServices.h"
#include "core/PluginCore.h"

namespace velqor {

// The camera plug-in: the one object the host creates, the target of every
// host call, and (through its core) the holder of the state of a capture.
//
// Threads: the host may call every operation from any thread; each operation
// moves its user-interface work to the main queue itself.
class VelqorCameraPlugin : public VelqorPlugin {
 public:
  static constexpr const char* kClassName = "VelqorCameraPlugin";

  // Wires the default platform of this build.
  VelqorCameraPlugin();
  // Takes the platform services: the simulated device, or test doubles.
  explicit VelqorCameraPlugin(PlatformServices services);
  ~VelqorCameraPlugin() override;

  // The operations the host finds by name ("takePicture:", "cleanup:", ...).
  HostOperationTable operations();

  void takePicture(std::shared_ptr<CallBackManager> cb);
  void cleanup(std::shared_ptr<CallBackManager> cb);
  void retryPermission();
  bool usesGeolocation() const;
  Url urlTransformer(const Url& url);
  std::string tempFilePath(const std::string& extension);
  std::string getLocalizingString(const std::string& key);
  void imagePickerControllerReturnImageResult();
  // The `locationManager` property: made on first read; the write stores the
  // given manager or none. The host reads it as "locationManager" (a platform
  // object, or null without a location service) and writes it as
  // "setLocationManager:" with a manager or null, which answers true; any
  // other value is refused with an error log line and answers false.
  std::shared_ptr<LocationManager> locationManager();
  void setLocationManager(std::shared_ptr<LocationManager> manager);

  const std::shared_ptr<PluginCore>& core() const { return core_; }

 private:
  std::shared_ptr<PluginCore> core_;
};

}  // namespace velqor
