#pragma once

#include <condition_variable>
#include <deque>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "host/Executor.h"

namespace velqor {

// A fixed set of worker threads sharing one queue: the asynchronous runtime's
// worker pool, and (with one thread) a serial platform queue. The threads
// start with the first work posted, so a pool nobody uses costs nothing.
//
// Threads: `post`, `idle` and `waitIdle` from any thread; the destructor drains
// the queue and joins, so it must not run on one of the pool's own threads.
class ThreadPool final : public Executor {
 public:
  explicit ThreadPool(size_t threads, std::string name = "pool");
  ~ThreadPool() override;

  void post(UniqueFunction<void()> work) override;
  bool idle() const override;
  void waitIdle();
  bool isPoolThread() const;

 private:
  void workerLoop();

  std::string name_;
  size_t size_;
  mutable std::mutex mutex_;
  std::condition_variable cv_;
  std::condition_variable idleCv_;
  std::deque<UniqueFunction<void()>> queue_;
  size_t running_ = 0;
  bool stopping_ = false;
  std::vector<std::thread> threads_;
};

}  // namespace velqor
