#include "imaging/codecs/WebpCodec.h"

#include <webp/decode.h>
#include <webp/demux.h>

#include <algorithm>
#include <cstring>
#include <string>

#include "imaging/IccProfiles.h"

namespace velqor {
namespace {

constexpr int kCheckSide = 16;

struct DemuxDeleter {
  void operator()(WebPDemuxer* d) const noexcept { WebPDemuxDelete(d); }
};
struct AnimDeleter {
  void operator()(WebPAnimDecoder* d) const noexcept { WebPAnimDecoderDelete(d); }
};

WebPData webpData(const Bytes& bytes) { return WebPData{bytes.data(), bytes.size()}; }

std::shared_ptr<const Bytes> readProfile(const Bytes& bytes) {
  const WebPData data = webpData(bytes);
  std::unique_ptr<WebPDemuxer, DemuxDeleter> demux(WebPDemux(&data));
  if (!demux || !(WebPDemuxGetI(demux.get(), WEBP_FF_FORMAT_FLAGS) & ICCP_FLAG)) return nullptr;
  WebPChunkIterator chunk{};
  if (!WebPDemuxGetChunk(demux.get(), "ICCP", 1, &chunk)) return nullptr;
  auto profile = IccProfiles::rgbProfile(std::span<const std::uint8_t>(chunk.chunk.bytes, chunk.chunk.size));
  WebPDemuxReleaseChunkIterator(&chunk);
  return profile;
}

class WebpSource final : public ImageSource {
 public:
  WebpSource(std::shared_ptr<const Bytes> bytes, WebPBitstreamFeatures features, std::shared_ptr<const Bytes> profile)
      : bytes_(std::move(bytes)), features_(features), profile_(std::move(profile)) {}
  int width() const override { return features_.width; }
  int height() const override { return features_.height; }
  std::string typeName() const override { return "webp"; }
  std::shared_ptr<const Bytes> iccProfile() const override { return profile_; }
  Status checkDecode(int, int) const override { return Status::okStatus(); }

  // A still image is decoded through libwebp's scaler into a thumbnail of at
  // most 16 x 16: every row of the data is still decoded and checked, but a
  // lossy image never holds its full-size pixels. Animations decode their
  // first frame.
  Status checkPixels() const override {
    if (features_.has_animation) return decode(1, 1).status();
    WebPDecoderConfig config;
    if (!WebPInitDecoderConfig(&config)) return Status::internal("cannot start a WebP decoder");
    config.options.use_scaling = 1;
    config.options.scaled_width = std::min(features_.width, kCheckSide);
    config.options.scaled_height = std::min(features_.height, kCheckSide);
    config.options.use_threads = 0;
    config.output.colorspace = MODE_RGBA;
    const VP8StatusCode status = WebPDecode(bytes_->data(), bytes_->size(), &config);
    WebPFreeDecBuffer(&config.output);
    if (status != VP8_STATUS_OK) return Status::dataLoss("cannot decode WebP: the image data is damaged");
    return Status::okStatus();
  }

  StatusOr<Bitmap> decode(int, int) const override {
    ASSIGN_OR_RETURN(Bitmap out, features_.has_animation ? firstFrame() : still());
    out.iccProfile = profile_;
    return out;
  }

 private:
  StatusOr<Bitmap> still() const {
    const bool alpha = features_.has_alpha != 0;
    Bitmap out(features_.width, features_.height, alpha ? 4 : 3);
    const auto stride = static_cast<int>(out.stride());
    const std::uint8_t* done =
        alpha ? WebPDecodeRGBAInto(bytes_->data(), bytes_->size(), out.pixels.data(), out.pixels.size(), stride)
              : WebPDecodeRGBInto(bytes_->data(), bytes_->size(), out.pixels.data(), out.pixels.size(), stride);
    if (!done) return Status::dataLoss("cannot decode WebP: the image data is damaged");
    return out;
  }

  StatusOr<Bitmap> firstFrame() const {
    WebPAnimDecoderOptions options;
    if (!WebPAnimDecoderOptionsInit(&options)) return Status::internal("cannot start a WebP decoder");
    options.color_mode = MODE_RGBA;
    options.use_threads = 0;
    const WebPData data = webpData(*bytes_);
    std::unique_ptr<WebPAnimDecoder, AnimDeleter> decoder(WebPAnimDecoderNew(&data, &options));
    if (!decoder) return Status::dataLoss("cannot decode WebP: the animation is damaged");
    WebPAnimInfo info{};
    if (!WebPAnimDecoderGetInfo(decoder.get(), &info) || static_cast<int>(info.canvas_width) != features_.width ||
        static_cast<int>(info.canvas_height) != features_.height)
      return Status::dataLoss("cannot decode WebP: the animation's canvas does not match its header");
    std::uint8_t* canvas = nullptr;
    int timestamp = 0;
    if (!WebPAnimDecoderGetNext(decoder.get(), &canvas, &timestamp) || !canvas)
      return Status::dataLoss("cannot decode WebP: the first frame is damaged");
    Bitmap out(features_.width, features_.height, 4);
    std::memcpy(out.pixels.data(), canvas, out.pixels.size());
    return out;
  }

  std::shared_ptr<const Bytes> bytes_;
  WebPBitstreamFeatures features_;
  std::shared_ptr<const Bytes> profile_;
};

}  // namespace

bool WebpCodec::looksLike(std::span<const std::uint8_t> b) {
  return b.size() >= 12 && std::memcmp(b.data(), "RIFF", 4) == 0 && std::memcmp(b.data() + 8, "WEBP", 4) == 0;
}

StatusOr<std::shared_ptr<const ImageSource>> WebpCodec::source(std::shared_ptr<const Bytes> bytes,
                                                                const DecodeLimits& limits) {
  if (!bytes || !looksLike(*bytes)) return Status::invalidArgument("cannot decode: not a WebP file");
  WebPBitstreamFeatures features{};
  if (WebPGetFeatures(bytes->data(), bytes->size(), &features) != VP8_STATUS_OK)
    return Status::dataLoss("cannot decode WebP header");
  if (features.width <= 0 || features.height <= 0) return Status::dataLoss("cannot decode WebP: empty image");
  const std::uint64_t pixels = static_cast<std::uint64_t>(features.width) * static_cast<std::uint64_t>(features.height);
  // The animation decoder keeps two canvases.
  const std::uint64_t memory = pixels * 4 * (features.has_animation ? 2 : 1);
  if (pixels > limits.maxPixels || memory > limits.maxBytes)
    return Status::resourceExhausted("cannot decode: " + std::to_string(features.width) + "x" +
                                     std::to_string(features.height) + " exceeds the pixel limit of " +
                                     std::to_string(limits.maxPixels));
  auto profile = readProfile(*bytes);
  return std::shared_ptr<const ImageSource>(std::make_shared<WebpSource>(std::move(bytes), features, std::move(profile)));
}

}  // namespace velqor
