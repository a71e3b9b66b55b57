#pragma once

#include <memory>
#include <span>
#include <string>

#include "host/CallBackManager.h"
#include "host/StatusOr.h"
#include "core/PluginCore.h"

namespace velqor {

// Names of result files in the application's temporary directory, the
// never-replacing writer that creates them, and the `cleanup` command.
//
// Threads: every operation runs synchronously on its caller's thread and keeps
// no state.
class TempFiles {
 public:
  // directory (standardized) + "/velqor_photo_" + stamp + "." + extension. A path
  // at which something exists is never returned: the next candidate adds
  // "_2", "_3", ... after the stamp.
  static std::string tempFilePath(const PluginCore& core, const std::string& extension);

  // Writes `bytes` to `path` without ever replacing an existing file: the data
  // goes to a staging name in the same directory and is moved into place only
  // when complete. When `path` was taken meanwhile, the next free candidate of
  // the same name is used. The file's directory must be `requiredDirectory`
  // itself (after the kernel resolves the path), so a name that reaches
  // elsewhere is refused. Returns the path written.
  static StatusOr<std::string> writeNew(const std::string& path, std::span<const std::uint8_t> bytes,
                                        const std::string& requiredDirectory);

  // Deletes every entry of the temporary directory and answers `cb` once.
  static void cleanup(const PluginCore& core, CallBackManager& cb);

  // The standardized form of the temporary directory: no trailing separator.
  static std::string standardizedDirectory(const PluginCore& core);
};

}  // namespace velqor
