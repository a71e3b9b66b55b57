#pragma once

#include <string>

#include "host/StatusOr.h"
#include "host/Value.h"
#include "imaging/Bitmap.h"

namespace velqor {

// Sample inputs made by the project itself, for the demo, benchmarks and
// tests: a photographic-looking scene (smooth gradients, edges and fine
// texture, so it compresses like a photo) and the EXIF a phone camera writes.
class SampleImages {
 public:
  static Bitmap scene(int width, int height);
  // Camera properties in the image-property vocabulary: make, model, dates,
  // exposure, aperture, ISO, focal length, lens; no GPS.
  static Dictionary cameraProperties(int exifOrientation, const std::string& dateTime = "2024:03:05 14:07:31");
  // A camera JPEG: `scene` stored as the sensor saw it, with EXIF orientation.
  static StatusOr<Bytes> cameraJpeg(int width, int height, int exifOrientation, int quality);
};

}  // namespace velqor
