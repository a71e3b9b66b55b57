#pragma once

#include "host/UniqueFunction.h"

namespace velqor {

// Somewhere work runs: the main queue, the worker pool, a platform queue.
//
// Threads: `post` may be called from any thread. Work is always queued, never
// run inline, also when `post` is called from the executor's own thread.
class Executor {
 public:
  virtual ~Executor() = default;
  virtual void post(UniqueFunction<void()> work) = 0;
  // True when nothing is queued or running.
  virtual bool idle() const = 0;
};

}  // namespace velqor
