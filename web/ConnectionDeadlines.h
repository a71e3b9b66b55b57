#pragma once

#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <thread>

namespace velqor {

// Deadlines for reading requests, over every open connection of the web host:
// a client gets `head` to send a request's head (from the moment it connects,
// or from the end of the previous answer on a kept-alive connection) and
// `body` more to send its body. A connection past its deadline has its socket
// shut down, which ends its request wherever it was; a client that sends one
// byte every few seconds gains nothing.
//
// Connections are keyed by an opaque pointer (the HTTP library's connection).
// The socket is shut down (never closed) under the same lock that `closed`
// takes, and the library closes a socket only after reporting it closed, so a
// descriptor number reused by a new connection is never touched.
//
// Threads: every method from any thread; one sweeper thread of its own.
class ConnectionDeadlines {
 public:
  using Clock = std::chrono::steady_clock;

  ConnectionDeadlines(Clock::duration head, Clock::duration body);
  ~ConnectionDeadlines();  // stops the sweeper

  void opened(const void* connection, int fd);
  void headReceived(const void* connection);  // the body deadline starts
  void answering(const void* connection);     // no read deadline until answered
  void answered(const void* connection);      // waits for the next head
  void closed(const void* connection);
  // Shuts down every socket: used when the server stops.
  void shutDownAll();

  size_t open() const;
  // Connections shut down for a missed deadline so far.
  size_t expired() const;

 private:
  struct Entry {
    int fd;
    Clock::time_point deadline;  // max(): none
  };
  void sweep();

  const Clock::duration head_, body_;
  mutable std::mutex mutex_;
  std::condition_variable wake_;
  std::map<const void*, Entry> entries_;
  size_t expired_ = 0;
  bool stopping_ = false;
  std::thread sweeper_;
};

}  // namespace velqor
