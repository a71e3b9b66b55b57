#pragma once

#include <mutex>
#include <string>
#include <vector>

namespace velqor {

// The user's preferred languages when they may change while the app runs, as
// a phone's user changes them in the settings (the web host's device set-up
// does). Empty: none chosen, the device's languages hold.
//
// Threads: any.
class LanguageSetting {
 public:
  void set(std::vector<std::string> languages) {
    std::lock_guard lock(mutex_);
    languages_ = std::move(languages);
  }
  std::vector<std::string> get() const {
    std::lock_guard lock(mutex_);
    return languages_;
  }

 private:
  mutable std::mutex mutex_;
  std::vector<std::string> languages_;
};

}  // namespace velqor
