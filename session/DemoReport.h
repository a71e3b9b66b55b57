#pragma once

#include <string>
#include <vector>

#include "session/ScenarioRunner.h"
#include "host/StatusOr.h"

namespace velqor {

// Writes index.html for a set of scenario runs, for a person to read: per
// scenario a one-line summary in words, the device set-up and the user's
// actions (crops and fixes included), each call's options by name and time,
// cards of what the phone's screen showed, what came back, and thumbnails of
// the inputs beside the outputs with their sizes and orientation. Long values
// are folded; a scenario that could not be run shows as failed with the reason.
// Returns the report's path.
//
// Threads: any; writes only inside `directory`.
class DemoReport {
 public:
  static StatusOr<std::string> write(const std::vector<ScenarioResult>& results, const std::string& directory);
};

}  // namespace velqor
