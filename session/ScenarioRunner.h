#pragma once

#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "host/StatusOr.h"

namespace velqor {

// What one scenario run produced.
struct ScenarioResult {
  std::string name;
  std::string description;
  bool passed = true;
  std::vector<std::string> differences;        // expectation mismatches, one line each
  nlohmann::ordered_json steps = nlohmann::ordered_json::array();  // call, options, milliseconds
  nlohmann::ordered_json events = nlohmann::ordered_json::array();
  nlohmann::ordered_json answers = nlohmann::ordered_json::array();  // each with its "command" label
  std::vector<std::string> open;               // "label: why" for commands left unanswered
  std::vector<std::string> inputs;             // sample files made for the run
  std::vector<std::string> outputs;            // result files in the temporary directory
  std::vector<std::string> watchdog;
  // The scenario's set-up as written: its "device", "user" and "location".
  nlohmann::ordered_json device = nlohmann::ordered_json::object();
  nlohmann::ordered_json user = nlohmann::ordered_json::object();
  nlohmann::ordered_json location = nlohmann::ordered_json::array();
  // Why the scenario could not be run at all (unreadable, malformed); empty
  // when it ran.
  std::string error;
};

// Replays a scenario file: a device, what its user does, a list of host calls,
// and optionally the answers, events and open commands to expect.
//
//   {
//     "name": "...", "description": "...",
//     "inputs": {"photo": {"kind": "camera-jpeg", "width": 1024, "height": 768, "orientation": 6}},
//     "device": {"sources": ["camera", "library"], "cameraAccess": "denied", "libraryAccess": "authorized",
//                "cameraAnswer": "granted", "libraryAnswer": "authorized", "viewController": true,
//                "settingsPage": true, "language": "fr", "bundle": "none", "fileUrlPrefix": "http://x/files"},
//     "user": {"photo": "$photo", "video": "$movie", "pick": "$photo", "edit": [0, 0, 100, 100],
//              "cancel": true, "tap": "cancel"},
//     "location": [[-33.5, 151.2, 25]],
//     "steps": [{"call": "takePicture", "args": [50, 1, 1], "label": "first"},
//               {"call": "imagePickerControllerReturnImageResult"}, {"call": "cleanup"}],
//     "expect": {"answers": [{"command": "first", "status": "OK",
//                             "payload": {"callbackURI": {"prefix": "file://"}}}],
//                "events": ["pickerPresented", "pickerFinished", "pickerDismissed"],
//                "open": ["first"],
//                "images": [{"width": 768, "height": 1024, "sameAs": {"input": "photo"}}]}
//   }
//
// In expectations a string may be matched by {"prefix"}, {"suffix"},
// {"contains"} or {"regex"} (RE2 syntax, see PatternMatcher); an object matches when every key it names matches.
// "images" checks the pixels of the pictures left in the temporary directory
// (see ScenarioImages).
class ScenarioRunner {
 public:
  // Runs in `workDirectory`/<file stem>/, which FolderPolicy checks and
  // empties first: a run folder this tool did not make is refused unless
  // `force`. A scenario that cannot be read or set up is an error naming the
  // file and the field; a mismatch is a failed result. Files past 4 MiB or
  // nested more than 64 deep are refused.
  static StatusOr<ScenarioResult> run(const std::string& file, const std::string& workDirectory);
  static StatusOr<ScenarioResult> run(const std::string& file, const std::string& workDirectory, bool force);
  // The same, with a scenario that cannot be run turned into a failed result
  // that says why, so one bad file never stops a run of many.
  static ScenarioResult runOrExplain(const std::string& file, const std::string& workDirectory);
};

}  // namespace velqor
