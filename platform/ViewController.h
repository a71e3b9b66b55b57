#pragma once

#include <memory>
#include <mutex>
#include <string>

#include "host/UniqueFunction.h"

namespace velqor {

class Screen;

// A screen of the user interface. Presents and dismisses other view
// controllers through the device's Screen, which animates and calls the
// completions on the main queue.
//
// Threads: main queue only, like every user-interface object (the links are
// guarded anyway so a diagnosis may read them from the host's thread).
class ViewController : public std::enable_shared_from_this<ViewController> {
 public:
  explicit ViewController(std::shared_ptr<Screen> screen) : screen_(std::move(screen)) {}
  virtual ~ViewController() = default;

  // What kind of screen this is, for events and diagnostics.
  virtual std::string kindName() const { return "viewController"; }
  // Called by the Screen before the controller comes on the screen.
  virtual void viewWillAppear(bool animated);

  void presentViewController(std::shared_ptr<ViewController> vc, bool animated,
                             UniqueFunction<void()> completion);
  // Dismisses the controller this one presents, or this one when it presents
  // nothing and was itself presented.
  void dismissViewControllerAnimated(bool animated, UniqueFunction<void()> completion);

  std::shared_ptr<ViewController> presentingViewController() const;
  std::shared_ptr<ViewController> presentedViewController() const;

  std::int64_t modalPresentationStyle() const;
  void setModalPresentationStyle(std::int64_t style);

  // Link bookkeeping, done by the Screen.
  void setPresenting(const std::shared_ptr<ViewController>& presenting);
  void setPresented(std::shared_ptr<ViewController> presented);

  const std::shared_ptr<Screen>& screen() const { return screen_; }

 private:
  std::shared_ptr<Screen> screen_;
  mutable std::mutex mutex_;
  std::weak_ptr<ViewController> presenting_;
  std::shared_ptr<ViewController> presented_;
  std::int64_t modalPresentationStyle_ = 1;
};

}  // namespace velqor
