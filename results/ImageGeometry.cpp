#include "results/ImageGeometry.h"

#include <cmath>

namespace velqor {
namespace {

std::optional<std::pair<int, int>> contextSize(ImageSize size, std::uint64_t maxPixels) {
  auto w = ImageGeometry::contextPixels(size.width);
  auto h = ImageGeometry::contextPixels(size.height);
  if (!w || !h) return std::nullopt;
  if (static_cast<std::uint64_t>(*w) * static_cast<std::uint64_t>(*h) > maxPixels) return std::nullopt;
  return std::make_pair(*w, *h);
}

Dihedral correctionRotation(int orientation) {
  switch (orientation) {
    case ImageOrientation::down: return Dihedral::rotate180;
    case ImageOrientation::left: return Dihedral::rotate270;
    case ImageOrientation::right: return Dihedral::rotate90;
    default: return Dihedral::identity;
  }
}

}  // namespace

std::optional<int> ImageGeometry::contextPixels(double points) {
  if (!std::isfinite(points) || points > 1e9) return std::nullopt;
  const long rounded = std::lround(points);
  if (rounded < 1) return std::nullopt;
  return static_cast<int>(rounded);
}

std::shared_ptr<PlatformImage> ImageGeometry::imageCorrectedForCaptureOrientation(const PlatformImage& image,
                                                                                  int orientation) {
  // The context has the image's displayed size, never swapped; the stored
  // bitmap is rotated into it (a stretch where the sizes do not match).
  auto size = contextSize(image.size(), kMaxCorrectionPixels);
  if (!size) return nullptr;
  return image.drawn(correctionRotation(orientation), size->first, size->second, ImageOrientation::up);
}

std::optional<ImageSize> ImageGeometry::scaledSize(ImageSize source, ImageSize target) {
  if (source.width == target.width && source.height == target.height) return target;
  if (source.width == 0 || source.height == 0) return std::nullopt;
  const double widthFactor = target.width / source.width;
  const double heightFactor = target.height / source.height;
  const double scale = heightFactor < widthFactor ? heightFactor : widthFactor;
  double w = source.width * scale, h = source.height * scale;
  if (w > target.width) w = target.width;
  if (h > target.height) h = target.height;
  return ImageSize{w, h};
}

std::shared_ptr<PlatformImage> ImageGeometry::imageByScalingNotCroppingForSize(const PlatformImage& image,
                                                                              ImageSize target) {
  auto out = scaledSize(image.size(), target);
  if (!out) return nullptr;
  auto size = contextSize(*out, kMaxContextPixels);
  if (!size) return nullptr;
  if (!image.hasBitmap()) return PlatformImage::fromBitmap(Bitmap(size->first, size->second, 4));
  return image.drawn(displayTransform(image.imageOrientation()), size->first, size->second, ImageOrientation::up);
}

}  // namespace velqor
