#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <string>

#include "host/Executor.h"

namespace velqor {

// An executor that runs its work only when asked: the main queue of the host
// runtime (its owner's thread drives it) and the deterministic stand-in for any
// executor in tests.
//
// Threads: `post` from any thread; the run functions from one driving thread.
class ManualExecutor final : public Executor {
 public:
  explicit ManualExecutor(std::string name = "manual") : name_(std::move(name)) {}

  void post(UniqueFunction<void()> work) override;
  bool idle() const override;

  bool hasPending() const;
  size_t pendingCount() const;
  // Runs one queued item; false when there was none.
  bool runOne();
  // Runs the items queued at the time of the call (not those they queue).
  size_t runPending();
  // Runs until the queue is empty, including work queued meanwhile; stops after
  // `limit` items so a self-requeuing loop cannot hang a test.
  size_t runUntilIdle(size_t limit = 1'000'000);
  // Blocks until work is queued or the timeout passes; true when work is queued.
  bool waitForWork(std::chrono::milliseconds timeout);

  const std::string& name() const { return name_; }

 private:
  std::string name_;
  mutable std::mutex mutex_;
  std::condition_variable cv_;
  std::deque<UniqueFunction<void()>> queue_;
  bool running_ = false;
};

}  // namespace velqor
