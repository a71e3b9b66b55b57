#include "results/ImageAcquisition.h"

#include "platform/LocationManager.h"
#include "platform/PickerInfoKeys.h"
#include "platform/PickerTypes.h"
#include "results/ImageGeometry.h"

namespace velqor {
namespace {

std::shared_ptr<PlatformImage> imageAt(const Dictionary& info, const std::string& key) {
  const Value* v = find(info, key);
  return v ? v->asObject<PlatformImage>() : nullptr;
}

}  // namespace

std::shared_ptr<PlatformImage> ImageAcquisition::retrieveImage(const Dictionary& info, const PictureOptions& o) {
  std::shared_ptr<PlatformImage> picture;
  if (o.allowsEditing) picture = imageAt(info, PickerInfoKey::editedImage);
  if (!picture) picture = imageAt(info, PickerInfoKey::originalImage);
  if (o.correctOrientation && picture)
    picture = ImageGeometry::imageCorrectedForCaptureOrientation(*picture, picture->imageOrientation());
  if (o.targetSize && o.targetSize->width > 0 && o.targetSize->height > 0) {
    if (!picture) return nullptr;
    auto scaled = ImageGeometry::imageByScalingNotCroppingForSize(*picture, {o.targetSize->width, o.targetSize->height});
    return scaled ? scaled : picture;
  }
  return picture;
}

double ImageAcquisition::jpegQuality(const PictureOptions& o) {
  const bool untouched = !o.allowsEditing && !o.correctOrientation &&
                         (!o.targetSize || (o.targetSize->width <= 0 && o.targetSize->height <= 0));
  const bool notFromCamera = o.quality == 100 || !o.sourceType || *o.sourceType != SourceType::camera;
  if (untouched && notFromCamera) return 1.0;
  return static_cast<double>(o.quality) / 100.0;
}

std::optional<Bytes> ImageAcquisition::processImage(PluginCore& core, const std::shared_ptr<PlatformImage>& image,
                                                    const Dictionary& info, const PictureOptions& o) {
  if (!o.encodingType) return std::nullopt;
  ImageCodec& codec = *core.services.imageCodec;
  if (*o.encodingType == EncodingType::encodingTypePNG) {
    if (!image) return std::nullopt;
    return codec.pngRepresentation(*image);
  }
  std::optional<Bytes> encoded = image ? codec.jpegRepresentation(*image, jpegQuality(o)) : std::nullopt;
  if (!o.usesGeolocation) return encoded;

  const Value* media = find(info, PickerInfoKey::mediaMetadata);
  const Dictionary* mediaMetadata = media ? media->asDictionary() : nullptr;
  if (mediaMetadata) {
    core.data.store(encoded ? std::make_shared<const Bytes>(*encoded) : nullptr);
    Dictionary kept;
    if (const Value* exif = find(*mediaMetadata, "{Exif}"))
      if (exif->asDictionary()) kept["{Exif}"] = *exif;
    core.metadata.store(std::move(kept));
    if (auto manager = core.ops().locationManager())
      manager->performSelectorAfterDelay("requestWhenInUseAuthorization", 0);
    if (auto manager = core.ops().locationManager()) manager->startUpdatingLocation();
  } else {
    core.data.store(encoded ? std::make_shared<const Bytes>(*encoded) : nullptr);
    core.metadata.store(std::nullopt);
  }
  return encoded;
}

}  // namespace velqor
