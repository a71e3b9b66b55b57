#pragma once

#include <memory>
#include <optional>

#include "capture/PictureOptions.h"
#include "imaging/PlatformImage.h"
#include "core/PluginCore.h"

namespace velqor {

// Takes the picture out of the picker's info (edited or original), corrects
// and scales it as asked, and encodes it. A JPEG picture with location
// requested also leaves its bytes and the camera's EXIF in the plug-in's
// `data` and `metadata` and starts a location request.
//
// Threads: run synchronously inside the image result task, on a worker thread.
class ImageAcquisition {
 public:
  static std::shared_ptr<PlatformImage> retrieveImage(const Dictionary& info, const PictureOptions& options);
  static std::optional<Bytes> processImage(PluginCore& core, const std::shared_ptr<PlatformImage>& image,
                                           const Dictionary& info, const PictureOptions& options);
  // The JPEG compression quality the options call for.
  static double jpegQuality(const PictureOptions& options);
};

}  // namespace velqor
