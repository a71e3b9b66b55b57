#pragma once

#include <memory>

#include "capture/PictureOptions.h"
#include "host/Task.h"
#include "core/PluginCore.h"
#include "core/ResultPair.h"

namespace velqor {

// The result builder for everything that is not a still image with options:
// saves the picker's movie to the album when asked, re-packages it into an
// MPEG-4 temporary file without re-encoding, deletes the picker's movie, and
// answers with a data URL or the file's URI.
//
// Threads: runs on the worker pool and suspends once, while the export runs.
class VideoResult {
 public:
  static Task<ResultPair> resultForVideo(std::shared_ptr<PluginCore> core, std::shared_ptr<PictureOptions> options,
                                         Dictionary info);
};

}  // namespace velqor
