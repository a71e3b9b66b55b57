#pragma once

#include <mutex>
#include <utility>

namespace velqor {

// A field that several threads read and write without any ordering between
// them beyond "each access sees a whole value". Loads and stores are atomic;
// nothing else is promised, matching a plain field on the original platform
// while staying free of data races in C++.
//
// Threads: any.
template <typename T>
class SharedField {
 public:
  SharedField() = default;
  explicit SharedField(T initial) : value_(std::move(initial)) {}

  T load() const {
    std::lock_guard lock(mutex_);
    return value_;
  }
  void store(T value) {
    std::lock_guard lock(mutex_);
    value_ = std::move(value);
  }
  T exchange(T value) {
    std::lock_guard lock(mutex_);
    std::swap(value_, value);
    return value;
  }

 private:
  mutable std::mutex mutex_;
  T value_{};
};

}  // namespace velqor
