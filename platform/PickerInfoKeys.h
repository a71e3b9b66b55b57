#pragma once

#include <string>

namespace velqor {

// Keys of the dictionary a picker hands to its delegate when it finishes.
namespace PickerInfoKey {
inline const std::string mediaType = "UIImagePickerControllerMediaType";
inline const std::string originalImage = "UIImagePickerControllerOriginalImage";
inline const std::string editedImage = "UIImagePickerControllerEditedImage";
inline const std::string cropRect = "UIImagePickerControllerCropRect";
inline const std::string mediaURL = "UIImagePickerControllerMediaURL";
inline const std::string referenceURL = "UIImagePickerControllerReferenceURL";
inline const std::string phAsset = "UIImagePickerControllerPHAsset";
inline const std::string mediaMetadata = "UIImagePickerControllerMediaMetadata";
}  // namespace PickerInfoKey

}  // namespace velqor
