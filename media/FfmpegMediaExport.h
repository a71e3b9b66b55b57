#pragma once

#include <atomic>
#include <memory>

#include "platform/ExportSession.h"

namespace velqor {

// Media export on FFmpeg's libavformat: each session copies its movie's
// packets into an MP4 without re-encoding, for the asked time range, with the
// index moved to the front when network use is optimised (MovieRemux: the
// safe demuxer, the temporary file renamed into place without replacing
// anything, nothing left at the output after a failure or a cancel). What the
// copy keeps besides the media (sample entry tags, display matrix, languages,
// handler names, timed-metadata tracks, creation time, place, other keys,
// chapters) is decided by MovieTracks and MovieMetadata; a track an MP4
// cannot carry fails the export with a description of that track.
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
