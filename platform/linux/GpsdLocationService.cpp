#include "platform/linux/GpsdLocationService.h"

#include <gps.h>

#include <cmath>
#include <mutex>
#include <thread>

namespace velqor {
namespace {

// What the reader thread and the manager share; the thread keeps it alive
// after the manager is released, so the manager never joins its own thread.
struct ReaderState {
  std::mutex mutex;
  std::weak_ptr<LocationManagerDelegate> delegate;
  std::weak_ptr<LocationManager> manager;
  std::optional<LocationFix> current;
  std::atomic<bool> running{false};
  std::atomic<bool> connected{false};
  std::string error;
};

void readFixes(std::shared_ptr<ReaderState> state, std::string host, std::string port,
               std::shared_ptr<std::atomic<int>> readers) {
  gps_data_t data{};
  if (gps_open(host.c_str(), port.c_str(), &data) != 0) {
    std::lock_guard lock(state->mutex);
    state->error = std::string("cannot reach gpsd at ") + host + ":" + port + ": " + gps_errstr(errno);
    --*readers;
    return;
  }
  state->connected = true;
  gps_stream(&data, WATCH_ENABLE | WATCH_JSON, nullptr);
  while (state->running.load()) {
    if (!gps_waiting(&data, 200000)) continue;
    if (gps_read(&data, nullptr, 0) == -1) break;
    // A fix counts once it has a position and a time (NMEA gives the date late).
    if (!(data.set & LATLON_SET) || data.fix.mode < MODE_2D || !std::isfinite(data.fix.latitude) ||
        data.fix.time.tv_sec <= 0)
      continue;
    LocationFix fix;
    fix.latitude = data.fix.latitude;
    fix.longitude = data.fix.longitude;
    fix.altitude = data.fix.mode >= MODE_3D && std::isfinite(data.fix.altMSL) ? data.fix.altMSL : std::nan("");
    fix.timestamp = std::chrono::system_clock::time_point(
        std::chrono::duration_cast<std::chrono::system_clock::duration>(std::chrono::seconds(data.fix.time.tv_sec) +
                                                                        std::chrono::nanoseconds(data.fix.time.tv_nsec)));
    std::shared_ptr<LocationManagerDelegate> delegate;
    std::shared_ptr<LocationManager> manager;
    {
      std::lock_guard lock(state->mutex);
      state->current = fix;
      delegate = state->delegate.lock();
      manager = state->manager.lock();
    }
    if (delegate && manager && state->running.load()) delegate->locationManagerDidUpdateLocations(manager, {fix});
  }
  gps_stream(&data, WATCH_DISABLE, nullptr);
  gps_close(&data);
  --*readers;
}

class GpsdLocationManager final : public LocationManager {
 public:
  GpsdLocationManager(std::string host, std::string port, std::shared_ptr<std::atomic<int>> readers)
      : host_(std::move(host)), port_(std::move(port)), readers_(std::move(readers)) {}
  ~GpsdLocationManager() override { state_->running = false; }

  void setDesiredAccuracy(double) override {}
  void setDelegate(const std::shared_ptr<LocationManagerDelegate>& delegate) override {
    std::lock_guard lock(state_->mutex);
    state_->delegate = delegate;
  }
  // gpsd needs no authorization; the request is accepted and nothing happens.
  void performSelectorAfterDelay(const std::string&, double) override {}
  void startUpdatingLocation() override {
    if (state_->running.exchange(true)) return;
    {
      std::lock_guard lock(state_->mutex);
      state_->manager = std::static_pointer_cast<LocationManager>(shared_from_this());
    }
    ++*readers_;
    std::thread(readFixes, state_, host_, port_, readers_).detach();
  }
  void stopUpdatingLocation() override { state_->running = false; }
  std::optional<LocationFix> location() override {
    std::lock_guard lock(state_->mutex);
    return state_->current;
  }
  std::string error() {
    std::lock_guard lock(state_->mutex);
    return state_->error;
  }

 private:
  std::string host_, port_;
  std::shared_ptr<std::atomic<int>> readers_;
  std::shared_ptr<ReaderState> state_ = std::make_shared<ReaderState>();
};

}  // namespace

std::shared_ptr<LocationManager> GpsdLocationService::makeManager() {
  return std::make_shared<GpsdLocationManager>(host_, port_, readers_);
}

std::string GpsdLocationService::waitingReason() {
  return "the photo waits for a fix from gpsd at " + host_ + ":" + port_;
}

}  // namespace velqor
