#include "imaging/codecs/TiffCodec.h"

#include <tiffio.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "imaging/IccProfiles.h"

namespace velqor {
namespace {

// The bytes libtiff reads through, and the first error it reported.
struct Stream {
  std::span<const std::uint8_t> bytes;
  toff_t at = 0;
  std::string error;
};

tmsize_t readFrom(thandle_t h, void* out, tmsize_t wanted) {
  auto* s = static_cast<Stream*>(h);
  if (wanted <= 0 || s->at >= s->bytes.size()) return 0;
  const auto n = std::min<std::uint64_t>(static_cast<std::uint64_t>(wanted), s->bytes.size() - s->at);
  std::memcpy(out, s->bytes.data() + s->at, n);
  s->at += n;
  return static_cast<tmsize_t>(n);
}
tmsize_t refuseWrite(thandle_t, void*, tmsize_t) { return 0; }
toff_t seekTo(thandle_t h, toff_t offset, int whence) {
  auto* s = static_cast<Stream*>(h);
  const toff_t base = whence == SEEK_CUR ? s->at : (whence == SEEK_END ? s->bytes.size() : 0);
  s->at = base + offset;
  return s->at;
}
int closeStream(thandle_t) { return 0; }
toff_t sizeOf(thandle_t h) { return static_cast<Stream*>(h)->bytes.size(); }
int noMap(thandle_t, void**, toff_t*) { return 0; }
void noUnmap(thandle_t, void*, toff_t) {}

int keepFirstError(TIFF*, void* user, const char*, const char* format, va_list args) {
  auto* s = static_cast<Stream*>(user);
  if (s->error.empty()) {
    char text[256];
    std::vsnprintf(text, sizeof text, format, args);
    s->error = text;
  }
  return 1;  // handled: nothing goes to stderr
}
int ignoreWarning(TIFF*, void*, const char*, const char*, va_list) { return 1; }

struct TiffDeleter {
  void operator()(TIFF* t) const noexcept { TIFFClose(t); }
};
struct OptionsDeleter {
  void operator()(TIFFOpenOptions* o) const noexcept { TIFFOpenOptionsFree(o); }
};

// The reader and the stream it reads: the stream must outlive the reader.
struct Opened {
  std::unique_ptr<Stream> stream;
  std::unique_ptr<TIFF, TiffDeleter> tiff;
};

StatusOr<Opened> open(std::span<const std::uint8_t> bytes, const DecodeLimits& limits) {
  Opened o;
  o.stream = std::make_unique<Stream>(Stream{bytes, 0, {}});
  std::unique_ptr<TIFFOpenOptions, OptionsDeleter> options(TIFFOpenOptionsAlloc());
  if (!options) return Status::internal("cannot start a TIFF decoder");
  TIFFOpenOptionsSetMaxSingleMemAlloc(options.get(), static_cast<tmsize_t>(limits.maxBytes));
  TIFFOpenOptionsSetErrorHandlerExtR(options.get(), keepFirstError, o.stream.get());
  TIFFOpenOptionsSetWarningHandlerExtR(options.get(), ignoreWarning, nullptr);
  o.tiff.reset(TIFFClientOpenExt("image", "rm", o.stream.get(), readFrom, refuseWrite, seekTo, closeStream, sizeOf,
                                 noMap, noUnmap, options.get()));
  if (!o.tiff) return Status::dataLoss("cannot decode TIFF header: " + o.stream->error);
  return o;
}

std::shared_ptr<const Bytes> readProfile(TIFF* tiff) {
  std::uint32_t size = 0;
  void* data = nullptr;
  if (TIFFGetField(tiff, TIFFTAG_ICCPROFILE, &size, &data) != 1 || !data) return nullptr;
  return IccProfiles::rgbProfile(std::span<const std::uint8_t>(static_cast<const std::uint8_t*>(data), size));
}

// The most bytes of samples one byte of a strip can expand to, by
// compression: PackBits repeats a byte 128 times for two; LZW's 12-bit codes
// reach about 2730; deflate 1032; JPEG's blocks of zero coefficients near
// 1024. For the others (fax, zstd, lzma, ...) a generous bound.
std::uint64_t bestRatio(std::uint16_t compression) {
  switch (compression) {
    case COMPRESSION_NONE: return 1;
    case COMPRESSION_PACKBITS: return 64;
    case COMPRESSION_LZW: return 2731;
    case COMPRESSION_ADOBE_DEFLATE:
    case COMPRESSION_DEFLATE: return 1032;
    case COMPRESSION_OJPEG:
    case COMPRESSION_JPEG: return 1024;
    default: return 16384;
  }
}
constexpr std::uint64_t kBlankBytes = 16u << 20;

// Why a directory declares more samples than its strips or tiles could hold,
// or ok. The bytes they claim count only as far as the file goes.
Status checkDataCanFill(TIFF* tiff, std::uint32_t w, std::uint32_t h, std::size_t fileSize) {
  std::uint16_t compression = COMPRESSION_NONE, samples = 1, bits = 1;
  TIFFGetFieldDefaulted(tiff, TIFFTAG_COMPRESSION, &compression);
  TIFFGetFieldDefaulted(tiff, TIFFTAG_SAMPLESPERPIXEL, &samples);
  TIFFGetFieldDefaulted(tiff, TIFFTAG_BITSPERSAMPLE, &bits);
  const bool tiled = TIFFIsTiled(tiff) != 0;
  const std::uint32_t count = tiled ? TIFFNumberOfTiles(tiff) : TIFFNumberOfStrips(tiff);
  std::uint64_t* sizes = nullptr;
  if (TIFFGetField(tiff, tiled ? TIFFTAG_TILEBYTECOUNTS : TIFFTAG_STRIPBYTECOUNTS, &sizes) != 1 || !sizes)
    return Status::dataLoss("cannot decode TIFF: no strip sizes");
  std::uint64_t data = 0;
  for (std::uint32_t i = 0; i < count && data < fileSize; ++i) data += sizes[i];
  data = std::min<std::uint64_t>(data, fileSize);
  const std::uint64_t declared = std::uint64_t{w} * h * std::max<std::uint16_t>(samples, 1) * std::max<std::uint16_t>(bits, 1) / 8;
  if (declared > kBlankBytes + bestRatio(compression) * data)
    return Status::dataLoss("cannot decode TIFF: " + std::to_string(w) + "x" + std::to_string(h) + " is more than " +
                            std::to_string(data) + " bytes of image data can fill");
  return Status::okStatus();
}

// Reads every strip or tile in turn into one buffer: the data decodes, and no
// more than one strip's memory is taken.
Status readEachStrip(TIFF* tiff, const Stream& stream) {
  const bool tiled = TIFFIsTiled(tiff) != 0;
  const tmsize_t size = tiled ? TIFFTileSize(tiff) : TIFFStripSize(tiff);
  if (size <= 0) return Status::dataLoss("cannot decode TIFF: " + (stream.error.empty() ? "no strips" : stream.error));
  std::vector<std::uint8_t> buffer(static_cast<std::size_t>(size));
  const std::uint32_t count = tiled ? TIFFNumberOfTiles(tiff) : TIFFNumberOfStrips(tiff);
  for (std::uint32_t i = 0; i < count; ++i) {
    const tmsize_t got = tiled ? TIFFReadEncodedTile(tiff, i, buffer.data(), size)
                               : TIFFReadEncodedStrip(tiff, i, buffer.data(), size);
    if (got < 0) return Status::dataLoss("cannot decode TIFF: " + (stream.error.empty() ? "damaged data" : stream.error));
  }
  return Status::okStatus();
}

struct RgbaImage {
  TIFFRGBAImage image{};
  bool begun = false;
  ~RgbaImage() {
    if (begun) TIFFRGBAImageEnd(&image);
  }
};

class TiffSource final : public ImageSource {
 public:
  TiffSource(std::shared_ptr<const Bytes> bytes, int w, int h, DecodeLimits limits,
             std::shared_ptr<const Bytes> profile)
      : bytes_(std::move(bytes)), w_(w), h_(h), limits_(limits), profile_(std::move(profile)) {}
  int width() const override { return w_; }
  int height() const override { return h_; }
  std::string typeName() const override { return "tiff"; }
  std::shared_ptr<const Bytes> iccProfile() const override { return profile_; }
  Status checkDecode(int, int) const override { return Status::okStatus(); }

  Status checkPixels() const override {
    ASSIGN_OR_RETURN(Opened o, open(*bytes_, limits_));
    char why[1024] = {};
    if (!TIFFRGBAImageOK(o.tiff.get(), why)) return Status::dataLoss(std::string("cannot decode TIFF: ") + why);
    return readEachStrip(o.tiff.get(), *o.stream);
  }

  StatusOr<Bitmap> decode(int, int) const override {
    ASSIGN_OR_RETURN(Opened o, open(*bytes_, limits_));
    char why[1024] = {};
    RgbaImage rgba;
    if (!TIFFRGBAImageOK(o.tiff.get(), why)) return Status::dataLoss(std::string("cannot decode TIFF: ") + why);
    // Stop at the first damaged strip or tile rather than hand out its garbage.
    if (!TIFFRGBAImageBegin(&rgba.image, o.tiff.get(), 1, why))
      return Status::dataLoss(std::string("cannot decode TIFF: ") + why);
    rgba.begun = true;
    // Asking for the file's own orientation keeps the rows as stored.
    rgba.image.req_orientation = rgba.image.orientation;
    std::vector<std::uint32_t> raster(static_cast<std::size_t>(w_) * static_cast<std::size_t>(h_));
    if (!TIFFRGBAImageGet(&rgba.image, raster.data(), static_cast<std::uint32_t>(w_), static_cast<std::uint32_t>(h_)))
      return Status::dataLoss("cannot decode TIFF: " + (o.stream->error.empty() ? "damaged data" : o.stream->error));
    Bitmap out(w_, h_, 4);
    for (std::size_t i = 0; i < raster.size(); ++i) unpremultiply(raster[i], out.pixels.data() + i * 4);
    out.iccProfile = profile_;
    return out;
  }

  // The RGBA reader hands out colour multiplied by alpha, whatever the file
  // stored; bitmaps hold it straight.
  static void unpremultiply(std::uint32_t abgr, std::uint8_t* p) {
    const unsigned a = TIFFGetA(abgr);
    const unsigned rgb[3] = {TIFFGetR(abgr), TIFFGetG(abgr), TIFFGetB(abgr)};
    for (int c = 0; c < 3; ++c)
      p[c] = static_cast<std::uint8_t>(a == 255 || a == 0 ? rgb[c] : std::min(255u, (rgb[c] * 255 + a / 2) / a));
    p[3] = static_cast<std::uint8_t>(a);
  }

 private:
  std::shared_ptr<const Bytes> bytes_;
  int w_, h_;
  DecodeLimits limits_;
  std::shared_ptr<const Bytes> profile_;
};

}  // namespace

bool TiffCodec::looksLike(std::span<const std::uint8_t> b) {
  if (b.size() < 4) return false;
  const bool little = b[0] == 'I' && b[1] == 'I' && b[3] == 0 && (b[2] == 42 || b[2] == 43);
  const bool big = b[0] == 'M' && b[1] == 'M' && b[2] == 0 && (b[3] == 42 || b[3] == 43);
  return little || big;
}

StatusOr<std::shared_ptr<const ImageSource>> TiffCodec::source(std::shared_ptr<const Bytes> bytes,
                                                                const DecodeLimits& limits) {
  if (!bytes || !looksLike(*bytes)) return Status::invalidArgument("cannot decode: not a TIFF file");
  ASSIGN_OR_RETURN(Opened o, open(*bytes, limits));
  std::uint32_t w = 0, h = 0;
  if (TIFFGetField(o.tiff.get(), TIFFTAG_IMAGEWIDTH, &w) != 1 || TIFFGetField(o.tiff.get(), TIFFTAG_IMAGELENGTH, &h) != 1)
    return Status::dataLoss("cannot decode TIFF: no image size");
  if (w == 0 || h == 0) return Status::dataLoss("cannot decode TIFF: empty image");
  const std::uint64_t pixels = std::uint64_t{w} * h;
  if (pixels > limits.maxPixels || pixels * 4 > limits.maxBytes || w > 0x7FFFFFFF || h > 0x7FFFFFFF)
    return Status::resourceExhausted("cannot decode: " + std::to_string(w) + "x" + std::to_string(h) +
                                     " exceeds the pixel limit of " + std::to_string(limits.maxPixels));
  RETURN_IF_ERROR(checkDataCanFill(o.tiff.get(), w, h, bytes->size()));
  auto profile = readProfile(o.tiff.get());
  return std::shared_ptr<const ImageSource>(std::make_shared<TiffSource>(
      std::move(bytes), static_cast<int>(w), static_cast<int>(h), limits, std::move(profile)));
}

}  // namespace velqor
