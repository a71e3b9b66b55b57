#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>

#include "capture/DestinationType.h"
#include "capture/EncodingType.h"
#include "capture/MediaType.h"

namespace velqor {

class CallBackManager;

struct TargetSize {
  double width = 0;
  double height = 0;
  friend bool operator==(const TargetSize&, const TargetSize&) = default;
};

// The parsed options of one takePicture command. Shared by reference between
// the flow, the picker and the result builders (hence always held through a
// shared_ptr).
//
// Threads: parsed on the main thread; read afterwards on the main thread and
// the worker that builds the result, never written after the flow's set-up.
class PictureOptions {
 public:
  std::int64_t quality = 50;
  std::optional<DestinationType> destinationType;
  std::optional<std::int64_t> sourceType;
  std::optional<TargetSize> targetSize;
  std::optional<EncodingType> encodingType;
  std::optional<MediaType> mediaType;
  std::optional<std::int64_t> cameraDirection;
  bool allowsEditing = false;
  bool correctOrientation = false;
  bool saveToPhotoAlbum = false;
  bool usesGeolocation = false;
  bool cropToSize = false;

  // The location request of the most recently parsed options, process-wide.
  // Read from the host's thread too, hence atomic.
  static std::atomic<bool> useLocationService;

  // Reads the command's positional arguments through the manager. Never fails:
  // every argument has a fallback. Also writes `useLocationService`.
  static std::shared_ptr<PictureOptions> createFromTakePictureArguments(const CallBackManager& cb);
};

}  // namespace velqor
