#pragma once

#include <memory>
#include <array>
#include <optional>
#include <string>

#include "host/StatusOr.h"
#include "host/Value.h"
#include "imaging/ImageCodec.h"
#include "platform/PhotoLibrary.h"

namespace velqor {

// What the simulated user chose in the picker, turned into the picker's info
// dictionary the way the phone fills it:
//   - a camera photo: the original image, the media type, and the file's
//     metadata under the media-metadata key;
//   - a camera video: a copy of the movie in the temporary directory (the
//     picker's own file, which the plug-in deletes), as the media URL;
//   - a library pick: the original image (or the movie copy), the asset and its
//     reference URL, and no media metadata;
//   - with an edit rectangle (in upright pixels), the cropped edited image too.
struct SimPickerChoice {
  enum class Kind { photo, video, pick } kind = Kind::photo;
  std::string file;   // photo, video: the user's file (never modified)
  std::string asset;  // pick: a local identifier, or a file imported first
  std::optional<std::array<double, 4>> edit;  // x, y, width, height
};

class SimPickerMedia {
 public:
  static StatusOr<Dictionary> info(const SimPickerChoice& choice, ImageCodec& codec, PhotoLibrary* library,
                                   const std::string& temporaryDirectory);
};

}  // namespace velqor
