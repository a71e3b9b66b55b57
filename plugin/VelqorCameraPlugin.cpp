#include "plugin/VelqorCameraPlugin.h"

#include "capture/PictureOptions.h"
#include "platform/linux/DefaultPlatform.h"

namespace velqor {

VelqorCameraPlugin::VelqorCameraPlugin() : VelqorCameraPlugin(DefaultPlatform::services()) {}

VelqorCameraPlugin::VelqorCameraPlugin(PlatformServices services)
    : core_(std::make_shared<PluginCore>(std::move(services), viewControllerSlot())) {}

VelqorCameraPlugin::~VelqorCameraPlugin() = default;

bool VelqorCameraPlugin::usesGeolocation() const { return PictureOptions::useLocationService.load(); }

HostOperationTable VelqorCameraPlugin::operations() {
  // Each entry holds the core, not this object: the host may keep the table
  // while it replaces the plug-in.
  HostOperationTable table;
  table["usesGeolocation"] = [](const HostCall&) -> Value {
    return Value(PictureOptions::useLocationService.load());
  };
  return table;
}

}  // namespace velqor
