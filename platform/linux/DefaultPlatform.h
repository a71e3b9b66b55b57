#pragma once

#include <memory>

#include "host/ManualExecutor.h"
#include "platform/PlatformServices.h"

namespace velqor {

// The platform a plug-in gets from its argument-less constructor: the
// process-wide main queue (driven by the host runtime), a worker pool sized to
// the machine, and the simulated device in its default state.
class DefaultPlatform {
 public:
  static PlatformServices services();
  // The process-wide main queue; the host runtime's loop runs it.
  static std::shared_ptr<ManualExecutor> mainQueue();
};

}  // namespace velqor
