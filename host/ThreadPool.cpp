#include "host/ThreadPool.h"

#include <algorithm>

namespace velqor {

ThreadPool::ThreadPool(size_t threads, std::string name) : name_(std::move(name)), size_(std::max<size_t>(threads, 1)) {}

ThreadPool::~ThreadPool() {
  {
    std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  cv_.notify_all();
  for (auto& t : threads_) t.join();
}

void ThreadPool::post(UniqueFunction<void()> work) {
  {
    std::lock_guard lock(mutex_);
    queue_.push_back(std::move(work));
    if (threads_.empty())
      for (size_t i = 0; i < size_; ++i) threads_.emplace_back([this] { workerLoop(); });
  }
  cv_.notify_one();
}

bool ThreadPool::idle() const {
  std::lock_guard lock(mutex_);
  return queue_.empty() && running_ == 0;
}

void ThreadPool::waitIdle() {
  std::unique_lock lock(mutex_);
  idleCv_.wait(lock, [&] { return queue_.empty() && running_ == 0; });
}

bool ThreadPool::isPoolThread() const {
  std::lock_guard lock(mutex_);
  auto id = std::this_thread::get_id();
  return std::any_of(threads_.begin(), threads_.end(),
                     [&](const std::thread& t) { return t.get_id() == id; });
}

void ThreadPool::workerLoop() {
  for (;;) {
    UniqueFunction<void()> work;
    {
      std::unique_lock lock(mutex_);
      cv_.wait(lock, [&] { return stopping_ || !queue_.empty(); });
      if (queue_.empty()) return;  // stopping, and everything queued has run
      work = std::move(queue_.front());
      queue_.pop_front();
      ++running_;
    }
    work();
    work = nullptr;
    {
      std::lock_guard lock(mutex_);
      --running_;
      if (queue_.empty() && running_ == 0) idleCv_.notify_all();
    }
  }
}

}  // namespace velqor
