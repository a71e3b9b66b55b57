#pragma once

#include <string>
#include <vector>

#include "host/StatusOr.h"

namespace velqor::fuzz {

// One hostile input for a whole capture.
struct CorpusEntry {
  std::string family;  // "truncated-jpeg", "exif-loop", "png-16bit", "movie-audio-only", ...
  std::string name;    // file name, extension included (it may lie about the type)
  std::string bytes;
  bool movie = false;  // handed to the picker as a recorded movie rather than a photo
  // When not 0, the most resident memory (MiB) the process of a whole capture
  // of it may reach: for files whose header claims far more pixels than their
  // data holds.
  long peakMiB = 0;
};

// Generates the adversarial corpus with the project's own code and a few
// hand-built files: dimension bombs in JPEG and PNG headers, truncations,
// zero-length and magic-only files, huge, repeated and looping EXIF, zTXt and
// iCCP decompression bombs, CMYK, arithmetic-coded and progressive JPEGs with
// scan floods, 16-bit, interlaced, palette and grey PNGs, files whose
// extension lies, byte-flipped copies, BMP, GIF and TIFF files whose palettes
// are indexed past their end or whose headers claim far more than their data
// can fill, and movies that are truncated,
// audio-only, carry PCM audio, or are playlists or images named .mov.
// Deterministic: the same entries every time.
//
// Threads: any; builds everything in memory.
class AdversarialCorpus {
 public:
  static StatusOr<std::vector<CorpusEntry>> make(const std::string& scratchDirectory);
};

}  // namespace velqor::fuzz
