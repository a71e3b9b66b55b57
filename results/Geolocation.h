#pragma once

#include <memory>
#include <vector>

#include "platform/LocationManager.h"
#include "core/PluginCore.h"

namespace velqor {

// The plug-in's location manager and its update handler: the first fix after a
// start becomes a GPS dictionary in `metadata`, and the deferred delivery runs.
//
// Threads: the property is read on the worker that builds an image result and
// read or written by the host on its own thread; the handler runs on the
// location service's delivery thread.
class Geolocation {
 public:
  static std::shared_ptr<LocationManager> locationManager(PluginCore& core,
                                                          const std::shared_ptr<LocationManagerDelegate>& delegate);
  // The property's write: stores `manager` (or none) and does nothing else.
  // Setting none ends a pending request: its manager is released (a manager
  // nobody holds hears no more fixes), and while the field is empty the
  // handler ignores any fix that still arrives.
  static void setLocationManager(PluginCore& core, std::shared_ptr<LocationManager> manager);
  static void didUpdateLocations(PluginCore& core, const std::shared_ptr<LocationManager>& manager);
  // The GPS dictionary of one fix, in the image-property vocabulary.
  static Dictionary gpsDictionary(const std::optional<LocationFix>& fix);
};

// The plug-in as the location manager's delegate.
class LocationDelegate final : public LocationManagerDelegate {
 public:
  explicit LocationDelegate(std::weak_ptr<PluginCore> core) : core_(std::move(core)) {}
  void locationManagerDidUpdateLocations(const std::shared_ptr<LocationManager>& manager,
                                         const std::vector<LocationFix>&) override {
    if (auto core = core_.lock()) Geolocation::didUpdateLocations(*core, manager);
  }

 private:
  std::weak_ptr<PluginCore> core_;
};

}  // namespace velqor
