#include "host/ManualExecutor.h"

namespace velqor {

void ManualExecutor::post(UniqueFunction<void()> work) {
  {
    std::lock_guard lock(mutex_);
    queue_.push_back(std::move(work));
  }
  cv_.notify_all();
}

bool ManualExecutor::idle() const {
  std::lock_guard lock(mutex_);
  return queue_.empty() && !running_;
}

bool ManualExecutor::hasPending() const {
  std::lock_guard lock(mutex_);
  return !queue_.empty();
}

size_t ManualExecutor::pendingCount() const {
  std::lock_guard lock(mutex_);
  return queue_.size();
}

bool ManualExecutor::runOne() {
  UniqueFunction<void()> work;
  {
    std::lock_guard lock(mutex_);
    if (queue_.empty()) return false;
    work = std::move(queue_.front());
    queue_.pop_front();
    running_ = true;
  }
  work();
  work = nullptr;  // captured state dies before the executor reports idle
  std::lock_guard lock(mutex_);
  running_ = false;
  return true;
}

size_t ManualExecutor::runPending() {
  size_t n = pendingCount();
  size_t ran = 0;
  while (ran < n && runOne()) ++ran;
  return ran;
}

size_t ManualExecutor::runUntilIdle(size_t limit) {
  size_t ran = 0;
  while (ran < limit && runOne()) ++ran;
  return ran;
}

bool ManualExecutor::waitForWork(std::chrono::milliseconds timeout) {
  std::unique_lock lock(mutex_);
  return cv_.wait_for(lock, timeout, [&] { return !queue_.empty(); });
}

}  // namespace velqor
