#pragma once

#include <set>
#include <string>

#include "host/Answer.h"
#include "host/HostRuntime.h"
#include "velqor/CameraPlugin.h"

namespace velqor {

// What a public CameraPlugin stands on: the host runtime of the session that
// owns it. The session outlives the plug-in handle, so a plain reference does.
//
// Threads: as CameraPlugin.
struct CameraPlugin::Wiring {
  explicit Wiring(HostRuntime& runtime) : host(runtime) {}
  HostRuntime& host;
};

// The operations that take a command (a callback manager) rather than one
// plain argument.
inline const std::set<std::string>& commandOperations() {
  static const std::set<std::string> kCommands{"takePicture:", "cleanup:"};
  return kCommands;
}

// The host's record of an answer as the embedding API hands it out.
CommandAnswer publicAnswer(const Answer& answer);

}  // namespace velqor
