#include "imaging/codecs/JpegCodec.h"

#include <turbojpeg.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <string>

#include "imaging/metadata/ExifOrientation.h"
#include "imaging/jpeg/JpegEncoder.h"
#include "imaging/jpeg/JpegProfileReader.h"
#include "imaging/jpeg/JpegSkeleton.h"

namespace velqor {
namespace {

struct TjHandleDeleter {
  void operator()(void* h) const noexcept { tjDestroy(h); }
};
using TjHandle = std::unique_ptr<void, TjHandleDeleter>;

struct Header {
  int width = 0, height = 0, subsampling = 0, colorspace = 0;
};

StatusOr<Header> readHeader(tjhandle h, std::span<const std::uint8_t> bytes) {
  Header hd;
  if (tjDecompressHeader3(h, bytes.data(), static_cast<unsigned long>(bytes.size()), &hd.width, &hd.height,
                          &hd.subsampling, &hd.colorspace) != 0)
    return Status::dataLoss(std::string("cannot decode JPEG header: ") + tjGetErrorStr2(h));
  if (hd.width <= 0 || hd.height <= 0) return Status::dataLoss("cannot decode JPEG: empty image");
  return hd;
}

std::string megapixels(std::uint64_t pixels) { return std::to_string((pixels + 500'000) / 1'000'000) + " MP"; }

std::string dimensions(int width, int height) { return std::to_string(width) + "x" + std::to_string(height); }

// The memory one decode takes against the budget: `full` says the decode is
// at the stored size, where the only way round is a smaller target.
Status checkDecoded(int width, int height, int channels, bool full, const DecodeLimits& limits) {
  const std::uint64_t pixels = static_cast<std::uint64_t>(width) * static_cast<std::uint64_t>(height);
  const std::uint64_t bytes = pixels * static_cast<std::uint64_t>(channels);
  if (bytes <= limits.maxBytes) return Status::okStatus();
  const std::string what = std::to_string(bytes >> 20) + " MiB of pixels, more than the " +
                           std::to_string(limits.maxBytes >> 20) + " MiB one decode may hold";
  if (full)
    return Status::resourceExhausted("cannot decode " + dimensions(width, height) + " (" + megapixels(pixels) +
                                     ") as one bitmap at full size: " + what);
  return Status::resourceExhausted("cannot decode: " + dimensions(width, height) + " is " + what);
}

// A smallest-scale decode must fit, and the header must stay within what a
// reduced decode is allowed to read through.
Status checkHeader(const Header& h, const DecodeLimits& limits) {
  const std::uint64_t pixels = static_cast<std::uint64_t>(h.width) * static_cast<std::uint64_t>(h.height);
  if (pixels > limits.maxHeaderPixels)
    return Status::resourceExhausted("cannot decode: " + dimensions(h.width, h.height) + " exceeds the pixel limit of " +
                                     std::to_string(limits.maxHeaderPixels));
  return Status::okStatus();
}

bool isCmyk(const Header& h) { return h.colorspace == TJCS_CMYK || h.colorspace == TJCS_YCCK; }

// The smallest of the library's scaling factors that leaves at least minWidth x
// minHeight (1/1 when none does).
tjscalingfactor scaleFor(const Header& h, int minWidth, int minHeight) {
  tjscalingfactor chosen{1, 1};
  int chosenWidth = h.width;
  int count = 0;
  const tjscalingfactor* factors = tjGetScalingFactors(&count);
  for (int i = 0; factors && i < count; ++i) {
    const auto f = factors[i];
    if (f.num > f.denom) continue;  // never enlarge on load
    const int w = TJSCALED(h.width, f), hgt = TJSCALED(h.height, f);
    if (w >= minWidth && hgt >= minHeight && w < chosenWidth) {
      chosen = f;
      chosenWidth = w;
    }
  }
  return chosen;
}

class JpegSource final : public ImageSource {
 public:
  JpegSource(std::shared_ptr<const Bytes> bytes, Header header, DecodeLimits limits,
             std::shared_ptr<const Bytes> profile)
      : bytes_(std::move(bytes)), header_(header), limits_(limits), profile_(std::move(profile)) {}

  int width() const override { return header_.width; }
  int height() const override { return header_.height; }
  std::string typeName() const override { return "jpeg"; }
  std::shared_ptr<const Bytes> iccProfile() const override { return profile_; }
  std::shared_ptr<const Bytes> encodedBytes() const override { return bytes_; }

  Status checkDecode(int minWidth, int minHeight) const override {
    const tjscalingfactor f = scaleFor(header_, minWidth, minHeight);
    return checkDecoded(TJSCALED(header_.width, f), TJSCALED(header_.height, f), isCmyk(header_) ? 4 : 3,
                        f.num == f.denom, limits_);
  }

  StatusOr<Bitmap> decode(int minWidth, int minHeight) const override {
    RETURN_IF_ERROR(checkDecode(minWidth, minHeight));
    TjHandle h(tjInitDecompress());
    if (!h) return Status::internal("cannot start a JPEG decoder");
    const tjscalingfactor f = scaleFor(header_, minWidth, minHeight);
    const int w = TJSCALED(header_.width, f), hgt = TJSCALED(header_.height, f);
    const bool cmyk = isCmyk(header_);
    Bitmap out(w, hgt, cmyk ? 4 : 3);
    // A hostile progressive file can hold thousands of scans; stop at the library's limit.
    const int rc = tjDecompress2(h.get(), bytes_->data(), static_cast<unsigned long>(bytes_->size()),
                                 out.pixels.data(), w, 0, hgt, cmyk ? TJPF_CMYK : TJPF_RGB, TJFLAG_LIMITSCANS);
    // A warning (a truncated or slightly corrupt stream) still leaves a usable image.
    if (rc != 0 && tjGetErrorCode(h.get()) != TJERR_WARNING)
      return Status::dataLoss(std::string("cannot decode JPEG: ") + tjGetErrorStr2(h.get()));
    if (!cmyk) {
      out.iccProfile = profile_;
      return out;
    }
    // Adobe CMYK JPEGs store inverted ink values: RGB = C' x K' / 255.
    Bitmap rgb(w, hgt, 3);
    for (size_t p = 0, q = 0; p < out.pixels.size(); p += 4, q += 3) {
      const int k = out.pixels[p + 3];
      rgb.pixels[q] = static_cast<std::uint8_t>(out.pixels[p] * k / 255);
      rgb.pixels[q + 1] = static_cast<std::uint8_t>(out.pixels[p + 1] * k / 255);
      rgb.pixels[q + 2] = static_cast<std::uint8_t>(out.pixels[p + 2] * k / 255);
    }
    return rgb;
  }

  // The stream's markers decide whether it decodes (see JpegSkeleton), so a
  // picker can check a camera photo in microseconds, without decoding it.
  Status checkPixels() const override {
    RETURN_IF_ERROR(checkDecode(1, 1));
    return JpegSkeleton::check(*bytes_);
  }

 private:
  std::shared_ptr<const Bytes> bytes_;
  Header header_;
  DecodeLimits limits_;
  std::shared_ptr<const Bytes> profile_;
};

}  // namespace

bool JpegCodec::looksLike(std::span<const std::uint8_t> b) {
  return b.size() >= 3 && b[0] == 0xFF && b[1] == 0xD8 && b[2] == 0xFF;
}

StatusOr<std::shared_ptr<const ImageSource>> JpegCodec::source(std::shared_ptr<const Bytes> bytes,
                                                                const DecodeLimits& limits) {
  if (!bytes || !looksLike(*bytes)) return Status::invalidArgument("cannot decode: not a JPEG file");
  TjHandle h(tjInitDecompress());
  if (!h) return Status::internal("cannot start a JPEG decoder");
  ASSIGN_OR_RETURN(Header header, readHeader(h.get(), *bytes));
  RETURN_IF_ERROR(checkHeader(header, limits));
  // A CMYK profile would be wrong for the RGB the source hands out.
  auto profile = isCmyk(header) ? nullptr : JpegProfileReader::read(*bytes);
  auto source = std::make_shared<JpegSource>(std::move(bytes), header, limits, std::move(profile));
  // Even the smallest scale must fit.
  RETURN_IF_ERROR(source->checkDecode(1, 1));
  return std::shared_ptr<const ImageSource>(std::move(source));
}

int JpegCodec::libjpegQuality(double quality) {
  if (std::isnan(quality)) quality = 1.0;
  quality = std::clamp(quality, 0.0, 1.0);
  return std::clamp(static_cast<int>(std::lround(quality * 100)), 1, 100);
}

StatusOr<Bytes> JpegCodec::encode(const Bitmap& bitmap, double quality, int exifOrientation) {
  const Bytes exif = exifOrientation == 1 ? Bytes{} : ExifOrientation::app1(exifOrientation);
  return JpegEncoder::encode(bitmap, libjpegQuality(quality), exif);
}

}  // namespace velqor
