#pragma once

#include <memory>
#include <mutex>

namespace velqor {

class ViewController;

// Where the host keeps the view controller a plug-in presents on. Shared, so
// work that outlives the plug-in object can still ask for it.
//
// Threads: get and set from any thread.
class ViewControllerSlot {
 public:
  std::shared_ptr<ViewController> get() const {
    std::lock_guard lock(mutex_);
    return viewController_;
  }
  void set(std::shared_ptr<ViewController> vc) {
    std::lock_guard lock(mutex_);
    viewController_ = std::move(vc);
  }

 private:
  mutable std::mutex mutex_;
  std::shared_ptr<ViewController> viewController_;
};

// The host's base class of every plug-in. The host sets the view controller
// the plug-in presents on; it may be absent.
//
// Threads: `viewController` may be read on any thread.
class VelqorPlugin {
 public:
  VelqorPlugin() : slot_(std::make_shared<ViewControllerSlot>()) {}
  virtual ~VelqorPlugin() = default;
  VelqorPlugin(const VelqorPlugin&) = delete;
  VelqorPlugin& operator=(const VelqorPlugin&) = delete;

  std::shared_ptr<ViewController> viewController() const { return slot_->get(); }
  void setViewController(std::shared_ptr<ViewController> vc) { slot_->set(std::move(vc)); }
  const std::shared_ptr<ViewControllerSlot>& viewControllerSlot() const { return slot_; }

 private:
  std::shared_ptr<ViewControllerSlot> slot_;
};

}  // namespace velqor
