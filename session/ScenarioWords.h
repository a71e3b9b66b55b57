#pragma once

#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "session/ScenarioRunner.h"

namespace velqor {

// A scenario run told in plain words for the report: what the device was,
// what the user did, which options each call had, and what came back.
//
// Threads: any; pure.
class ScenarioWords {
 public:
  // "camera access denied; no settings page", or the ordinary phone.
  static std::string device(const nlohmann::ordered_json& device);
  // One action a line, in order: photos, picks, crops, cancels, taps, fixes.
  static std::vector<std::string> userActions(const ScenarioResult& result);
  // "quality 50 · FILE_URI · CAMERA · JPEG · PICTURE · fit in 640 × 640 · ..."
  static std::string options(const nlohmann::ordered_json& options);
  // One answer: "a JPEG data URL (43,210 characters)", "NO_PERMISSION: “…”".
  static std::string answer(const nlohmann::ordered_json& answer);
  // What came back for every command, open ones with their first reason.
  static std::string cameBack(const ScenarioResult& result);
  // Device, user and outcome in one line.
  static std::string summary(const ScenarioResult& result);
};

}  // namespace velqor
