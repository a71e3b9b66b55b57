#pragma once

#include <span>

#include "host/StatusOr.h"
#include "host/Value.h"

namespace velqor {

// Image metadata in the platform's image-property vocabulary, on Exiv2:
//
//   "Orientation", "PixelWidth", "PixelHeight"   top level
//   "{TIFF}"  Make, Model, Software, DateTime, ...   (Exif.Image.*)
//   "{Exif}"  DateTimeOriginal, ExposureTime, FNumber, ISOSpeedRatings, ...   (Exif.Photo.*)
//   "{GPS}"   LatitudeRef, Latitude, LongitudeRef, Longitude, AltitudeRef, Altitude,
//             TimeStamp ("HH:mm:ss.SSSSSS"), DateStamp ("yyyy:MM:dd"), ...
//
// Rationals read as doubles, counts above one as arrays; GPS coordinates as
// decimal degrees. Writing converts back: decimal degrees to degree, minute
// and second rationals, the altitude to a rational with its reference byte,
// the stamps to the GPS time and date fields. An entry Exiv2 has no tag for, or
// whose value does not fit the tag's type, is skipped.
//
// Threads: any; every call works on its own copy.
class ImageMetadata {
 public:
  static StatusOr<Dictionary> read(std::span<const std::uint8_t> encoded);
  // The encoded image with `properties` written into it (JPEG or PNG). Tags the
  // dictionary does not mention are removed: the result carries exactly what
  // the dictionary says. `encoded` is never written, even where Exiv2 would
  // edit an image in place.
  static StatusOr<Bytes> write(std::span<const std::uint8_t> encoded, const Dictionary& properties);

  // Decimal degrees as three rationals, seconds to a millionth.
  static std::string degreesToRationals(double degrees);
};

}  // namespace velqor
