#include "velqor/CameraPlugin.h"

#include <nlohmann/json.hpp>

#include "embed/CameraPluginWiring.h"
#include "host/ValueJson.h"

namespace velqor {

CommandAnswer publicAnswer(const Answer& answer) {
  CommandAnswer out;
  out.callbackId = answer.callbackId;
  out.status = answer.status;
  out.keepCallback = answer.keepCallback;
  out.afterFinal = answer.afterFinal;
  const nlohmann::json j = answer.toJson();
  out.payloadJson = j["payload"].dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
  out.jsonLine = j.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
  return out;
}

namespace {

std::vector<CommandAnswer> publicAnswers(const std::vector<Answer>& answers) {
  std::vector<CommandAnswer> out;
  out.reserve(answers.size());
  for (const auto& a : answers) out.push_back(publicAnswer(a));
  return out;
}

Status unknownOperation(std::string_view operation) {
  return Status::invalidArgument("the plug-in has no operation \"" + std::string(operation) + "\"");
}

}  // namespace

CameraPlugin::CameraPlugin(std::unique_ptr<Wiring> wiring) : wiring_(std::move(wiring)) {}

CameraPlugin::~CameraPlugin() {
  // The handler captures the embedder's state; it must not outlive this handle.
  wiring_->host.answers()->setListener(nullptr);
}

std::vector<std::string> CameraPlugin::operationNames() const { return wiring_->host.operationNames(); }

StatusOr<std::string> CameraPlugin::callCommand(std::string_view operation, std::string_view argumentsJson) {
  const std::string name(operation);
  if (!wiring_->host.hasOperation(name)) return unknownOperation(operation);
  if (!commandOperations().count(name))
    return Status::invalidArgument(name + " is a plain operation: call it with callPlain");
  ASSIGN_OR_RETURN(Array arguments, argumentsFromJson(argumentsJson));
  auto id = wiring_->host.callCommand(name, std::move(arguments));
  if (!id) return unknownOperation(operation);
  return *id;
}

StatusOr<std::string> CameraPlugin::callPlain(std::string_view operation, std::string_view argumentJson) {
  const std::string name(operation);
  if (!wiring_->host.hasOperation(name)) return unknownOperation(operation);
  if (commandOperations().count(name))
    return Status::invalidArgument(name + " is a command: call it with callCommand");
  auto json = nlohmann::json::parse(argumentJson, nullptr, false);
  if (json.is_discarded()) return Status::invalidArgument("the argument is not JSON: " + std::string(argumentJson));
  auto result = wiring_->host.callPlain(name, valueFromJson(json));
  if (!result) return unknownOperation(operation);
  return valueToJson(*result).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

CameraPlugin::RunOutcome CameraPlugin::runUntilAnswered(const std::string& callbackId,
                                                        std::chrono::milliseconds timeout) {
  switch (wiring_->host.runUntilAnswered(callbackId, timeout)) {
    case HostRuntime::RunResult::answered:
      return RunOutcome::answered;
    case HostRuntime::RunResult::quiescent:
      return RunOutcome::open;
    case HostRuntime::RunResult::timedOut:
      break;
  }
  return RunOutcome::timedOut;
}

bool CameraPlugin::runUntilQuiescent(std::chrono::milliseconds timeout) {
  return wiring_->host.runUntilQuiescent(timeout);
}

std::vector<CommandAnswer> CameraPlugin::answers() const {
  return publicAnswers(wiring_->host.answers()->answers());
}

std::vector<CommandAnswer> CameraPlugin::answersFor(const std::string& callbackId) const {
  return publicAnswers(wiring_->host.answers()->answersFor(callbackId));
}

void CameraPlugin::setAnswerHandler(std::function<void(const CommandAnswer&)> handler) {
  if (!handler) {
    wiring_->host.answers()->setListener(nullptr);
    return;
  }
  wiring_->host.answers()->setListener(
      [handler = std::move(handler)](const Answer& answer) { handler(publicAnswer(answer)); });
}

}  // namespace velqor
