#include "platform/linux/SampleImages.h"

#include <algorithm>
#include <cmath>

#include "imaging/metadata/ImageMetadata.h"
#include "imaging/codecs/JpegCodec.h"

namespace velqor {

Bitmap SampleImages::scene(int width, int height) {
  Bitmap b(width, height, 3);
  for (int y = 0; y < height; ++y) {
    std::uint8_t* row = b.row(y);
    const double fy = static_cast<double>(y) / height;
    for (int x = 0; x < width; ++x) {
      const double fx = static_cast<double>(x) / width;
      // Sky-to-ground gradient, a sun disc, a few hard edges and fine texture.
      double r = 90 + 120 * fy, g = 140 + 60 * (1 - fy), bl = 220 - 150 * fy;
      const double dx = fx - 0.7, dy = fy - 0.25;
      if (dx * dx + dy * dy < 0.01) r = 250, g = 220, bl = 120;
      if (fy > 0.6 && std::fmod(fx * 12, 1.0) < 0.5) r *= 0.8, g *= 0.9;
      const double texture = 12 * std::sin(x * 0.9) * std::cos(y * 1.3);
      row[x * 3] = static_cast<std::uint8_t>(std::clamp(r + texture, 0.0, 255.0));
      row[x * 3 + 1] = static_cast<std::uint8_t>(std::clamp(g + texture, 0.0, 255.0));
      row[x * 3 + 2] = static_cast<std::uint8_t>(std::clamp(bl + texture, 0.0, 255.0));
    }
  }
  return b;
}

Dictionary SampleImages::cameraProperties(int exifOrientation, const std::string& dateTime) {
  Dictionary tiff{{"Make", Value("Velqor")},
                  {"Model", Value("Simulated Camera 12")},
                  {"Software", Value("VelqorCamera sample")},
                  {"DateTime", Value(dateTime)},
                  {"XResolution", Value(72.0)},
                  {"YResolution", Value(72.0)},
                  {"ResolutionUnit", Value(2)}};
  Dictionary exif{{"DateTimeOriginal", Value(dateTime)},
                  {"DateTimeDigitized", Value(dateTime)},
                  {"SubsecTimeOriginal", Value("250")},
                  {"ExposureTime", Value(1.0 / 120)},
                  {"FNumber", Value(1.8)},
                  {"ISOSpeedRatings", Value(Array{Value(100)})},
                  {"FocalLength", Value(4.25)},
                  {"FocalLenIn35mmFilm", Value(26)},
                  {"ExposureProgram", Value(2)},
                  {"MeteringMode", Value(5)},
                  {"Flash", Value(16)},
                  {"WhiteBalance", Value(0)},
                  {"ExposureBiasValue", Value(0.0)},
                  {"LensMake", Value("Velqor")},
                  {"LensModel", Value("Simulated back camera 4.25mm f/1.8")}};
  return Dictionary{{"Orientation", Value(exifOrientation)}, {"{TIFF}", Value(std::move(tiff))},
                    {"{Exif}", Value(std::move(exif))}};
}

StatusOr<Bytes> SampleImages::cameraJpeg(int width, int height, int exifOrientation, int quality) {
  ASSIGN_OR_RETURN(Bytes jpeg, JpegCodec::encode(scene(width, height), quality / 100.0));
  return ImageMetadata::write(jpeg, cameraProperties(exifOrientation));
}

}  // namespace velqor
