#pragma once

#include <chrono>
#include <cstdio>
#include <optional>
#include <string>
#include <variant>

#include <nlohmann/json.hpp>

#include "host/CommandStatus.h"
#include "host/Value.h"

namespace velqor {

// One answer sent through a CallBackManager, as the host records it.
struct Answer {
  std::string callbackId;
  CommandStatus status = CommandStatus::OK;
  // No payload, a message string, or a dictionary.
  std::variant<std::monostate, std::string, Dictionary> payload;
  bool keepCallback = false;
  // Set when the command had already received a final answer.
  bool afterFinal = false;
  // When the host's log took it (the moment the plug-in answered).
  std::chrono::system_clock::time_point recordedAt{};

  // {"status": "OK" or the status name, "payload": ..., "keepCallback": bool}
  nlohmann::json toJson() const;
  std::string toJsonLine() const;
  // The same line written straight to `out`, with its newline, without
  // building it in memory first.
  void writeJsonLine(std::FILE* out) const;
  // The message or the "errorMsg" entry, for diagnostics; empty when neither.
  std::string messageText() const;
};

}  // namespace velqor
