#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "platform/ViewController.h"

namespace velqor {

// An alert with a title, a message and buttons in the order they were added.
// A tapped button's handler runs on the main queue.
//
// Threads: built on any thread, presented and tapped on the main queue.
class AlertController final : public ViewController {
 public:
  static constexpr std::int64_t styleActionSheet = 0;
  static constexpr std::int64_t styleAlert = 1;
  static constexpr std::int64_t actionStyleDefault = 0;
  static constexpr std::int64_t actionStyleCancel = 1;
  static constexpr std::int64_t actionStyleDestructive = 2;

  // The action style as a screen shows it: "default", "cancel" or
  // "destructive"; a value outside those three is named by its number.
  static std::string actionStyleName(std::int64_t style) {
    switch (style) {
      case actionStyleDefault: return "default";
      case actionStyleCancel: return "cancel";
      case actionStyleDestructive: return "destructive";
      default: return "style " + std::to_string(style);
    }
  }

  struct Action {
    std::string title;
    std::int64_t style = actionStyleDefault;
    std::function<void()> handler;
  };

  AlertController(std::shared_ptr<Screen> screen, std::string title, std::string message,
                  std::int64_t preferredStyle)
      : ViewController(std::move(screen)),
        title_(std::move(title)),
        message_(std::move(message)),
        preferredStyle_(preferredStyle) {}

  std::string kindName() const override { return "alert"; }

  void addAction(Action action) { actions_.push_back(std::move(action)); }

  const std::string& title() const { return title_; }
  const std::string& message() const { return message_; }
  std::int64_t preferredStyle() const { return preferredStyle_; }
  const std::vector<Action>& actions() const { return actions_; }

 private:
  std::string title_;
  std::string message_;
  std::int64_t preferredStyle_;
  std::vector<Action> actions_;
};

}  // namespace velqor
