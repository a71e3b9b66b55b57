#pragma once

#include "host/Url.h"
#include "core/PluginCore.h"

namespace velqor {

// Puts a result URL into file form and passes it through the host's
// transformer when the current command's delegate offers one.
//
// Threads: synchronous on the caller's thread; reads `currentCallBack` only.
class UrlTransformer {
 public:
  static Url transform(const PluginCore& core, const Url& url);
};

}  // namespace velqor
