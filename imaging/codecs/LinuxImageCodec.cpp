#include "imaging/codecs/LinuxImageCodec.h"

#include "imaging/codecs/BmpCodec.h"
#include "imaging/metadata/ExifOrientation.h"
#include "imaging/codecs/GifCodec.h"
#include "imaging/codecs/HeifCodec.h"
#include "imaging/metadata/ImageMetadata.h"
#include "imaging/codecs/JpegCodec.h"
#include "imaging/PermutedRowStream.h"
#include "imaging/codecs/PngRowEncoder.h"
#include "imaging/jpeg/JpegReencoder.h"
#include "imaging/jpeg/JpegRowStream.h"
#include "imaging/codecs/PngCodec.h"
#include "imaging/codecs/TiffCodec.h"
#include "imaging/codecs/WebpCodec.h"

namespace velqor {

namespace {
// What an image destination without a quality option writes.
constexpr double kDestinationJpegQuality = 0.9;
}  // namespace

StatusOr<std::shared_ptr<const ImageSource>> LinuxImageCodec::source(std::shared_ptr<const Bytes> bytes) const {
  if (!bytes || bytes->empty()) return Status::invalidArgument("cannot decode: no bytes");
  // The bytes decide, not a file name: a PNG named .jpg is still a PNG.
  if (JpegCodec::looksLike(*bytes)) return JpegCodec::source(bytes, limits_);
  if (PngCodec::looksLike(*bytes)) return PngCodec::source(bytes, limits_);
  if (HeifCodec::looksLike(*bytes)) return HeifCodec::source(bytes, limits_);
  if (GifCodec::looksLike(*bytes)) return GifCodec::source(bytes, limits_);
  if (WebpCodec::looksLike(*bytes)) return WebpCodec::source(bytes, limits_);
  if (TiffCodec::looksLike(*bytes)) return TiffCodec::source(bytes, limits_);
  if (BmpCodec::looksLike(*bytes)) return BmpCodec::source(bytes, limits_);
  return Status::invalidArgument("cannot decode: not a JPEG, PNG, HEIF, GIF, WebP, TIFF or BMP image");
}

std::shared_ptr<PlatformImage> LinuxImageCodec::imageWithData(std::shared_ptr<const Bytes> bytes) {
  auto src = source(bytes);
  if (!src.ok()) return nullptr;
  // HEIF pixels come out upright; the others carry an EXIF (for TIFF, its own)
  // Orientation tag or none.
  const int orientation =
      (*src)->typeName() == "heif" ? ImageOrientation::up : ImageOrientation::fromExif(ExifOrientation::read(*bytes));
  return PlatformImage::fromSource(std::move(*src), orientation);
}

Status LinuxImageCodec::probe(std::span<const std::uint8_t> bytes) {
  auto copy = std::make_shared<const Bytes>(bytes.begin(), bytes.end());
  auto src = source(copy);
  if (!src.ok()) return src.status();
  // A header can lie: make sure there are pixels behind it.
  return (*src)->checkPixels();
}

std::optional<Bytes> LinuxImageCodec::jpegRepresentation(const PlatformImage& image, double quality) {
  if (auto reencoded = reencodeJpegSource(image, quality)) return reencoded;
  auto bitmap = image.cgImage();
  if (!bitmap) return refused(image, "JPEG");
  // The stored pixels as they are, with the orientation that turns them upright.
  auto out = JpegCodec::encode(*bitmap, quality, ImageOrientation::toExif(image.imageOrientation()));
  if (!out.ok()) return std::nullopt;
  return std::move(*out);
}

std::optional<Bytes> LinuxImageCodec::reencodeJpegSource(const PlatformImage& image, double quality) const {
  auto out = reencodeJpeg(image, quality, nullptr);
  if (!out.ok()) return std::nullopt;
  return std::move(*out);
}

StatusOr<Bytes> LinuxImageCodec::reencodeJpeg(const PlatformImage& image, double quality, ByteSink* sink) const {
  // Only the stored pixels, permuted at most: then the answer is the same
  // pixels without the whole bitmap, at any size.
  if (!reencodeRoads_ || !image.isSourcePermuted() || image.source()->typeName() != "jpeg")
    return Status::failedPrecondition("only a JPEG source at its stored size is re-encoded");
  auto bytes = image.source()->encodedBytes();
  if (!bytes) return Status::failedPrecondition("the source keeps no bytes");
  // The roads take any size.
  const int orientation = ImageOrientation::toExif(image.imageOrientation());
  JpegReencodeRequest request{JpegCodec::libjpegQuality(quality), image.transform(),
                              orientation == 1 ? Bytes{} : ExifOrientation::app1(orientation), image.iccProfile(), sink};
  ASSIGN_OR_RETURN(auto out, JpegReencoder::reencode(*bytes, request, limits_));
  return std::move(out.bytes);
}

Status LinuxImageCodec::writeJpegRows(const PlatformImage& image, double quality, ByteSink sink) const {
  return reencodeJpeg(image, quality, &sink).status();
}

std::optional<Bytes> LinuxImageCodec::pngRepresentation(const PlatformImage& image) {
  // A PNG carries no orientation: the stored pixels go as they are.
  if (auto streamed = streamedPng(image)) return streamed;
  auto bitmap = image.cgImage();
  if (!bitmap) return refused(image, "PNG");
  auto out = PngCodec::encode(*bitmap);
  if (!out.ok()) return std::nullopt;
  return std::move(*out);
}

std::optional<Bytes> LinuxImageCodec::refused(const PlatformImage& image, const char* what) const {
  if (!notes_ || !image.hasBitmap()) return std::nullopt;
  // The limits are found from the header; anything else is the decoder's.
  const Status why = image.checkDecode();
  const std::string size = std::to_string(image.storedWidth()) + "x" + std::to_string(image.storedHeight());
  notes_->add("the " + size + " picture could not be encoded as " + what +
              (why.ok() ? std::string(": its pixels do not decode") : ": " + why.message()));
  return std::nullopt;
}

Status LinuxImageCodec::writePngRows(const PlatformImage& image, ByteSink sink) const {
  if (!reencodeRoads_ || !image.isSourcePermuted() || image.source()->typeName() != "jpeg")
    return Status::failedPrecondition("only a JPEG source at its stored size streams");
  auto bytes = image.source()->encodedBytes();
  if (!bytes) return Status::failedPrecondition("the source keeps no bytes");
  ASSIGN_OR_RETURN(auto rows, JpegRowStream::open(*bytes, /*keepYcbcr=*/false));
  if (rows->heldBytes() > limits_.maxBytes)
    return Status::failedPrecondition("the progressive file's coefficients exceed the memory budget");
  PermutedRowStream permuted(std::move(rows), image.transform());
  return PngRowEncoder::encode(permuted, image.iccProfile(), std::move(sink));
}

std::optional<Bytes> LinuxImageCodec::streamedPng(const PlatformImage& image) const {
  Bytes out;
  const Status written = writePngRows(image, [&out](const std::uint8_t* data, size_t size) {
    out.insert(out.end(), data, data + size);
    return true;
  });
  if (!written.ok()) return std::nullopt;
  return out;
}

std::optional<std::string> LinuxImageCodec::containerType(std::span<const std::uint8_t> bytes) {
  if (JpegCodec::looksLike(bytes)) return "public.jpeg";
  if (PngCodec::looksLike(bytes)) return "public.png";
  if (HeifCodec::looksLike(bytes)) return "public.heic";
  if (GifCodec::looksLike(bytes)) return "com.compuserve.gif";
  if (WebpCodec::looksLike(bytes)) return "org.webmproject.webp";
  if (TiffCodec::looksLike(bytes)) return "public.tiff";
  if (BmpCodec::looksLike(bytes)) return "com.microsoft.bmp";
  return std::nullopt;
}

std::optional<Bytes> LinuxImageCodec::encodeWithProperties(const Bitmap& bitmap, const std::string& type,
                                                           const Dictionary& properties) {
  StatusOr<Bytes> out = Status::invalidArgument("unsupported destination type " + type);
  // The platform's image destination writes JPEG at its default quality. The
  // bitmap's profile goes in with the pixels; the orientation, like every other
  // tag, only when the properties hold it.
  if (type == "public.jpeg") out = JpegCodec::encode(bitmap, kDestinationJpegQuality);
  if (type == "public.png") out = PngCodec::encode(bitmap);
  if (!out.ok()) return std::nullopt;
  auto withMetadata = ImageMetadata::write(*out, properties);
  if (!withMetadata.ok()) return std::nullopt;
  return std::move(*withMetadata);
}

std::optional<Bytes> LinuxImageCodec::encodeImageWithProperties(const PlatformImage& image, const std::string& type,
                                                                const Dictionary& properties) {
  // The same pixels and settings as the bitmap road, streamed from a JPEG
  // source at full size; anything else is drawn whole.
  std::optional<Bytes> streamed;
  if (type == "public.jpeg" && image.isSourcePermuted() && image.source()->typeName() == "jpeg")
    if (auto bytes = image.source()->encodedBytes()) {
      JpegReencodeRequest request{JpegCodec::libjpegQuality(kDestinationJpegQuality), image.transform(), Bytes{},
                                  image.iccProfile()};
      if (auto out = JpegReencoder::reencode(*bytes, request, limits_); out.ok()) streamed = std::move(out->bytes);
    }
  if (type == "public.png") streamed = streamedPng(image);
  if (!streamed) {
    if (!image.checkDecode().ok()) return refused(image, type == "public.png" ? "PNG" : "JPEG");
    return ImageCodec::encodeImageWithProperties(image, type, properties);
  }
  auto withMetadata = ImageMetadata::write(*streamed, properties);
  if (!withMetadata.ok()) return std::nullopt;
  return std::move(*withMetadata);
}

std::optional<Dictionary> LinuxImageCodec::imageProperties(std::shared_ptr<const Bytes> bytes) {
  if (!bytes) return std::nullopt;
  auto src = source(bytes);
  if (!src.ok()) return std::nullopt;
  auto properties = ImageMetadata::read(*bytes);
  Dictionary out = properties.ok() ? *properties : Dictionary{};
  out["PixelWidth"] = Value(static_cast<std::int64_t>((*src)->width()));
  out["PixelHeight"] = Value(static_cast<std::int64_t>((*src)->height()));
  return out;
}

}  // namespace velqor
