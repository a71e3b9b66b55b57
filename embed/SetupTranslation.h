#pragma once

#include "host/StatusOr.h"
#include "session/DeviceSession.h"
#include "velqor/DeviceSetup.h"

namespace velqor {

// Turns the public description of a device into the session's own
// configuration, checking every name and number on the way.
//
// Threads: any; pure apart from reading where the strings bundle is installed.
class SetupTranslation {
 public:
  static StatusOr<DeviceConfig> toConfig(const DeviceSetup& setup);
};

}  // namespace velqor
