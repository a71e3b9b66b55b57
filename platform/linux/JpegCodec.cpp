#include "platform/linux/JpegCodec.h"

#include <turbojpeg.h>

#include <algorithm>
#include <cmath>
#include <memory>

namespace velqor {
namespace {

struct TjHandleDeleter {
  void operator()(void* h) const noexcept { tjDestroy(h); }
};
using TjHandle = std::unique_ptr<void, TjHandleDeleter>;

struct TjBufferDeleter {
  void operator()(unsigned char* p) const noexcept { tjFree(p); }
};

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

Status checkLimits(int width, int height, int channels, const DecodeLimits& limits) {
  const std::uint64_t pixels = static_cast<std::uint64_t>(width) * static_cast<std::uint64_t>(height);
  if (pixels > limits.maxPixels)
    return Status::resourceExhausted("cannot decode: " + std::to_string(width) + "x" + std::to_string(height) +
                                     " exceeds the pixel limit of " + std::to_string(limits.maxPixels));
  if (pixels * channels > limits.maxBytes)
    return Status::resourceExhausted("cannot decode: " + std::to_string(width) + "x" + std::to_string(height) +
                                     " exceeds the memory budget");
  return Status::okStatus();
}

class JpegSource final : public ImageSource {
 public:
  JpegSource(std::shared_ptr<const Bytes> bytes, Header header, DecodeLimits limits)
      : bytes_(std::move(bytes)), header_(header), limits_(limits) {}

  int width() const override { return header_.width; }
  int height() const override { return header_.height; }
  std::string typeName() const override { return "jpeg"; }

  StatusOr<Bitmap> decode(int minWidth, int minHeight) const override {
    TjHandle h(tjInitDecompress());
    if (!h) return Status::internal("cannot start a JPEG decoder");
    tjscalingfactor chosen{1, 1};
    int chosenWidth = header_.width;
    int count = 0;
    const tjscalingfactor* factors = tjGetScalingFactors(&count);
    for (int i = 0; factors && i < count; ++i) {
      const auto f = factors[i];
      if (f.num > f.denom) continue;  // never enlarge on load
      const int w = TJSCALED(header_.width, f), hgt = TJSCALED(header_.height, f);
      if (w >= minWidth && hgt >= minHeight && w < chosenWidth) {
        chosen = f;
        chosenWidth = w;
      }
    }
    const int w = TJSCALED(header_.width, chosen), hgt = TJSCALED(header_.height, chosen);
    const bool cmyk = header_.colorspace == TJCS_CMYK || header_.colorspace == TJCS_YCCK;
    RETURN_IF_ERROR(checkLimits(w, hgt, cmyk ? 4 : 3, limits_));
    Bitmap out(w, hgt, cmyk ? 4 : 3);
    const int rc = tjDecompress2(h.get(), bytes_->data(), static_cast<unsigned long>(bytes_->size()),
                                 out.pixels.data(), w, 0, hgt, cmyk ? TJPF_CMYK : TJPF_RGB, 0);
    // A warning (a truncated or slightly corrupt stream) still leaves a usable image.
    if (rc != 0 && tjGetErrorCode(h.get()) != TJERR_WARNING)
      return Status::dataLoss(std::string("cannot decode JPEG: ") + tjGetErrorStr2(h.get()));
    if (!cmyk) return out;
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

 private:
  std::shared_ptr<const Bytes> bytes_;
  Header header_;
  DecodeLimits limits_;
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
  RETURN_IF_ERROR(checkLimits(header.width, header.height, 3, limits));
  return std::shared_ptr<const ImageSource>(std::make_shared<JpegSource>(std::move(bytes), header, limits));
}

int JpegCodec::libjpegQuality(double quality) {
  if (std::isnan(quality)) quality = 1.0;
  quality = std::clamp(quality, 0.0, 1.0);
  return std::clamp(static_cast<int>(std::lround(quality * 100)), 1, 100);
}

StatusOr<Bytes> JpegCodec::encode(const Bitmap& bitmap, double quality) {
  if (bitmap.empty()) return Status::invalidArgument("cannot encode an empty bitmap");
  TjHandle h(tjInitCompress());
  if (!h) return Status::internal("cannot start a JPEG encoder");
  const int q = libjpegQuality(quality);
  const int format = bitmap.channels == 4 ? TJPF_RGBA : (bitmap.channels == 3 ? TJPF_RGB : TJPF_GRAY);
  const int sampling = bitmap.channels == 1 ? TJSAMP_GRAY : (q >= 90 ? TJSAMP_444 : TJSAMP_420);
  unsigned char* out = nullptr;
  unsigned long size = 0;
  const int rc = tjCompress2(h.get(), bitmap.pixels.data(), bitmap.width, 0, bitmap.height, format, &out, &size,
                             sampling, q, 0);
  std::unique_ptr<unsigned char, TjBufferDeleter> owned(out);
  if (rc != 0) return Status::internal(std::string("cannot encode JPEG: ") + tjGetErrorStr2(h.get()));
  return Bytes(out, out + size);
}

}  // namespace velqor
