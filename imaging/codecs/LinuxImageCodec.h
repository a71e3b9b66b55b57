#pragma once

#include "imaging/EncodeNotes.h"
#include "imaging/ImageCodec.h"
#include "imaging/codecs/PngRowEncoder.h"

namespace velqor {

// The image codec of this build: JPEG (libjpeg-turbo), PNG (libspng), HEIF
// (libheif), GIF (giflib, first frame), WebP (libwebp), TIFF (libtiff) and BMP
// (our own BmpCodec) decoding; JPEG and PNG encoding; EXIF through Exiv2.
//
// What the representations keep, as the phone's do: the JPEG representation
// writes the stored pixels unchanged with the image's orientation as its EXIF
// Orientation tag (none when up); the PNG representation writes the stored
// pixels and no orientation. Both carry the image's ICC profile unchanged.
//
// Threads: any; no mutable state.
class LinuxImageCodec final : public ImageCodec {
 public:
  explicit LinuxImageCodec(DecodeLimits limits = {}) : limits_(limits) {}

  std::shared_ptr<PlatformImage> imageWithData(std::shared_ptr<const Bytes> bytes) override;
  Status probe(std::span<const std::uint8_t> bytes) override;
  std::optional<Bytes> jpegRepresentation(const PlatformImage& image, double quality) override;
  std::optional<Bytes> pngRepresentation(const PlatformImage& image) override;
  std::optional<std::string> containerType(std::span<const std::uint8_t> bytes) override;
  std::optional<Bytes> encodeWithProperties(const Bitmap& bitmap, const std::string& type,
                                            const Dictionary& properties) override;
  std::optional<Bytes> encodeImageWithProperties(const PlatformImage& image, const std::string& type,
                                                 const Dictionary& properties) override;
  std::optional<Dictionary> imageProperties(std::shared_ptr<const Bytes> bytes) override;
  const DecodeLimits& limits() const override { return limits_; }

  // Off: every JPEG representation decodes the whole bitmap, the road the
  // re-encodes are measured against (benchmarks compare the two).
  void setReencodeRoads(bool on) { reencodeRoads_ = on; }
  // Where a representation that fails says why (set once, before use).
  void setNotes(std::shared_ptr<EncodeNotes> notes) { notes_ = std::move(notes); }

  // The PNG representation of a JPEG source drawn only by permutation, its
  // bytes handed to `sink` as they are made (a file, never the whole PNG in
  // memory); failedPrecondition when the image takes no such road.
  Status writePngRows(const PlatformImage& image, ByteSink sink) const;
  // The JPEG representation of the same images, re-encoded from the source's
  // own bytes (JpegReencoder) into `sink`; failedPrecondition when no road
  // takes the image, unavailable when the sink refused bytes.
  Status writeJpegRows(const PlatformImage& image, double quality, ByteSink sink) const;

  // The source for bytes, whatever their container.
  StatusOr<std::shared_ptr<const ImageSource>> source(std::shared_ptr<const Bytes> bytes) const;

 private:
  // A JPEG source drawn only by permutation, re-encoded from its own bytes
  // (JpegReencoder); none when no such road takes it.
  std::optional<Bytes> reencodeJpegSource(const PlatformImage& image, double quality) const;
  // The same into `sink` when given (then the bytes are empty), or why not.
  StatusOr<Bytes> reencodeJpeg(const PlatformImage& image, double quality, ByteSink* sink) const;
  // A JPEG source drawn only by permutation, streamed to PNG row by row; none
  // when the source is not one JpegRowStream takes.
  std::optional<Bytes> streamedPng(const PlatformImage& image) const;

  // None after a note of why `image` could not be encoded.
  std::optional<Bytes> refused(const PlatformImage& image, const char* what) const;

  DecodeLimits limits_;
  bool reencodeRoads_ = true;
  std::shared_ptr<EncodeNotes> notes_;
};

}  // namespace velqor
