#pragma once

#include <memory>
#include <optional>
#include <utility>

#include "host/StatusOr.h"
#include "host/Value.h"
#include "imaging/Bitmap.h"
#include "imaging/Dihedral.h"
#include "imaging/ImageSource.h"

namespace velqor {

struct ImageSize {
  double width = 0;
  double height = 0;
  friend bool operator==(const ImageSize&, const ImageSize&) = default;
};

// Image orientations with their published raw values.
namespace ImageOrientation {
constexpr int up = 0, down = 1, left = 2, right = 3, upMirrored = 4, downMirrored = 5, leftMirrored = 6,
              rightMirrored = 7;
// From an EXIF Orientation tag: 1 up, 3 down, 6 right, 8 left, 2 upMirrored,
// 4 downMirrored, 5 leftMirrored, 7 rightMirrored, anything else up.
int fromExif(long tag);
// The EXIF Orientation tag of an orientation (the inverse of fromExif); 1 for
// up and for values outside the enumeration.
int toExif(int orientation);
}  // namespace ImageOrientation

// An image as the plug-in handles it: its displayed size (orientation
// applied), its stored bitmap (which may be absent), and its orientation.
//
// Pixels stay encoded until they are needed. An image made by drawing another
// one keeps the source and the drawing (an exact pixel permutation, then a
// resize to whole pixels), so a chain of corrections and scalings is realized
// in one pass: decoded at the smallest codec scale that still leaves 1.5 times
// the final size, permuted on the reduced bitmap, and resampled once.
//
// Threads: immutable; any thread.
class PlatformImage final : public PlatformObject {
 public:
  static std::shared_ptr<PlatformImage> fromSource(std::shared_ptr<const ImageSource> source, int orientation);
  static std::shared_ptr<PlatformImage> fromBitmap(Bitmap bitmap, int orientation = ImageOrientation::up);
  // An image without a stored bitmap, of the given stored size.
  static std::shared_ptr<PlatformImage> withoutBitmap(int width, int height, int orientation);

  std::string kindName() const override { return "image"; }

  ImageSize size() const;
  int imageOrientation() const { return orientation_; }
  int storedWidth() const { return width_; }
  int storedHeight() const { return height_; }
  bool hasBitmap() const { return source_ != nullptr || bitmap_ != nullptr; }
  // The container of the original bytes, or "" for a drawn image.
  std::string sourceTypeName() const;

  // The stored bitmap, realized now; none when there is none or it cannot be
  // decoded. It carries the image's colour profile.
  std::optional<Bitmap> cgImage() const;
  // The same, or why it cannot be had ("no bitmap", the decoder's reason).
  StatusOr<Bitmap> pixels() const;
  // Why realizing the bitmap would exceed the decode limits, found from the
  // header alone; ok when it fits or there is nothing to decode.
  Status checkDecode() const;
  // The colour profile the pixels are in (ICC bytes), or none for sRGB.
  const std::shared_ptr<const Bytes>& iccProfile() const { return iccProfile_; }

  // The undecoded source and the permutation drawing applied to it; null for a
  // bitmap image. `isSourcePermuted` says the pixels are exactly the source's,
  // permuted by `transform` and not resized, so an encoder may take them
  // straight from the source.
  const std::shared_ptr<const ImageSource>& source() const { return source_; }
  Dihedral transform() const { return transform_; }
  bool isSourcePermuted() const;

  // A new image of `width` x `height` pixels whose pixels are this image's
  // stored bitmap permuted by `t` and resized; its orientation is `orientation`.
  std::shared_ptr<PlatformImage> drawn(Dihedral t, int width, int height, int orientation) const;

 private:
  PlatformImage() = default;

  // The source's size at which realizing this image decodes it.
  std::pair<int, int> decodeRequest() const;

  std::shared_ptr<const ImageSource> source_;
  std::shared_ptr<const Bitmap> bitmap_;
  std::shared_ptr<const Bytes> iccProfile_;  // drawing keeps the values, so the profile too
  Dihedral transform_ = Dihedral::identity;  // applied to the source's pixels
  int width_ = 0, height_ = 0;               // the stored bitmap's size
  int orientation_ = ImageOrientation::up;
};

}  // namespace velqor
