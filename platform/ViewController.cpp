#include "platform/ViewController.h"

#include "platform/Screen.h"

namespace velqor {

void ViewController::viewWillAppear(bool) {}

void ViewController::presentViewController(std::shared_ptr<ViewController> vc, bool animated,
                                           UniqueFunction<void()> completion) {
  screen_->present(shared_from_this(), vc, animated, std::move(completion));
}

void ViewController::dismissViewControllerAnimated(bool animated, UniqueFunction<void()> completion) {
  auto presented = presentedViewController();
  if (presented) {
    screen_->dismiss(shared_from_this(), presented, animated, std::move(completion));
    return;
  }
  if (auto presenting = presentingViewController())
    screen_->dismiss(presenting, shared_from_this(), animated, std::move(completion));
}

std::shared_ptr<ViewController> ViewController::presentingViewController() const {
  std::lock_guard lock(mutex_);
  return presenting_.lock();
}

std::shared_ptr<ViewController> ViewController::presentedViewController() const {
  std::lock_guard lock(mutex_);
  return presented_;
}

std::int64_t ViewController::modalPresentationStyle() const {
  std::lock_guard lock(mutex_);
  return modalPresentationStyle_;
}

void ViewController::setModalPresentationStyle(std::int64_t style) {
  std::lock_guard lock(mutex_);
  modalPresentationStyle_ = style;
}

void ViewController::setPresenting(const std::shared_ptr<ViewController>& presenting) {
  std::lock_guard lock(mutex_);
  presenting_ = presenting;
}

void ViewController::setPresented(std::shared_ptr<ViewController> presented) {
  std::lock_guard lock(mutex_);
  presented_ = std::move(presented);
}

}  // namespace velqor
