#pragma once

#include <memory>
#include <mutex>

#include "platform/ExportSession.h"

namespace velqor {

// The media export of the media module (FfmpegMediaExport), made the first
// time a movie is handled: until then the process has not loaded FFmpeg at all.
// When the module cannot be loaded, durations are not finite and no session
// is made, as for a movie that cannot be read.
//
// Threads: any.
class LazyMediaExport final : public MediaExport {
 public:
  double assetDuration(const Url& asset) override;
  std::shared_ptr<ExportSession> makeSession(const Url& asset, const std::string& preset) override;
  bool idle() const override;

 private:
  std::shared_ptr<MediaExport> exporter();

  mutable std::mutex mutex_;
  std::shared_ptr<MediaExport> exporter_;
};

}  // namespace velqor
