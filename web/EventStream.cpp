#include "web/EventStream.h"

#include <algorithm>
#include <cctype>
#include <cstring>

namespace velqor {

EventStream::EventStream(ChangeFeed& feed, State state, size_t answersFrom, size_t eventsFrom,
                         std::chrono::steady_clock::duration keepalive)
    : feed_(feed), state_(std::move(state)), answers_(answersFrom), events_(eventsFrom), keepalive_(keepalive) {}

std::optional<std::pair<size_t, size_t>> EventStream::parseId(const std::string& id) {
  const auto dot = id.find('.');
  if (dot == std::string::npos) return std::nullopt;
  const auto count = [](const std::string& s) -> std::optional<size_t> {
    if (s.empty() || s.size() > 18 || !std::all_of(s.begin(), s.end(), [](unsigned char c) { return std::isdigit(c); }))
      return std::nullopt;
    return static_cast<size_t>(std::stoull(s));
  };
  const auto a = count(id.substr(0, dot)), e = count(id.substr(dot + 1));
  if (!a || !e) return std::nullopt;
  return std::pair{*a, *e};
}

bool EventStream::nextMessage() {
  if (started_) {
    const auto sequence = feed_.waitPast(seen_, keepalive_);
    if (!sequence) return false;
    if (*sequence == seen_) {
      pending_ = ": keepalive\n\n";
      offset_ = 0;
      return true;
    }
  }
  // The sequence is read before the state, so a change recorded while the
  // state is made wakes the stream again.
  seen_ = feed_.sequence();
  auto state = state_(answers_, events_);
  if (!state.ok()) return false;
  started_ = true;
  (*state)["seq"] = seen_;
  // The counts the host reports win: an id from an earlier run of the server
  // may lie past them.
  answers_ = state->value("answerCount", answers_);
  events_ = state->value("eventCount", events_);
  pending_ = "id: " + std::to_string(answers_) + "." + std::to_string(events_) + "\nevent: state\ndata: " +
             state->dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + "\n\n";
  offset_ = 0;
  return true;
}

std::optional<size_t> EventStream::read(char* buffer, size_t size) {
  while (offset_ >= pending_.size())
    if (!nextMessage()) return std::nullopt;
  const size_t n = std::min(size, pending_.size() - offset_);
  std::memcpy(buffer, pending_.data() + offset_, n);
  offset_ += n;
  return n;
}

}  // namespace velqor
