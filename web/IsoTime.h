#pragma once

#include <chrono>
#include <optional>
#include <string>

namespace velqor {

// Times written as ISO-8601 by a page: "2026-05-01T12:30:00Z", with an
// optional fraction of a second and a zone of "Z" or "+hh:mm"/"-hh:mm"
// (what JavaScript's Date.toISOString and most clients send).
//
// Threads: any; pure.
class IsoTime {
 public:
  // The instant, or none when the text is not such a time (a zone is required:
  // a time without one names no instant).
  static std::optional<std::chrono::system_clock::time_point> parse(const std::string& text);
};

}  // namespace velqor
