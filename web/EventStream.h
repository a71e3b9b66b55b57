#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include <nlohmann/json.hpp>

#include "host/StatusOr.h"
#include "web/ChangeFeed.h"

namespace velqor {

// One page's Server-Sent Events stream of the host's state. The first
// message is the whole summary from the page's starting point; after that one
// message per change, holding only the answers and events the page has not
// been sent yet (screen, device and open commands whole). Every message's id
// is "<answers>.<events>", the counts sent so far, which a reconnecting
// EventSource hands back as Last-Event-ID. A comment line keeps an idle
// connection alive.
//
// `state(answers, events)` produces the summary from those indexes (the
// server runs it on the main queue); the stream only waits on the feed.
//
// Threads: the connection's thread only (the HTTP library's content reader).
class EventStream {
 public:
  using State = std::function<StatusOr<nlohmann::json>(size_t answersFrom, size_t eventsFrom)>;

  EventStream(ChangeFeed& feed, State state, size_t answersFrom, size_t eventsFrom,
              std::chrono::steady_clock::duration keepalive);

  // Fills `buffer` with the stream's next bytes, waiting for a change or the
  // keepalive; nullopt when the stream ends (the server stops, the state
  // cannot be read).
  std::optional<size_t> read(char* buffer, size_t size);

  // "A.E" as sent in Last-Event-ID; none when malformed.
  static std::optional<std::pair<size_t, size_t>> parseId(const std::string& id);

 private:
  bool nextMessage();

  ChangeFeed& feed_;
  State state_;
  size_t answers_, events_;
  std::chrono::steady_clock::duration keepalive_;
  bool started_ = false;
  uint64_t seen_ = 0;
  std::string pending_;
  size_t offset_ = 0;
};

}  // namespace velqor
