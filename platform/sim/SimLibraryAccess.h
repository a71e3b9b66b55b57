#pragma once

#include <memory>

#include "platform/DeviceAccess.h"
#include "platform/sim/SimDevice.h"

namespace velqor {

// A PhotoLibraryAuthorization view of a SimDevice (the device answers both
// access kinds; this adapter routes the status read to the library).
class SimLibraryAccess final : public PhotoLibraryAuthorization {
 public:
  explicit SimLibraryAccess(std::shared_ptr<SimDevice> device) : device_(std::move(device)) {}
  std::int64_t authorizationStatus() override { return device_->libraryStatus(); }
  void requestAuthorization(UniqueFunction<void(std::int64_t)> handler) override {
    device_->requestAuthorization(std::move(handler));
  }

 private:
  std::shared_ptr<SimDevice> device_;
};

}  // namespace velqor
