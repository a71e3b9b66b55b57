#pragma once

#include <memory>
#include <optional>
#include <span>
#include <string>

#include "host/Value.h"
#include "imaging/ImageSource.h"
#include "imaging/PlatformImage.h"

namespace velqor {

// Image decoding and encoding as the plug-in uses them: an image from bytes
// (orientation from the file's EXIF), its JPEG and PNG representations, the
// container type of encoded bytes, and writing a bitmap with metadata.
//
// Threads: any; implementations keep no mutable state.
class ImageCodec {
 public:
  virtual ~ImageCodec() = default;

  // None when the bytes are no image this codec reads, or exceed the limits.
  virtual std::shared_ptr<PlatformImage> imageWithData(std::shared_ptr<const Bytes> bytes) = 0;
  // Why imageWithData would give none ("cannot decode: ..."); ok when it decodes.
  virtual Status probe(std::span<const std::uint8_t> bytes) = 0;

  // Quality 0.0-1.0 (out-of-range values clamped). None when the image has no
  // bitmap or encoding fails. Both write the stored pixels and the image's
  // colour profile; the JPEG one also its orientation, the PNG one none.
  virtual std::optional<Bytes> jpegRepresentation(const PlatformImage& image, double quality) = 0;
  virtual std::optional<Bytes> pngRepresentation(const PlatformImage& image) = 0;

  // The container type identifier of encoded bytes: "public.jpeg",
  // "public.png", "public.heic", "com.compuserve.gif", "org.webmproject.webp",
  // "public.tiff", "com.microsoft.bmp"; none when unknown.
  virtual std::optional<std::string> containerType(std::span<const std::uint8_t> bytes) = 0;

  // Encodes `bitmap` (with its colour profile) in the container `type` with
  // `properties` (the nested image-property dictionary) as its metadata, and
  // nothing else. None when the type cannot be written (JPEG and PNG can).
  virtual std::optional<Bytes> encodeWithProperties(const Bitmap& bitmap, const std::string& type,
                                                    const Dictionary& properties) = 0;

  // The same for the stored pixels of `image`. By default through its whole
  // bitmap; a codec with roads that stream the pixels overrides it.
  virtual std::optional<Bytes> encodeImageWithProperties(const PlatformImage& image, const std::string& type,
                                                         const Dictionary& properties) {
    auto bitmap = image.cgImage();
    if (!bitmap) return std::nullopt;
    return encodeWithProperties(*bitmap, type, properties);
  }

  // The full image-property dictionary of encoded bytes; none when they do
  // not decode as an image. The bytes are shared, not copied.
  virtual std::optional<Dictionary> imageProperties(std::shared_ptr<const Bytes> bytes) = 0;

  // The limits applied to every decode.
  virtual const DecodeLimits& limits() const = 0;
};

}  // namespace velqor
