#include "web/ConnectionDeadlines.h"

#include <sys/socket.h>

namespace velqor {

namespace {
constexpr auto kSweepPeriod = std::chrono::milliseconds(200);
}

ConnectionDeadlines::ConnectionDeadlines(Clock::duration head, Clock::duration body)
    : head_(head), body_(body), sweeper_([this] { sweep(); }) {}

ConnectionDeadlines::~ConnectionDeadlines() {
  {
    std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  wake_.notify_all();
  sweeper_.join();
}

void ConnectionDeadlines::opened(const void* connection, int fd) {
  std::lock_guard lock(mutex_);
  entries_[connection] = Entry{fd, Clock::now() + head_};
}

void ConnectionDeadlines::headReceived(const void* connection) {
  std::lock_guard lock(mutex_);
  if (auto it = entries_.find(connection); it != entries_.end()) it->second.deadline = Clock::now() + body_;
}

void ConnectionDeadlines::answering(const void* connection) {
  std::lock_guard lock(mutex_);
  if (auto it = entries_.find(connection); it != entries_.end()) it->second.deadline = Clock::time_point::max();
}

void ConnectionDeadlines::answered(const void* connection) {
  std::lock_guard lock(mutex_);
  if (auto it = entries_.find(connection); it != entries_.end()) it->second.deadline = Clock::now() + head_;
}

void ConnectionDeadlines::closed(const void* connection) {
  std::lock_guard lock(mutex_);
  entries_.erase(connection);
}

void ConnectionDeadlines::shutDownAll() {
  std::lock_guard lock(mutex_);
  for (const auto& [connection, entry] : entries_) ::shutdown(entry.fd, SHUT_RDWR);
}

size_t ConnectionDeadlines::open() const {
  std::lock_guard lock(mutex_);
  return entries_.size();
}

size_t ConnectionDeadlines::expired() const {
  std::lock_guard lock(mutex_);
  return expired_;
}

void ConnectionDeadlines::sweep() {
  std::unique_lock lock(mutex_);
  while (!stopping_) {
    wake_.wait_for(lock, kSweepPeriod);
    const auto now = Clock::now();
    for (auto& [connection, entry] : entries_) {
      if (entry.deadline > now) continue;
      ::shutdown(entry.fd, SHUT_RDWR);
      entry.deadline = Clock::time_point::max();  // once is enough; the library reports it closed
      ++expired_;
    }
  }
}

}  // namespace velqor
