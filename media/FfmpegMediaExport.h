#pragma once

#include <atomic>
#include <memory>

#include "platform/ExportSession.h"

namespace velqor {

// Media export on FFmpeg's libavformat: packets are copied into an MP4 without
// re-encoding, for the asked time range, with the index moved to the front
// when network use is optimised. Inputs are opened with the MOV/MP4 demuxer
// forced and only the file protocol allowed, so a file that merely claims to
// be a movie never makes it read anything else. A stream an MP4 cannot carry
// fails the export with a clear description. The output is written under a
// temporary name in the output's directory and renamed into place, without
// replacing anything, only when complete; a failed or cancelled export leaves
// nothing at the output URL.
//
// Threads: each export runs on a thread of its own; see ExportSession.
class FfmpegMediaExport final : public MediaExport {
 public:
  double assetDuration(const Url& asset) override;
  std::shared_ptr<ExportSession> makeSession(const Url& asset, const std::string& preset) override;
  bool idle() const override { return running_->load() == 0; }

 private:
  std::shared_ptr<std::atomic<int>> running_ = std::make_shared<std::atomic<int>>(0);
};

}  // namespace velqor
