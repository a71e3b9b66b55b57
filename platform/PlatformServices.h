#pragma once

#include <memory>

#include "host/CompletionMonitor.h"
#include "host/Executor.h"

namespace velqor {

// Every platform service the plug-in reaches, injected as one bundle. The
// default platform and the simulated device each fill it; tests fill it with
// manual executors and doubles.
//
// Threads: the bundle is immutable after the plug-in is created.
struct PlatformServices {
  // The main dispatch queue: every user-interface step and every answer of the
  // picker callbacks runs here.
  std::shared_ptr<Executor> mainQueue;
  // The asynchronous runtime's worker threads: result builders run here.
  std::shared_ptr<Executor> workerPool;
  // Told about completions called twice or never.
  std::shared_ptr<CompletionMonitor> completionMonitor;
};

}  // namespace velqor
