#pragma once

#include "host/Status.h"
#include "media/AvHandles.h"

namespace velqor {

// The movie-wide metadata an exported MPEG-4 file keeps from its source: the
// creation time (it also dates the movie and track headers), the recorded
// place, make, model, software and every other key, and the chapters. The
// writer stores the keys as QuickTime metadata keys (`writerOptions`), as a
// phone does; the place is stored under both of its names, the QuickTime key
// "com.apple.quicktime.location.ISO6709" and the user-data "location" (©xyz,
// which an MPEG-4 writer stores as a 3GPP "loci" box), whichever the source
// had (the loci box keeps coordinates to about 1e-5 degrees; the QuickTime
// key keeps the text as recorded). Keys that describe the source's container
// (its brands, its writer) and a reader's per-language copies of a key are
// not carried: the new file has its own.
//
// Threads: any; works on the contexts it is given.
class MovieMetadata {
 public:
  static constexpr const char* kQuickTimeLocation = "com.apple.quicktime.location.ISO6709";
  static constexpr const char* kUserDataLocation = "location";
  // Options for avformat_write_header that make the MPEG-4 writer store every
  // key (appended to `movflags`).
  static constexpr const char* kWriterFlags = "+use_metadata_tags";

  static Status carry(const AVFormatContext& in, AVFormatContext& out);
};

}  // namespace velqor
