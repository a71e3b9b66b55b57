#include "velqor/ScenarioPlayer.h"

#include "session/ScenarioRunner.h"

namespace velqor {
namespace {

std::vector<std::string> lines(const nlohmann::ordered_json& array) {
  std::vector<std::string> out;
  for (const auto& item : array) out.push_back(item.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace));
  return out;
}

}  // namespace

StatusOr<ScenarioReport> ScenarioPlayer::run(const std::string& file, const std::string& workDirectory) {
  ASSIGN_OR_RETURN(ScenarioResult result, ScenarioRunner::run(file, workDirectory));
  ScenarioReport report;
  report.name = result.name;
  report.passed = result.passed;
  report.differences = result.differences;
  report.answers = lines(result.answers);
  report.events = lines(result.events);
  report.open = result.open;
  report.outputs = result.outputs;
  return report;
}

}  // namespace velqor
