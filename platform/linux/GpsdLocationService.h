#pragma once

#include <atomic>
#include <memory>
#include <string>

#include "platform/LocationManager.h"

namespace velqor {

// Real position fixes from a gpsd daemon, through libgps. A manager that
// starts updating opens its own connection on a thread of its own and calls
// its delegate there for every 2D or 3D fix, until it is stopped or released.
//
// Threads: any; delegates are called on the manager's reader thread.
class GpsdLocationService final : public LocationService {
 public:
  GpsdLocationService(std::string host, std::string port) : host_(std::move(host)), port_(std::move(port)) {}
  std::shared_ptr<LocationManager> makeManager() override;
  std::string waitingReason() override;
  // True while no reader thread is running.
  bool idle() const { return readers_->load() == 0; }

 private:
  std::string host_, port_;
  std::shared_ptr<std::atomic<int>> readers_ = std::make_shared<std::atomic<int>>(0);
};

}  // namespace velqor
