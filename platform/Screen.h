#pragma once

#include <memory>

#include "host/UniqueFunction.h"

namespace velqor {

class ViewController;

// The device's display: carries out presentations and dismissals. A
// presentation's completion runs on the main queue once the new controller is
// on the screen; a dismissal's once it has left it.
//
// Threads: called on the main queue.
class Screen {
 public:
  virtual ~Screen() = default;
  virtual void present(const std::shared_ptr<ViewController>& presenter,
                       const std::shared_ptr<ViewController>& presented, bool animated,
                       UniqueFunction<void()> completion) = 0;
  virtual void dismiss(const std::shared_ptr<ViewController>& presenter,
                       const std::shared_ptr<ViewController>& presented, bool animated,
                       UniqueFunction<void()> completion) = 0;
};

}  // namespace velqor
