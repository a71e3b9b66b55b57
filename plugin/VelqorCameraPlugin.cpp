#include "plugin/VelqorCameraPlugin.h"

#include "capture/PictureOptions.h"
#include "capture/TakePictureFlow.h"
#include "plugin/CameraOperations.h"
#include "files/TempFiles.h"
#include "files/UrlTransformer.h"
#include "host/VLog.h"
#include "platform/linux/DefaultPlatform.h"
#include "results/Geolocation.h"

namespace velqor {
namespace {

// The URL a host hands over as text. Text that parses as a URI reference is
// that URL; anything else (a path with spaces, say) is a file path and becomes
// its file URL, so the operation always answers a URL. A value that is not text
// counts as the empty reference.
Url hostArgumentAsUrl(const Value& argument) {
  const std::string* text = argument.asString();
  if (!text) return *Url::fromString("");
  if (auto parsed = Url::fromString(*text)) return *parsed;
  return Url::fileUrlWithPath(*text);
}

const char* const kNotALocationManager = "locationManager: only a location manager or none can be stored; the value was refused";

}  // namespace

VelqorCameraPlugin::VelqorCameraPlugin() : VelqorCameraPlugin(DefaultPlatform::services()) {}

VelqorCameraPlugin::VelqorCameraPlugin(PlatformServices services)
    : core_(std::make_shared<PluginCore>(std::move(services), viewControllerSlot())) {
  auto ops = std::make_unique<CameraOperations>(*core_);
  ops->attached();
  core_->setOperations(std::move(ops));
}

VelqorCameraPlugin::~VelqorCameraPlugin() = default;

bool VelqorCameraPlugin::usesGeolocation() const { return PictureOptions::useLocationService.load(); }

void VelqorCameraPlugin::takePicture(std::shared_ptr<CallBackManager> cb) {
  if (cb) TakePictureFlow::takePicture(core_, std::move(cb));
}

void VelqorCameraPlugin::retryPermission() { core_->ops().retryPermission(); }

std::string VelqorCameraPlugin::getLocalizingString(const std::string& key) {
  return core_->ops().getLocalizingString(key);
}

void VelqorCameraPlugin::imagePickerControllerReturnImageResult() {
  core_->ops().imagePickerControllerReturnImageResult();
}

std::shared_ptr<LocationManager> VelqorCameraPlugin::locationManager() { return core_->ops().locationManager(); }

void VelqorCameraPlugin::setLocationManager(std::shared_ptr<LocationManager> manager) {
  Geolocation::setLocationManager(*core_, std::move(manager));
}

void VelqorCameraPlugin::cleanup(std::shared_ptr<CallBackManager> cb) {
  if (cb) TempFiles::cleanup(*core_, *cb);
}

std::string VelqorCameraPlugin::tempFilePath(const std::string& extension) {
  return TempFiles::tempFilePath(*core_, extension);
}

Url VelqorCameraPlugin::urlTransformer(const Url& url) { return UrlTransformer::transform(*core_, url); }

HostOperationTable VelqorCameraPlugin::operations() {
  // Entries hold the core, not this object: the host may keep the table while
  // it replaces the plug-in.
  std::shared_ptr<PluginCore> core = core_;
  HostOperationTable table;
  table["usesGeolocation"] = [](const HostCall&) -> Value {
    return Value(PictureOptions::useLocationService.load());
  };
  table["takePicture:"] = [core](const HostCall& call) -> Value {
    if (call.callback) TakePictureFlow::takePicture(core, call.callback);
    return Value();
  };
  table["retryPermission"] = [core](const HostCall&) -> Value {
    core->ops().retryPermission();
    return Value();
  };
  table["getLocalizingString:"] = [core](const HostCall& call) -> Value {
    const std::string* key = call.argument.asString();
    return Value(core->ops().getLocalizingString(key ? *key : std::string()));
  };
  table["imagePickerControllerReturnImageResult"] = [core](const HostCall&) -> Value {
    core->ops().imagePickerControllerReturnImageResult();
    return Value();
  };
  table["locationManager"] = [core](const HostCall&) -> Value {
    return Value(std::shared_ptr<PlatformObject>(core->ops().locationManager()));
  };
  table["setLocationManager:"] = [core](const HostCall& call) -> Value {
    auto manager = call.argument.asObject<LocationManager>();
    if (!manager && !call.argument.isNull()) {
      // The property holds a location manager or nothing; anything else is refused and changes nothing.
      VLog::error("", kNotALocationManager, kPluginSourceFile, __LINE__, "setLocationManager(_:)");
      return Value(false);
    }
    Geolocation::setLocationManager(*core, std::move(manager));
    return Value(true);
  };
  table["cleanup:"] = [core](const HostCall& call) -> Value {
    if (call.callback) TempFiles::cleanup(*core, *call.callback);
    return Value();
  };
  table["tempFilePath:"] = [core](const HostCall& call) -> Value {
    const std::string* ext = call.argument.asString();
    return Value(TempFiles::tempFilePath(*core, ext ? *ext : std::string()));
  };
  table["urlTransformer:"] = [core](const HostCall& call) -> Value {
    if (const Url* url = call.argument.asUrl()) return Value(UrlTransformer::transform(*core, *url));
    return Value(UrlTransformer::transform(*core, hostArgumentAsUrl(call.argument)));
  };
  return table;
}

}  // namespace velqor
