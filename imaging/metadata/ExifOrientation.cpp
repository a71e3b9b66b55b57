#include "imaging/metadata/ExifOrientation.h"

#include <exiv2/exiv2.hpp>

#include "imaging/metadata/Exiv2Support.h"

namespace velqor {

long ExifOrientation::read(std::span<const std::uint8_t> bytes) {
  Exiv2Support::ensureInitialized();
  try {
    auto image = Exiv2::ImageFactory::open(bytes.data(), static_cast<long>(bytes.size()));
    if (image.get() == nullptr) return 1;
    image->readMetadata();
    const auto& exif = image->exifData();
    auto it = exif.findKey(Exiv2::ExifKey("Exif.Image.Orientation"));
    if (it == exif.end() || it->count() == 0) return 1;
    return it->toLong();
  } catch (...) {
    // Exiv2 reports unreadable metadata by throwing; the pixels may still be fine.
    return 1;
  }
}

Bytes ExifOrientation::app1(long tag) {
  Exiv2Support::ensureInitialized();
  try {
    Exiv2::ExifData exif;
    exif["Exif.Image.Orientation"] = static_cast<std::uint16_t>(tag);
    Exiv2::Blob tiff;
    Exiv2::ExifParser::encode(tiff, Exiv2::littleEndian, exif);
    static const std::uint8_t kExifHeader[6] = {'E', 'x', 'i', 'f', 0, 0};
    Bytes out(kExifHeader, kExifHeader + 6);
    out.insert(out.end(), tiff.begin(), tiff.end());
    return out;
  } catch (...) {
    return {};
  }
}

}  // namespace velqor
