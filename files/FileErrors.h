#pragma once

#include <string>

namespace velqor {

// The localized descriptions of file-system failures, in the wording users of
// the platform know.
class FileErrors {
 public:
  static std::string removeFailed(const std::string& path, int err);
  static std::string writeFailed(const std::string& path, int err);
  static std::string readFailed(const std::string& path, int err);
};

}  // namespace velqor
