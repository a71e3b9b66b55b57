#pragma once

#include <string>

#include "host/Url.h"

namespace velqor {

// The shared application: opens the settings page.
//
// Threads: main queue.
class Application {
 public:
  virtual ~Application() = default;
  // The settings page's address, from which a URL is formed.
  virtual std::string openSettingsURLString() = 0;
  // Fire and forget: no completion handler is given.
  virtual void openURL(const Url& url) = 0;
};

}  // namespace velqor
