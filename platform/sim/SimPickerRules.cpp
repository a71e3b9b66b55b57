#include "platform/sim/SimPickerRules.h"

#include <algorithm>

#include "platform/ImagePickerController.h"
#include "platform/PickerInfoKeys.h"
#include "platform/PickerTypes.h"

namespace velqor {
namespace {

const char* const kNoPhotos = "the picker was set up for movies only: it does not hand over a photo";
const char* const kNoMovies = "the picker was set up for pictures only: it does not hand over a movie";
const char* const kCameraPicksNothing = "the camera picker takes a new photo or movie: it picks nothing from the library";
const char* const kLibraryTakesNothing = "the library picker picks from the library: it takes no new photo or movie";
const char* const kNoEditing = "the picker was set up without editing: the user cannot crop";

bool lists(const std::vector<std::string>& types, const std::string& type) {
  return std::find(types.begin(), types.end(), type) != types.end();
}

bool has(const Dictionary& info, const std::string& key) { return find(info, key) != nullptr; }

}  // namespace

std::optional<std::string> SimPickerRules::refusal(const ImagePickerController& picker, const Dictionary& info) {
  const Value* typeValue = find(info, PickerInfoKey::mediaType);
  const std::string* type = typeValue ? typeValue->asString() : nullptr;
  if (!type) return std::nullopt;
  const bool photo = *type == kUTTypeImage;
  const bool movie = *type == kUTTypeMovie || *type == kUTTypeVideo;
  const auto types = picker.mediaTypes();
  if (photo && !lists(types, kUTTypeImage)) return kNoPhotos;
  if (movie && !lists(types, kUTTypeMovie) && !lists(types, kUTTypeVideo)) return kNoMovies;

  const bool picked = has(info, PickerInfoKey::phAsset) || has(info, PickerInfoKey::referenceURL);
  if (picker.sourceType() == SourceType::camera && picked) return kCameraPicksNothing;
  if (picker.sourceType() != SourceType::camera && !picked) return kLibraryTakesNothing;
  if (has(info, PickerInfoKey::editedImage) && !picker.allowsEditing()) return kNoEditing;
  return std::nullopt;
}

std::string SimPickerRules::deviceName(std::int64_t cameraDevice) { return cameraDeviceText(cameraDevice); }

std::string SimPickerRules::captureModeName(std::int64_t captureMode) {
  return captureMode == CameraCaptureMode::video ? "video" : captureMode == CameraCaptureMode::photo ? "photo"
                                                                                                      : std::to_string(captureMode);
}

}  // namespace velqor
