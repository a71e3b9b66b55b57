#include "imaging/RowHandOff.h"

namespace velqor {

RowHandOff::RowHandOff(size_t bufferBytes, int buffers)
    : buffers_(static_cast<size_t>(buffers), std::vector<std::uint8_t>(bufferBytes)),
      rows_(static_cast<size_t>(buffers), 0) {}

std::uint8_t* RowHandOff::acquire() {
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [&] { return cancelled_ || produced_ - consumed_ < buffers_.size(); });
  if (cancelled_) return nullptr;
  return buffers_[produced_ % buffers_.size()].data();
}

void RowHandOff::publish(int rows) {
  {
    std::lock_guard lock(mutex_);
    rows_[produced_ % buffers_.size()] = rows;
    ++produced_;
  }
  changed_.notify_all();
}

void RowHandOff::finish(bool ok) {
  {
    std::lock_guard lock(mutex_);
    finished_ = true;
    succeeded_ = ok;
  }
  changed_.notify_all();
}

std::optional<RowHandOff::Filled> RowHandOff::next() {
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [&] { return finished_ || produced_ > consumed_; });
  // A failed producer's last strips are not worth encoding.
  if (produced_ == consumed_ || (finished_ && !succeeded_)) return std::nullopt;
  const size_t slot = consumed_ % buffers_.size();
  return Filled{buffers_[slot].data(), rows_[slot]};
}

void RowHandOff::release() {
  {
    std::lock_guard lock(mutex_);
    ++consumed_;
  }
  changed_.notify_all();
}

void RowHandOff::cancel() {
  {
    std::lock_guard lock(mutex_);
    cancelled_ = true;
  }
  changed_.notify_all();
}

bool RowHandOff::producerSucceeded() const {
  std::lock_guard lock(mutex_);
  return finished_ && succeeded_;
}

}  // namespace velqor
