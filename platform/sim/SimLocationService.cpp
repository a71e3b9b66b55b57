#include "platform/sim/SimLocationService.h"

namespace velqor {
namespace {

class SimLocationManager final : public LocationManager {
 public:
  explicit SimLocationManager(std::shared_ptr<SimLocationService> service) : service_(std::move(service)) {}

  void setDesiredAccuracy(double metres) override {
    std::lock_guard lock(mutex_);
    accuracy_ = metres;
  }
  void setDelegate(const std::shared_ptr<LocationManagerDelegate>& delegate) override {
    std::lock_guard lock(mutex_);
    delegate_ = delegate;
  }
  void performSelectorAfterDelay(const std::string& selector, double) override {
    if (selector == "requestWhenInUseAuthorization") service_->requestedAuthorization();
  }
  void startUpdatingLocation() override {
    {
      std::lock_guard lock(mutex_);
      if (updating_) return;
      updating_ = true;
    }
    service_->started(shared_from_this());
  }
  void stopUpdatingLocation() override {
    std::lock_guard lock(mutex_);
    updating_ = false;
  }
  std::optional<LocationFix> location() override {
    std::lock_guard lock(mutex_);
    return current_;
  }

  // Delivers one fix if still updating: the fix becomes current, then the
  // delegate hears of it.
  void deliver(const LocationFix& fix) {
    std::shared_ptr<LocationManagerDelegate> delegate;
    {
      std::lock_guard lock(mutex_);
      if (!updating_) return;
      current_ = fix;
      delegate = delegate_.lock();
    }
    if (delegate) delegate->locationManagerDidUpdateLocations(shared_from_this(), {fix});
  }

 private:
  std::shared_ptr<SimLocationService> service_;
  std::mutex mutex_;
  double accuracy_ = 0;
  bool updating_ = false;
  std::weak_ptr<LocationManagerDelegate> delegate_;
  std::optional<LocationFix> current_;
};

}  // namespace

SimLocationService::SimLocationService(std::vector<LocationFix> fixes, std::shared_ptr<Executor> delivery,
                                       std::shared_ptr<SimEventLog> events)
    : fixes_(std::move(fixes)), delivery_(std::move(delivery)), events_(std::move(events)) {}

std::shared_ptr<LocationManager> SimLocationService::makeManager() {
  return std::make_shared<SimLocationManager>(shared_from_this());
}

void SimLocationService::started(const std::shared_ptr<LocationManager>& manager) {
  auto sim = std::static_pointer_cast<SimLocationManager>(manager);
  // The manager is listed before anyone can learn that it started: a fix
  // posted the moment the event shows must find it.
  {
    std::lock_guard lock(mutex_);
    startedManagers_.push_back(manager);
  }
  ++started_;
  if (events_) events_->record({{"event", "locationStarted"}});
  // Fixes reach a manager only while someone holds it, as a released phone
  // manager hears nothing more.
  std::weak_ptr<SimLocationManager> weak = sim;
  for (const auto& fix : fixes_) {
    delivery_->post([weak, fix, events = events_] {
      auto alive = weak.lock();
      if (!alive) return;
      if (events) events->record({{"event", "locationFix"}, {"latitude", fix.latitude}, {"longitude", fix.longitude}});
      alive->deliver(fix);
    });
  }
}

void SimLocationService::deliverNow(const LocationFix& fix) {
  std::vector<std::shared_ptr<LocationManager>> managers;
  {
    std::lock_guard lock(mutex_);
    std::erase_if(startedManagers_, [](const auto& m) { return m.expired(); });
    for (const auto& m : startedManagers_)
      if (auto alive = m.lock()) managers.push_back(std::move(alive));
  }
  for (auto& manager : managers) {
    std::weak_ptr<SimLocationManager> weak = std::static_pointer_cast<SimLocationManager>(manager);
    delivery_->post([weak, fix, events = events_] {
      auto alive = weak.lock();
      if (!alive) return;
      if (events) events->record({{"event", "locationFix"}, {"latitude", fix.latitude}, {"longitude", fix.longitude}});
      alive->deliver(fix);
    });
  }
}

std::string SimLocationService::waitingReason() {
  if (started_.load() == 0) return {};
  if (fixes_.empty()) return "the photo waits for a location fix that never comes";
  return {};
}

}  // namespace velqor
