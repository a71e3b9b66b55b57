#pragma once

#include <chrono>
#include <cmath>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/Value.h"

namespace velqor {

// One position fix.
struct LocationFix {
  double latitude = 0;
  double longitude = 0;
  double altitude = std::nan("");  // metres; not a number when unknown
  std::chrono::system_clock::time_point timestamp;
};

class LocationManager;

// Receives new fixes for a manager.
//
// Threads: called on the location service's delivery thread, one call at a time.
class LocationManagerDelegate {
 public:
  virtual ~LocationManagerDelegate() = default;
  virtual void locationManagerDidUpdateLocations(const std::shared_ptr<LocationManager>& manager,
                                                 const std::vector<LocationFix>& locations) = 0;
};

// A location manager: accuracy, a weakly held delegate, an authorization
// request by operation name, start and stop, and its current fix. A manager
// that nobody holds any more receives no further fixes. It is a platform
// object, so the host can read and write the plug-in's `locationManager`
// property as a value.
//
// Threads: any; the delegate is called on the service's delivery thread.
class LocationManager : public PlatformObject, public std::enable_shared_from_this<LocationManager> {
 public:
  static constexpr double kAccuracyNearestTenMeters = 10.0;

  std::string kindName() const override { return "locationManager"; }
  virtual void setDesiredAccuracy(double metres) = 0;
  virtual void setDelegate(const std::shared_ptr<LocationManagerDelegate>& delegate) = 0;
  // Performs the named operation after `delay` seconds on the calling
  // thread's run loop ("requestWhenInUseAuthorization").
  virtual void performSelectorAfterDelay(const std::string& selector, double delay) = 0;
  virtual void startUpdatingLocation() = 0;
  virtual void stopUpdatingLocation() = 0;
  // The most recent fix, or none.
  virtual std::optional<LocationFix> location() = 0;
};

// Makes location managers.
class LocationService {
 public:
  virtual ~LocationService() = default;
  virtual std::shared_ptr<LocationManager> makeManager() = 0;
  // Why a started manager has produced nothing, for diagnostics; empty if unknown.
  virtual std::string waitingReason() { return {}; }
};

}  // namespace velqor
