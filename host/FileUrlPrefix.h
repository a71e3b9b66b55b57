#pragma once

#include <string>

#include "host/CommandDelegate.h"

namespace velqor {

// The host's URL transformer, as web-view hosts offer one to make local files
// loadable by the page: "file:///path" becomes PREFIX + "/path"; any other URL
// passes unchanged.
class FileUrlPrefix {
 public:
  static CommandDelegate::UrlTransformer transformer(std::string prefix);
};

}  // namespace velqor
