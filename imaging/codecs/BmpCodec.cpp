#include "imaging/codecs/BmpCodec.h"

#include <climits>
#include <cstring>
#include <string>

// The library's own code, compiled into this file with only its BMP reader and
// no file access. Its warnings are the library's, not ours.
#define STB_IMAGE_IMPLEMENTATION
#define STBI_ONLY_BMP
#define STBI_NO_STDIO
#define STBI_NO_LINEAR
#define STBI_NO_HDR
#define STB_IMAGE_STATIC
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wunused-function"
#pragma GCC diagnostic ignored "-Wunused-parameter"
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"
#pragma GCC diagnostic ignored "-Wsign-compare"
#pragma GCC diagnostic ignored "-Wimplicit-fallthrough"
#pragma GCC diagnostic ignored "-Wunused-but-set-variable"
#include <stb/stb_image.h>
#pragma GCC diagnostic pop

namespace velqor {
namespace {

struct StbDeleter {
  void operator()(stbi_uc* p) const noexcept { stbi_image_free(p); }
};

std::string reason() {
  const char* why = stbi_failure_reason();
  return why ? why : "damaged file";
}

class BmpSource final : public ImageSource {
 public:
  BmpSource(std::shared_ptr<const Bytes> bytes, int w, int h, bool alpha)
      : bytes_(std::move(bytes)), w_(w), h_(h), alpha_(alpha) {}
  int width() const override { return w_; }
  int height() const override { return h_; }
  std::string typeName() const override { return "bmp"; }
  std::shared_ptr<const Bytes> iccProfile() const override { return nullptr; }
  Status checkDecode(int, int) const override { return Status::okStatus(); }

  StatusOr<Bitmap> decode(int, int) const override {
    const int channels = alpha_ ? 4 : 3;
    int w = 0, h = 0, found = 0;
    std::unique_ptr<stbi_uc, StbDeleter> pixels(
        stbi_load_from_memory(bytes_->data(), static_cast<int>(bytes_->size()), &w, &h, &found, channels));
    if (!pixels) return Status::dataLoss("cannot decode BMP: " + reason());
    if (w != w_ || h != h_) return Status::dataLoss("cannot decode BMP: the size changed while reading");
    Bitmap out(w, h, channels);
    std::memcpy(out.pixels.data(), pixels.get(), out.pixels.size());
    return out;
  }

 private:
  std::shared_ptr<const Bytes> bytes_;
  int w_, h_;
  bool alpha_;
};

}  // namespace

bool BmpCodec::looksLike(std::span<const std::uint8_t> b) { return b.size() >= 14 && b[0] == 'B' && b[1] == 'M'; }

StatusOr<std::shared_ptr<const ImageSource>> BmpCodec::source(std::shared_ptr<const Bytes> bytes,
                                                               const DecodeLimits& limits) {
  if (!bytes || !looksLike(*bytes)) return Status::invalidArgument("cannot decode: not a BMP file");
  if (bytes->size() > static_cast<std::size_t>(INT_MAX)) return Status::resourceExhausted("cannot decode: BMP file too large");
  int w = 0, h = 0, components = 0;
  if (!stbi_info_from_memory(bytes->data(), static_cast<int>(bytes->size()), &w, &h, &components))
    return Status::dataLoss("cannot decode BMP header: " + reason());
  if (w <= 0 || h <= 0) return Status::dataLoss("cannot decode BMP: empty image");
  const std::uint64_t pixels = static_cast<std::uint64_t>(w) * static_cast<std::uint64_t>(h);
  if (pixels > limits.maxPixels || pixels * 4 > limits.maxBytes)
    return Status::resourceExhausted("cannot decode: " + std::to_string(w) + "x" + std::to_string(h) +
                                     " exceeds the pixel limit of " + std::to_string(limits.maxPixels));
  return std::shared_ptr<const ImageSource>(std::make_shared<BmpSource>(std::move(bytes), w, h, components == 4));
}

}  // namespace velqor
