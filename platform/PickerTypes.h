#pragma once

#include <cstdint>
#include <string>

namespace velqor {

// The platform picker's integer vocabularies, with their published values.
namespace SourceType {
constexpr std::int64_t photoLibrary = 0;
constexpr std::int64_t camera = 1;
constexpr std::int64_t savedPhotosAlbum = 2;
}  // namespace SourceType

namespace CameraDevice {
constexpr std::int64_t rear = 0;
constexpr std::int64_t front = 1;
}  // namespace CameraDevice

namespace CameraCaptureMode {
constexpr std::int64_t photo = 0;
constexpr std::int64_t video = 1;
}  // namespace CameraCaptureMode

// Type identifiers the picker works with.
inline const std::string kUTTypeImage = "public.image";
inline const std::string kUTTypeVideo = "public.video";
inline const std::string kUTTypeMovie = "public.movie";

// The fixed text form of a source or camera-device value in log and console
// lines: the integer itself.
inline std::string sourceTypeText(std::int64_t source) { return std::to_string(source); }
inline std::string cameraDeviceText(std::int64_t device) {
  switch (device) {
    case CameraDevice::rear: return "rear";
    case CameraDevice::front: return "front";
    default: return std::to_string(device);
  }
}

}  // namespace velqor
