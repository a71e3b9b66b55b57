#pragma once

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
      listener = listener_;
    }
    if (listener) listener(event);
  }
  void setListener(Listener l) {
    std::lock_guard lock(mutex_);
    listener_ = std::move(l);
  }
  std::vector<nlohmann::ordered_json> events() const {
    std::lock_guard lock(mutex_);
    return events_;
  }
  std::vector<std::string> names() const {
    std::vector<std::string> out;
    for (const auto& e : events()) out.push_back(e["event"].get<std::string>());
    return out;
  }

 private:
  mutable std::mutex mutex_;
  std::vector<nlohmann::ordered_json> events_;
  Listener listener_;
};

}  // namespace velqor
