#pragma once

#include <memory>

#include "capture/PictureOptions.h"
#include "host/Task.h"
#include "core/PluginCore.h"
#include "core/ResultPair.h"

namespace velqor {

// The result builder for a still picture: a data URL, a temporary file's URI,
// or a photo-library URI, as the options' destination asks; then, on every way
// out, the background album save when asked for.
//
// Threads: runs on the worker pool (it hops there first) and suspends at the
// library requests; never fails outward.
class ImageResult {
 public:
  static Task<ResultPair> resultForImage(std::shared_ptr<PluginCore> core, std::shared_ptr<PictureOptions> options,
                                         Dictionary info);
};

}  // namespace velqor
