#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <optional>

namespace velqor {

// A counter of changes the page should hear about (an answer, a device
// event, a settings change) that event streams wait on, so a change reaches
// every connected page as soon as it is recorded. Stopping wakes every waiter
// for good.
//
// Threads: any.
class ChangeFeed {
 public:
  void notify() {
    {
      std::lock_guard lock(mutex_);
      ++sequence_;
    }
    wake_.notify_all();
  }
  void stop() {
    {
      std::lock_guard lock(mutex_);
      stopping_ = true;
    }
    wake_.notify_all();
  }
  uint64_t sequence() const {
    std::lock_guard lock(mutex_);
    return sequence_;
  }
  // The sequence once it passes `seen` or `limit` passes (then it may still
  // be `seen`); none once the feed is stopped.
  std::optional<uint64_t> waitPast(uint64_t seen, std::chrono::steady_clock::duration limit) {
    std::unique_lock lock(mutex_);
    wake_.wait_for(lock, limit, [&] { return stopping_ || sequence_ != seen; });
    if (stopping_) return std::nullopt;
    return sequence_;
  }

 private:
  mutable std::mutex mutex_;
  std::condition_variable wake_;
  uint64_t sequence_ = 0;
  bool stopping_ = false;
};

}  // namespace velqor
