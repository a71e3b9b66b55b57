#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <vector>

#include "host/Executor.h"
#include "platform/LocationManager.h"
#include "platform/sim/SimEvent.h"

namespace velqor {

// Scripted location fixes. Every manager that starts updating receives the
// fixes in order, one callback each, on the delivery executor (never the main
// queue). With no fixes scripted, a started manager waits forever, as a phone
// without a signal would.
//
// Threads: any.
class SimLocationService final : public LocationService, public std::enable_shared_from_this<SimLocationService> {
 public:
  SimLocationService(std::vector<LocationFix> fixes, std::shared_ptr<Executor> delivery,
                     std::shared_ptr<SimEventLog> events);

  std::shared_ptr<LocationManager> makeManager() override;
  // A fix that arrives now, as the user moves: every manager that started and
  // still updates receives it, on the delivery executor.
  void deliverNow(const LocationFix& fix);
  std::string waitingReason() override;

  int startedManagers() const { return started_.load(); }
  int authorizationRequests() const { return authorizations_.load(); }

  // Called by the managers.
  void started(const std::shared_ptr<LocationManager>& manager);
  void requestedAuthorization() { ++authorizations_; }
  const std::vector<LocationFix>& fixes() const { return fixes_; }
  const std::shared_ptr<Executor>& delivery() const { return delivery_; }
  const std::shared_ptr<SimEventLog>& events() const { return events_; }

 private:
  std::vector<LocationFix> fixes_;
  std::shared_ptr<Executor> delivery_;
  std::mutex mutex_;
  std::vector<std::weak_ptr<LocationManager>> startedManagers_;
  std::shared_ptr<SimEventLog> events_;
  std::atomic<int> started_{0};
  std::atomic<int> authorizations_{0};
};

}  // namespace velqor
