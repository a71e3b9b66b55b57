#pragma once

#include <functional>
#include <optional>

#include "host/Url.h"

namespace velqor {

// The host's command delegate. Its optional URL transformer rewrites file URLs
// into a form the host's web view can load.
//
// Threads: `urlTransformer` is read and called from any thread.
class CommandDelegate {
 public:
  using UrlTransformer = std::function<Url(const Url&)>;

  explicit CommandDelegate(std::optional<UrlTransformer> transformer = std::nullopt)
      : urlTransformer_(std::move(transformer)) {}

  const std::optional<UrlTransformer>& urlTransformer() const { return urlTransformer_; }

 private:
  std::optional<UrlTransformer> urlTransformer_;
};

}  // namespace velqor
