#pragma once

#include <string>
#include <vector>

#include "host/StatusOr.h"
#include "media/AvHandles.h"

namespace velqor {

// Which tracks of a movie go into an MPEG-4 file, and how: each carried track
// keeps its coded media, its sample entry tag (an HEVC "hvc1" stays "hvc1"),
// its display matrix and other side data, its language, handler name and
// disposition. Audio, video, subtitle and timed-metadata tracks are carried
// when the MPEG-4 writer can hold their coding; a track it cannot hold refuses
// the whole movie with a description of that track, so nothing is dropped
// without a word. A QuickTime chapter track is not copied as a track: it
// travels as the movie's chapters (see MovieMetadata).
//
// Threads: any; works on the contexts it is given.
class MovieTracks {
 public:
  // The output track of every input track, -1 for the chapter tracks; or
  // invalidArgument with a sentence naming a track MPEG-4 cannot carry.
  static StatusOr<std::vector<int>> carry(const AVFormatContext& in, AVFormatContext& out);

  // "a timecode track (tmcd)", "a pcm_f32le audio track": a track as a user
  // would name it.
  static std::string describe(const AVStream& stream);
};

}  // namespace velqor
