#include "platform/linux/SampleImages.h"

#include <algorithm>
#include <cmath>

#include "imaging/metadata/ImageMetadata.h"
#include "imaging/RowStream.h"
#include "imaging/codecs/JpegCodec.h"
#include "imaging/jpeg/JpegRowEncoder.h"

namespace velqor {

namespace {

// One row of the scene: sky-to-ground gradient, a sun disc, a few hard edges and fine texture.
void sceneRow(std::uint8_t* row, int y, int width, int height) {
  const double fy = static_cast<double>(y) / height;
  for (int x = 0; x < width; ++x) {
    const double fx = static_cast<double>(x) / width;
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

// The scene made row by row, so a photo of any size needs no whole bitmap.
class SceneRows final : public RowStream {
 public:
  SceneRows(int width, int height) : width_(width), height_(height) {}
  int width() const override { return width_; }
  int height() const override { return height_; }
  Layout layout() const override { return Layout::rgb; }
  bool read(std::uint8_t* out, int rows) override {
    for (int i = 0; i < rows; ++i, ++next_) sceneRow(out + stride() * static_cast<size_t>(i), next_, width_, height_);
    return true;
  }
  Status status() const override { return Status::okStatus(); }

 private:
  int width_, height_, next_ = 0;
};

}  // namespace

Bitmap SampleImages::scene(int width, int height) {
  Bitmap b(width, height, 3);
  for (int y = 0; y < height; ++y) sceneRow(b.row(y), y, width, height);
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
  if (width <= 0 || height <= 0) return Status::invalidArgument("cannot make an empty photo");
  SceneRows rows(width, height);
  JpegReencodeRequest request;
  request.quality = JpegCodec::libjpegQuality(quality / 100.0);
  ASSIGN_OR_RETURN(Bytes jpeg, JpegRowEncoder::encode(rows, request, static_cast<size_t>(width) * height / 4));
  return ImageMetadata::write(jpeg, cameraProperties(exifOrientation));
}

}  // namespace velqor
