#pragma once

#include <cstdint>
#include <deque>

#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace velqor {

// What the user would see or do, as JSON objects with an "event" key.
//
// Threads: record from any thread.
class SimEventLog {
 public:
  using Listener = std::function<void(const nlohmann::ordered_json&)>;

  void record(nlohmann::ordered_json event) {
    Listener listener;
    {
      std::lock_guard lock(mutex_);
      events_.push_back(event);
      while (events_.size() > retention_) {
        events_.pop_front();
        ++dropped_;
      }
      listener = listener_;
    }
    if (listener) listener(event);
  }
  void setListener(Listener l) {
    std::lock_guard lock(mutex_);
    listener_ = std::move(l);
  }
  // A long-running device keeps only the last `keep` events.
  void setRetention(size_t keep) {
    std::lock_guard lock(mutex_);
    retention_ = keep;
  }
  std::vector<nlohmann::ordered_json> events() const {
    std::lock_guard lock(mutex_);
    return {events_.begin(), events_.end()};
  }
  // The kept events whose index (from 0, over every event recorded) is `index` or later.
  std::vector<nlohmann::ordered_json> eventsFrom(size_t index) const {
    std::lock_guard lock(mutex_);
    const size_t skip = index > dropped_ ? index - dropped_ : 0;
    if (skip >= events_.size()) return {};
    return {events_.begin() + static_cast<std::ptrdiff_t>(skip), events_.end()};
  }
  // Every event ever recorded, kept or not.
  size_t total() const {
    std::lock_guard lock(mutex_);
    return dropped_ + events_.size();
  }
  std::vector<std::string> names() const {
    std::vector<std::string> out;
    for (const auto& e : events()) out.push_back(e["event"].get<std::string>());
    return out;
  }

 private:
  mutable std::mutex mutex_;
  std::deque<nlohmann::ordered_json> events_;
  size_t dropped_ = 0;
  size_t retention_ = SIZE_MAX;
  Listener listener_;
};

}  // namespace velqor
