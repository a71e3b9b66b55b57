#pragma once

#include <string>
#include <vector>

#include "velqor/StatusOr.h"

namespace velqor {

/// What one scenario run produced and whether it met the scenario's expectations.
struct ScenarioReport {
  std::string name;
  bool passed = true;
  /// Each expectation that was not met, one line each.
  std::vector<std::string> differences;
  /// The answers, one JSON object a line, each with its "command" label.
  std::vector<std::string> answers;
  /// What the user saw, one JSON object a line.
  std::vector<std::string> events;
  /// "label: reason" for each command left open.
  std::vector<std::string> open;
  /// Result files the plug-in left in the temporary directory.
  std::vector<std::string> outputs;
};

/// Replays a scenario file: a device, what its user does, a list of host calls,
/// and the answers, events, open commands and files to expect. The format is
/// described in README ("Scenarios"); `scenarios/` in the source tree holds one
/// per road of a capture.
///
/// Threads: any thread; each run sets up a CameraSession of its own and drives
/// it on the calling thread.
class ScenarioPlayer {
 public:
  /// Runs `file` in `workDirectory`/STEM/ (STEM: the file name without extension, emptied first). A scenario
  /// that cannot be read or set up is an error; an unmet expectation is a
  /// report with `passed` false.
  static StatusOr<ScenarioReport> run(const std::string& file, const std::string& workDirectory);
};

}  // namespace velqor
