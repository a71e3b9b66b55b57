#pragma once

#include <string>
#include <vector>

#include "session/ScenarioRunner.h"
#include "host/StatusOr.h"

namespace velqor {

// Writes index.html for a set of scenario runs: options, what the user saw,
// the answers, the output files with thumbnails, their metadata before and
// after, and how long each step took. Returns the report's path.
class DemoReport {
 public:
  static StatusOr<std::string> write(const std::vector<ScenarioResult>& results, const std::string& directory);
};

}  // namespace velqor
