#pragma once

#include "host/StatusOr.h"
#include "platform/linux/MediaStack.h"

namespace velqor {

// Loads the media module (libvelqor_media.so) once per process, on first use,
// with dlopen: from the directory of the program or library this code is part
// of (the module is installed beside libvelqor_camera.so), from the library
// folder of the prefix an installed program lies in, from the prefix this
// build installs into, else from the build tree it was built in. Never
// unloaded.
//
// Threads: any; the first callers wait for one load.
class MediaModule {
 public:
  static constexpr const char* kFileName = "libvelqor_media.so";
  // The module's stack, or why it could not be loaded (unavailable).
  static StatusOr<MediaStack*> stack();
  // True once the module was loaded in this process.
  static bool loaded();
};

}  // namespace velqor
