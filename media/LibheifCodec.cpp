#include "media/LibheifCodec.h"

#include <libheif/heif.h>

#include <cstring>
#include <memory>
#include <optional>
#include <string>

#include "imaging/IccProfiles.h"
#include "imaging/metadata/IccProfileBuilder.h"

namespace velqor {
namespace {

struct ContextDeleter {
  void operator()(heif_context* c) const noexcept { heif_context_free(c); }
};
struct HandleDeleter {
  void operator()(heif_image_handle* h) const noexcept { heif_image_handle_release(h); }
};
struct ImageDeleter {
  void operator()(heif_image* i) const noexcept { heif_image_release(i); }
};
struct EncoderDeleter {
  void operator()(heif_encoder* e) const noexcept { heif_encoder_release(e); }
};
using HeifContext = std::unique_ptr<heif_context, ContextDeleter>;
using HeifHandle = std::unique_ptr<heif_image_handle, HandleDeleter>;
using HeifImage = std::unique_ptr<heif_image, ImageDeleter>;
using HeifEncoder = std::unique_ptr<heif_encoder, EncoderDeleter>;

constexpr size_t kMaxProfileBytes = 16u << 20;

Status heifStatus(const heif_error& e, const char* what) {
  if (e.code == heif_error_Ok) return Status::okStatus();
  return Status::dataLoss(std::string(what) + ": " + (e.message ? e.message : "libheif error"));
}

struct Opened {
  HeifContext ctx;
  HeifHandle handle;
};

StatusOr<Opened> open(const Bytes& bytes) {
  Opened o;
  o.ctx.reset(heif_context_alloc());
  if (!o.ctx) return Status::internal("cannot start a HEIF decoder");
  RETURN_IF_ERROR(heifStatus(heif_context_read_from_memory_without_copy(o.ctx.get(), bytes.data(), bytes.size(), nullptr),
                             "cannot decode HEIF"));
  heif_image_handle* h = nullptr;
  RETURN_IF_ERROR(heifStatus(heif_context_get_primary_image_handle(o.ctx.get(), &h), "cannot decode HEIF"));
  o.handle.reset(h);
  return o;
}

struct NclxDeleter {
  void operator()(heif_color_profile_nclx* n) const noexcept { heif_nclx_color_profile_free(n); }
};

// The colour space an nclx box names (ITU-T H.273 codes), with the primaries
// libheif derives from it. None for a transfer an ICC curve cannot carry
// (PQ, HLG and the like): such pixels are left without a profile.
std::optional<RgbColourSpace> colourSpaceOf(const heif_color_profile_nclx& n) {
  RgbColourSpace s;
  switch (n.transfer_characteristics) {
    case heif_transfer_characteristic_IEC_61966_2_1:
    case heif_transfer_characteristic_unspecified: s.transfer = RgbColourSpace::Transfer::srgb; break;
    case heif_transfer_characteristic_ITU_R_BT_709_5:
    case heif_transfer_characteristic_ITU_R_BT_601_6:
    case heif_transfer_characteristic_ITU_R_BT_2020_2_10bit:
    case heif_transfer_characteristic_ITU_R_BT_2020_2_12bit: s.transfer = RgbColourSpace::Transfer::bt709; break;
    case heif_transfer_characteristic_ITU_R_BT_470_6_System_M:
      s.transfer = RgbColourSpace::Transfer::gamma, s.gamma = 2.2;
      break;
    case heif_transfer_characteristic_ITU_R_BT_470_6_System_B_G:
      s.transfer = RgbColourSpace::Transfer::gamma, s.gamma = 2.8;
      break;
    case heif_transfer_characteristic_linear: s.transfer = RgbColourSpace::Transfer::gamma, s.gamma = 1.0; break;
    default: return std::nullopt;
  }
  // Primaries libheif has no values for stay BT.709's, the space's defaults.
  if (n.color_primary_white_x > 0 && n.color_primary_white_y > 0) {
    s.whiteX = n.color_primary_white_x, s.whiteY = n.color_primary_white_y;
    s.redX = n.color_primary_red_x, s.redY = n.color_primary_red_y;
    s.greenX = n.color_primary_green_x, s.greenY = n.color_primary_green_y;
    s.blueX = n.color_primary_blue_x, s.blueY = n.color_primary_blue_y;
  }
  const bool srgbCurve = s.transfer == RgbColourSpace::Transfer::srgb;
  switch (n.color_primaries) {
    case heif_color_primaries_ITU_R_BT_709_5:
    case heif_color_primaries_unspecified: s.description = srgbCurve ? "sRGB" : "BT.709"; break;
    case heif_color_primaries_SMPTE_EG_432_1: s.description = srgbCurve ? "Display P3" : "P3-D65"; break;
    case heif_color_primaries_ITU_R_BT_2020_2_and_2100_0: s.description = "BT.2020"; break;
    default: s.description = "nclx primaries " + std::to_string(n.color_primaries); break;
  }
  return s;
}

// The image's colour profile as ICC: an ICC colr box as it is, or one made
// from an nclx box's primaries and transfer.
std::shared_ptr<const Bytes> readProfile(const heif_image_handle* handle) {
  const size_t size = heif_image_handle_get_raw_color_profile_size(handle);
  if (size > 0 && size <= kMaxProfileBytes) {
    Bytes raw(size);
    if (heif_image_handle_get_raw_color_profile(handle, raw.data()).code == heif_error_Ok)
      if (auto profile = IccProfiles::rgbProfile(raw)) return profile;
  }
  heif_color_profile_nclx* raw = nullptr;
  if (heif_image_handle_get_nclx_color_profile(handle, &raw).code != heif_error_Ok || !raw) return nullptr;
  std::unique_ptr<heif_color_profile_nclx, NclxDeleter> nclx(raw);
  auto space = colourSpaceOf(*nclx);
  if (!space) return nullptr;
  auto icc = IccProfileBuilder::rgb(*space);
  return icc.ok() ? std::make_shared<const Bytes>(std::move(*icc)) : nullptr;
}

class HeifSource final : public ImageSource {
 public:
  HeifSource(std::shared_ptr<const Bytes> bytes, int w, int h, bool alpha, std::shared_ptr<const Bytes> profile)
      : bytes_(std::move(bytes)), w_(w), h_(h), alpha_(alpha), profile_(std::move(profile)) {}
  int width() const override { return w_; }
  int height() const override { return h_; }
  std::string typeName() const override { return "heif"; }
  std::shared_ptr<const Bytes> iccProfile() const override { return profile_; }
  // The header was checked against the limits, and HEIF decodes at one size only.
  Status checkDecode(int, int) const override { return Status::okStatus(); }

  StatusOr<Bitmap> decode(int, int) const override {
    ASSIGN_OR_RETURN(Opened o, open(*bytes_));
    heif_image* raw = nullptr;
    RETURN_IF_ERROR(heifStatus(heif_decode_image(o.handle.get(), &raw, heif_colorspace_RGB,
                                                 alpha_ ? heif_chroma_interleaved_RGBA : heif_chroma_interleaved_RGB,
                                                 nullptr),
                               "cannot decode HEIF"));
    HeifImage img(raw);
    int stride = 0;
    const std::uint8_t* plane = heif_image_get_plane_readonly(img.get(), heif_channel_interleaved, &stride);
    const int w = heif_image_get_width(img.get(), heif_channel_interleaved);
    const int h = heif_image_get_height(img.get(), heif_channel_interleaved);
    if (!plane || w <= 0 || h <= 0) return Status::dataLoss("cannot decode HEIF: no pixels");
    Bitmap out(w, h, alpha_ ? 4 : 3);
    for (int y = 0; y < h; ++y) std::memcpy(out.row(y), plane + static_cast<size_t>(stride) * y, out.stride());
    out.iccProfile = profile_;
    return out;
  }

 private:
  std::shared_ptr<const Bytes> bytes_;
  int w_, h_;
  bool alpha_;
  std::shared_ptr<const Bytes> profile_;
};

}  // namespace

StatusOr<std::shared_ptr<const ImageSource>> LibheifCodec::source(std::shared_ptr<const Bytes> bytes,
                                                                   const DecodeLimits& limits) {
  if (!bytes) return Status::invalidArgument("cannot decode: not a HEIF file");
  ASSIGN_OR_RETURN(Opened o, open(*bytes));
  const int w = heif_image_handle_get_width(o.handle.get());
  const int h = heif_image_handle_get_height(o.handle.get());
  if (w <= 0 || h <= 0) return Status::dataLoss("cannot decode HEIF: empty image");
  const std::uint64_t pixels = static_cast<std::uint64_t>(w) * h;
  if (pixels > limits.maxPixels || pixels * 4 > limits.maxBytes)
    return Status::resourceExhausted("cannot decode: " + std::to_string(w) + "x" + std::to_string(h) +
                                     " exceeds the pixel limit");
  const bool alpha = heif_image_handle_has_alpha_channel(o.handle.get()) != 0;
  auto profile = readProfile(o.handle.get());
  return std::shared_ptr<const ImageSource>(
      std::make_shared<HeifSource>(std::move(bytes), w, h, alpha, std::move(profile)));
}

StatusOr<Bytes> LibheifCodec::encode(const Bitmap& bitmap, int quality) {
  if (bitmap.channels != 3 && bitmap.channels != 4) return Status::invalidArgument("HEIF needs RGB or RGBA");
  HeifContext ctx(heif_context_alloc());
  heif_encoder* rawEncoder = nullptr;
  RETURN_IF_ERROR(heifStatus(heif_context_get_encoder_for_format(ctx.get(), heif_compression_HEVC, &rawEncoder),
                             "no HEVC encoder"));
  HeifEncoder encoder(rawEncoder);
  heif_encoder_set_lossy_quality(encoder.get(), quality);
  heif_image* raw = nullptr;
  const auto chroma = bitmap.channels == 4 ? heif_chroma_interleaved_RGBA : heif_chroma_interleaved_RGB;
  RETURN_IF_ERROR(heifStatus(heif_image_create(bitmap.width, bitmap.height, heif_colorspace_RGB, chroma, &raw),
                             "cannot make a HEIF image"));
  HeifImage img(raw);
  RETURN_IF_ERROR(heifStatus(heif_image_add_plane(img.get(), heif_channel_interleaved, bitmap.width, bitmap.height, 8),
                             "cannot make a HEIF plane"));
  int stride = 0;
  std::uint8_t* plane = heif_image_get_plane(img.get(), heif_channel_interleaved, &stride);
  for (int y = 0; y < bitmap.height; ++y)
    std::memcpy(plane + static_cast<size_t>(stride) * y, bitmap.row(y), bitmap.stride());
  RETURN_IF_ERROR(heifStatus(heif_context_encode_image(ctx.get(), img.get(), encoder.get(), nullptr, nullptr),
                             "cannot encode HEIF"));
  Bytes out;
  heif_writer writer{};
  writer.writer_api_version = 1;
  writer.write = [](heif_context*, const void* data, size_t size, void* userdata) -> heif_error {
    auto* buffer = static_cast<Bytes*>(userdata);
    auto* p = static_cast<const std::uint8_t*>(data);
    buffer->insert(buffer->end(), p, p + size);
    return heif_error{heif_error_Ok, heif_suberror_Unspecified, "ok"};
  };
  RETURN_IF_ERROR(heifStatus(heif_context_write(ctx.get(), &writer, &out), "cannot write HEIF"));
  return out;
}

}  // namespace velqor
