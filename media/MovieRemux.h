#pragma once

#include <atomic>
#include <string>
#include <vector>

#include "host/Status.h"
#include "media/AvHandles.h"

namespace velqor {

// One copy of a movie's packets into a new MP4, without re-encoding: the
// tracks and metadata MovieTracks and MovieMetadata carry, the packets of the
// asked time range, the index in front when `faststart`. The file is written
// under a temporary name beside the output and renamed into place, never
// replacing anything, only when complete; otherwise the temporary file is
// removed and nothing is left at the output.
//
// Threads: one copy runs on one thread; `cancel` may be raised from any other.
class MovieRemux {
 public:
  // `duration` in seconds; not finite: to the end.
  MovieRemux(std::string input, std::string output, double start, double duration, bool faststart,
             const std::atomic<bool>& cancel);
  ~MovieRemux();
  MovieRemux(const MovieRemux&) = delete;
  MovieRemux& operator=(const MovieRemux&) = delete;

  // cancelled when `cancel` was raised; invalidArgument for a movie an MP4
  // cannot hold; alreadyExists when the output could not be put in place;
  // dataLoss for a source that cannot be read.
  Status run();

  // Opens a movie the safe way: the MOV/MP4 demuxer only, the file protocol
  // only, so a file that merely claims to be a movie reads nothing else. A
  // negative FFmpeg error code on failure.
  static int openInput(const std::string& path, AvInput& out);

 private:
  Status open();
  Status writeHeader();
  bool bounded() const;
  bool inRange(const AVPacket& pkt, bool isBounded) const;
  Status copyPackets();
  Status finish();

  std::string inputPath_, outputPath_, tempPath_;
  double start_, duration_;
  bool faststart_;
  const std::atomic<bool>& cancel_;
  AvInput in_;
  AvOutput out_;
  std::vector<int> map_;
};

}  // namespace velqor
