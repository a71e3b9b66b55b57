#include "imaging/codecs/LinuxImageCodec.h"

#include "imaging/codecs/BmpCodec.h"
#include "imaging/metadata/ExifOrientation.h"
#include "imaging/codecs/GifCodec.h"
#include "imaging/codecs/HeifCodec.h"
#include "imaging/metadata/ImageMetadata.h"
#include "imaging/codecs/JpegCodec.h"
#include "imaging/jpeg/JpegReencoder.h"
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
  if (!bitmap) return std::nullopt;
  // The stored pixels as they are, with the orientation that turns them upright.
  auto out = JpegCodec::encode(*bitmap, quality, ImageOrientation::toExif(image.imageOrientation()));
  if (!out.ok()) return std::nullopt;
  return std::move(*out);
}

std::optional<Bytes> LinuxImageCodec::reencodeJpegSource(const PlatformImage& image, double quality) const {
  // Only the stored pixels, permuted at most, within the limits a full decode
  // would meet: then the answer is the same pixels without the whole bitmap.
  if (!reencodeRoads_ || !image.isSourcePermuted() || image.source()->typeName() != "jpeg" ||
      !image.checkDecode().ok())
    return std::nullopt;
  auto bytes = image.source()->encodedBytes();
  if (!bytes) return std::nullopt;
  const int orientation = ImageOrientation::toExif(image.imageOrientation());
  JpegReencodeRequest request{JpegCodec::libjpegQuality(quality), image.transform(),
                              orientation == 1 ? Bytes{} : ExifOrientation::app1(orientation), image.iccProfile()};
  auto out = JpegReencoder::reencode(*bytes, request, limits_);
  if (!out.ok()) return std::nullopt;
  return std::move(out->bytes);
}

std::optional<Bytes> LinuxImageCodec::pngRepresentation(const PlatformImage& image) {
  // A PNG carries no orientation: the stored pixels go as they are.
  auto bitmap = image.cgImage();
  if (!bitmap) return std::nullopt;
  auto out = PngCodec::encode(*bitmap);
  if (!out.ok()) return std::nullopt;
  return std::move(*out);
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
