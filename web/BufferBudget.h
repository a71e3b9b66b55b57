#pragma once

#include <atomic>
#include <cstddef>

namespace velqor {

// The bytes of request bodies the web host holds in memory at once, over all
// connections: a body grows only while the total stays within the budget, so
// many parallel posts cannot add up to more than one budget's worth.
//
// Threads: any; lock-free.
class BufferBudget {
 public:
  explicit BufferBudget(size_t total) : total_(total) {}

  // Takes `bytes` from the budget; false (and nothing taken) when it would overflow.
  bool take(size_t bytes) {
    size_t used = used_.load();
    do {
      if (bytes > total_ || used > total_ - bytes) return false;
    } while (!used_.compare_exchange_weak(used, used + bytes));
    return true;
  }
  void giveBack(size_t bytes) { used_.fetch_sub(bytes); }
  size_t used() const { return used_.load(); }

 private:
  const size_t total_;
  std::atomic<size_t> used_{0};
};

}  // namespace velqor
