#pragma once

#include <string>
#include <vector>

#include "host/Value.h"
#include "imaging/Bitmap.h"

namespace velqor::testing {

// Image files made in the test with each format's own encoder library, so the
// decoders are checked against what those libraries write.
class FormatSamples {
 public:
  // One GIF frame: its pixels (RGBA; alpha 0 marks the transparent colour) and
  // where it sits on the screen.
  struct GifFrame {
    Bitmap pixels;
    int left = 0, top = 0;
    bool interlaced = false;
  };
  // Frames share one palette of at most 256 colours (transparent is index 0),
  // written as the global colour table.
  static Bytes gif(int screenWidth, int screenHeight, const std::vector<GifFrame>& frames);

  static Bytes webpLossy(const Bitmap& rgb, float quality = 90);
  static Bytes webpLossless(const Bitmap& rgba);
  // One frame per bitmap, 100 ms each.
  static Bytes webpAnimated(const std::vector<Bitmap>& frames);
  static Bytes webpWithProfile(const Bytes& webp, const Bytes& icc);

  // An uncompressed or deflate TIFF of RGB(A) rows as given, with an
  // Orientation tag and, when not empty, an ICC profile.
  static Bytes tiff(const Bitmap& bitmap, int orientation = 1, const Bytes& icc = {}, bool deflate = false);

  // 24-bit (3 channels) or 32-bit with alpha (4 channels), bottom-up.
  static Bytes bmp(const Bitmap& bitmap);

  // A camera JPEG from TurboJPEG: the camera's EXIF with this orientation,
  // and the ICC profile set by Exiv2 (not by the encoder under test).
  static Bytes cameraJpegWithProfile(const Bitmap& rgb, int quality, const Bytes& icc, int exifOrientation);
  // A PNG from libspng with this iCCP profile.
  static Bytes pngWithProfile(const Bitmap& rgb, const Bytes& icc);
  // The ICC profile of a JPEG or PNG as Exiv2 reads it; empty for none.
  static Bytes profileOf(const Bytes& encoded);
  // The EXIF Orientation tag as Exiv2 reads it; 0 when there is none.
  static long orientationTagOf(const Bytes& encoded);

  // A HEIC from libheif's HEVC encoder with an ICC profile (when not empty) or
  // an nclx colour box naming these H.273 primaries and transfer (when
  // primaries is not 0). Empty when the system's libheif cannot encode HEVC.
  static Bytes heic(const Bitmap& rgb, const Bytes& icc, int nclxPrimaries = 0, int nclxTransfer = 13);

  // An Adobe RGB (1998) compatible profile and a Display P3 one, made with
  // Little CMS from their published primaries.
  static Bytes adobeRgbProfile();
  static Bytes displayP3Profile();
};

}  // namespace velqor::testing
