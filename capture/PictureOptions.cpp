#include "capture/PictureOptions.h"

#include "host/CallBackManager.h"
#include "platform/PickerTypes.h"

namespace velqor {

std::atomic<bool> PictureOptions::useLocationService{false};

namespace {

// Each read fetches the command again, as the host may hand out a fresh view.
const Value* arg(const CallBackManager& cb, std::int64_t index) {
  return cb.command().argument(index);
}

std::optional<std::int64_t> intArg(const CallBackManager& cb, std::int64_t index) {
  const Value* v = arg(cb, index);
  return v ? v->asInteger() : std::nullopt;
}

std::optional<double> floatArg(const CallBackManager& cb, std::int64_t index) {
  const Value* v = arg(cb, index);
  return v ? v->asFloat() : std::nullopt;
}

bool boolArg(const CallBackManager& cb, std::int64_t index) {
  const Value* v = arg(cb, index);
  return v ? v->asBool().value_or(false) : false;
}

}  // namespace

std::shared_ptr<PictureOptions> PictureOptions::createFromTakePictureArguments(
    const CallBackManager& cb) {
  auto o = std::make_shared<PictureOptions>();

  o->quality = intArg(cb, 0).value_or(50);

  if (auto raw = intArg(cb, 1)) {
    o->destinationType = destinationTypeFromRaw(*raw);
  } else {
    o->destinationType = DestinationType::destinationTypeNativeUri;
  }

  o->sourceType = SourceType::camera;
  std::int64_t requestedSource = SourceType::camera;
  if (auto raw = intArg(cb, 2)) {
    o->sourceType = *raw;
    requestedSource = *raw;
  }

  if (auto width = floatArg(cb, 3)) {
    if (auto height = floatArg(cb, 4)) o->targetSize = TargetSize{*width, *height};
  }

  if (auto raw = intArg(cb, 5)) {
    o->encodingType = encodingTypeFromRaw(*raw);
  } else {
    o->encodingType = EncodingType::encodingTypeJPEG;
  }

  if (auto raw = intArg(cb, 6)) {
    o->mediaType = mediaTypeFromRaw(*raw);
  } else {
    o->mediaType = MediaType::mediaTypePicture;
  }

  o->allowsEditing = boolArg(cb, 7);
  o->correctOrientation = boolArg(cb, 8);
  o->saveToPhotoAlbum = boolArg(cb, 9);
  o->cameraDirection = boolArg(cb, 11) ? CameraDevice::front : CameraDevice::rear;
  o->usesGeolocation = boolArg(cb, 12);
  useLocationService.store(o->usesGeolocation);

  // Video is never picked from the library: it is recorded with the camera.
  if (requestedSource == SourceType::photoLibrary && o->mediaType == MediaType::mediaTypeVideo)
    o->sourceType = SourceType::camera;

  return o;
}

}  // namespace velqor
