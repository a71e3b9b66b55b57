#pragma once

#include <memory>
#include <optional>

#include "imaging/PlatformImage.h"

namespace velqor {

// The two drawing operations applied to a picture before it is encoded. Each
// draws into a fresh bitmap; the source is never changed.
//
// A context's pixel size is its point size rounded to the nearest whole pixel
// (666.67 becomes 667); a size that rounds to zero, is not finite, or exceeds
// the pixel limit yields no context, and the operation returns none.
//
// Threads: any; no state.
class ImageGeometry {
 public:
  // Turns the stored pixels upright for the down, left and right orientations.
  // Mirrored orientations are not mirrored back; left- and right-mirrored ones
  // come out as the stored bitmap stretched to the swapped size. An image
  // without a stored bitmap gives a blank, transparent image of its size.
  static std::shared_ptr<PlatformImage> imageCorrectedForCaptureOrientation(const PlatformImage& image,
                                                                            int orientation);

  // Fits the image inside `target` keeping its aspect ratio, drawn upright
  // (its orientation applied, mirrors included). Enlarges as well as shrinks.
  static std::shared_ptr<PlatformImage> imageByScalingNotCroppingForSize(const PlatformImage& image,
                                                                         ImageSize target);

  // The unrounded output size of the scaling; none for a source of zero size.
  static std::optional<ImageSize> scaledSize(ImageSize source, ImageSize target);
  // Points to whole pixels; none when no context could be made.
  static std::optional<int> contextPixels(double points);

  // The largest context a scaling draws into, in bytes of RGBA pixels: its
  // pixels are realized as they are. A correction only permutes the stored
  // pixels, realized later (streamed at full size, or within the decode
  // budget), so its context may be as large as a header the codecs accept.
  static constexpr std::uint64_t kMaxContextBytes = 1ull << 30;
  static constexpr std::uint64_t kMaxContextPixels = kMaxContextBytes / 4;
  static constexpr std::uint64_t kMaxCorrectionPixels = 1'000'000'000;
};

}  // namespace velqor
