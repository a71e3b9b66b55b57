#pragma once

#include <memory>

#include "core/PluginCore.h"

namespace velqor {

// The two alerts shown when camera or photo-library access was refused. Each
// has a settings button and a cancel button; their handlers may answer the
// current command with NO_PERMISSION.
//
// Threads: callable from any thread. The alert and its texts are made on the
// calling thread; the presentation is always queued to the main queue; the
// buttons' handlers run on the main queue.
class PermissionPrompts {
 public:
  static void showDenyCameraPermission(const std::shared_ptr<PluginCore>& core);
  static void retryPermission(const std::shared_ptr<PluginCore>& core);
};

}  // namespace velqor
