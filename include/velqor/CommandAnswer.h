#pragma once

#include <string>

#include "velqor/CommandStatus.h"

namespace velqor {

/// One answer the plug-in sent to a command, as the host received it.
///
/// A plain value: copy it freely, on any thread.
struct CommandAnswer {
  /// The command's callback id, as CameraPlugin::callCommand returned it.
  std::string callbackId;
  /// OK for a success; otherwise the error status the plug-in answered with.
  CommandStatus status = CommandStatus::OK;
  /// The payload as JSON text: `null`, a message string, or an object such as
  /// `{"callbackURI": "file:///..."}` or `{"errorMsg": "..."}`. A URL value is
  /// carried as its absolute string, a byte buffer as `{"bytes": "<base64>"}`.
  std::string payloadJson;
  /// Whether the command stays open for further answers (the plug-in always sends false).
  bool keepCallback = false;
  /// True when the command had already received its final answer: a fault of
  /// the plug-in that the host records instead of dropping.
  bool afterFinal = false;
  /// The whole answer on one line:
  /// `{"keepCallback":false,"payload":...,"status":"OK"}`.
  std::string jsonLine;
};

}  // namespace velqor
