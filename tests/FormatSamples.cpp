#include "tests/FormatSamples.h"

#include <exiv2/exiv2.hpp>
#include <gif_lib.h>
#include <lcms2.h>
#include <libheif/heif.h>
#include <spng.h>
#include <tiffio.h>
#include <turbojpeg.h>
#include <webp/encode.h>
#include <webp/mux.h>

#include <cstring>
#include <map>

#include "imaging/metadata/ImageMetadata.h"
#include "platform/linux/SampleImages.h"

#define STB_IMAGE_WRITE_IMPLEMENTATION
#define STB_IMAGE_WRITE_STATIC
#define STBI_WRITE_NO_STDIO
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wunused-function"
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"
#include <stb/stb_image_write.h>
#pragma GCC diagnostic pop

namespace velqor::testing {
namespace {

int appendGif(GifFileType* gif, const GifByteType* data, int n) {
  auto* out = static_cast<Bytes*>(gif->UserData);
  out->insert(out->end(), data, data + n);
  return n;
}

std::uint32_t rgbKey(const std::uint8_t* p) { return (p[0] << 16) | (p[1] << 8) | p[2]; }

}  // namespace

Bytes FormatSamples::gif(int screenWidth, int screenHeight, const std::vector<GifFrame>& frames) {
  // Palette: index 0 transparent, then every colour the frames use.
  std::map<std::uint32_t, int> index;
  std::vector<GifColorType> colours{{0, 0, 0}};
  for (const auto& f : frames)
    for (size_t p = 0; p < f.pixels.pixels.size(); p += f.pixels.channels) {
      const std::uint8_t* px = &f.pixels.pixels[p];
      if (f.pixels.channels == 4 && px[3] == 0) continue;
      if (index.emplace(rgbKey(px), static_cast<int>(colours.size())).second) colours.push_back({px[0], px[1], px[2]});
    }
  colours.resize(256, GifColorType{0, 0, 0});
  Bytes out;
  int error = 0;
  GifFileType* g = EGifOpen(&out, appendGif, &error);
  ColorMapObject* map = GifMakeMapObject(256, colours.data());
  EGifSetGifVersion(g, true);
  EGifPutScreenDesc(g, screenWidth, screenHeight, 8, 0, map);
  for (const auto& f : frames) {
    const GifByteType control[4] = {0x01, 10, 0, 0};  // transparent index 0, 100 ms
    EGifPutExtension(g, GRAPHICS_EXT_FUNC_CODE, 4, control);
    EGifPutImageDesc(g, f.left, f.top, f.pixels.width, f.pixels.height, f.interlaced, nullptr);
    std::vector<int> rows;
    if (f.interlaced) {
      for (auto [start, step] : {std::pair{0, 8}, {4, 8}, {2, 4}, {1, 2}})
        for (int y = start; y < f.pixels.height; y += step) rows.push_back(y);
    } else {
      for (int y = 0; y < f.pixels.height; ++y) rows.push_back(y);
    }
    std::vector<GifPixelType> line(static_cast<size_t>(f.pixels.width));
    for (int y : rows) {
      for (int x = 0; x < f.pixels.width; ++x) {
        const std::uint8_t* px = f.pixels.row(y) + x * f.pixels.channels;
        line[x] = (f.pixels.channels == 4 && px[3] == 0) ? 0 : static_cast<GifPixelType>(index[rgbKey(px)]);
      }
      EGifPutLine(g, line.data(), f.pixels.width);
    }
  }
  EGifCloseFile(g, &error);
  GifFreeMapObject(map);
  return out;
}

Bytes FormatSamples::webpLossy(const Bitmap& rgb, float quality) {
  std::uint8_t* data = nullptr;
  size_t size = WebPEncodeRGB(rgb.pixels.data(), rgb.width, rgb.height, static_cast<int>(rgb.stride()), quality, &data);
  Bytes out(data, data + size);
  WebPFree(data);
  return out;
}

Bytes FormatSamples::webpLossless(const Bitmap& rgba) {
  std::uint8_t* data = nullptr;
  size_t size = WebPEncodeLosslessRGBA(rgba.pixels.data(), rgba.width, rgba.height, static_cast<int>(rgba.stride()), &data);
  Bytes out(data, data + size);
  WebPFree(data);
  return out;
}

Bytes FormatSamples::webpAnimated(const std::vector<Bitmap>& frames) {
  WebPAnimEncoderOptions options;
  WebPAnimEncoderOptionsInit(&options);
  WebPAnimEncoder* encoder = WebPAnimEncoderNew(frames[0].width, frames[0].height, &options);
  WebPConfig config;
  WebPConfigInit(&config);
  config.lossless = 1;
  int timestamp = 0;
  for (const auto& f : frames) {
    WebPPicture picture;
    WebPPictureInit(&picture);
    picture.use_argb = 1;
    picture.width = f.width;
    picture.height = f.height;
    WebPPictureImportRGBA(&picture, f.pixels.data(), static_cast<int>(f.stride()));
    WebPAnimEncoderAdd(encoder, &picture, timestamp, &config);
    WebPPictureFree(&picture);
    timestamp += 100;
  }
  WebPAnimEncoderAdd(encoder, nullptr, timestamp, nullptr);
  WebPData data;
  WebPDataInit(&data);
  WebPAnimEncoderAssemble(encoder, &data);
  Bytes out(data.bytes, data.bytes + data.size);
  WebPDataClear(&data);
  WebPAnimEncoderDelete(encoder);
  return out;
}

Bytes FormatSamples::webpWithProfile(const Bytes& webp, const Bytes& icc) {
  const WebPData image{webp.data(), webp.size()}, profile{icc.data(), icc.size()};
  WebPMux* mux = WebPMuxCreate(&image, 1);
  WebPMuxSetChunk(mux, "ICCP", &profile, 1);
  WebPData assembled;
  WebPDataInit(&assembled);
  WebPMuxAssemble(mux, &assembled);
  Bytes out(assembled.bytes, assembled.bytes + assembled.size);
  WebPDataClear(&assembled);
  WebPMuxDelete(mux);
  return out;
}

namespace {

// A growable in-memory file for libtiff's writer.
struct MemoryFile {
  Bytes bytes;
  toff_t at = 0;
};
tmsize_t memRead(thandle_t h, void* buf, tmsize_t n) {
  auto* f = static_cast<MemoryFile*>(h);
  const tmsize_t left = static_cast<tmsize_t>(f->bytes.size()) - static_cast<tmsize_t>(f->at);
  const tmsize_t k = std::max<tmsize_t>(0, std::min(n, left));
  std::memcpy(buf, f->bytes.data() + f->at, static_cast<size_t>(k));
  f->at += k;
  return k;
}
tmsize_t memWrite(thandle_t h, void* buf, tmsize_t n) {
  auto* f = static_cast<MemoryFile*>(h);
  if (f->at + n > f->bytes.size()) f->bytes.resize(f->at + n);
  std::memcpy(f->bytes.data() + f->at, buf, static_cast<size_t>(n));
  f->at += n;
  return n;
}
toff_t memSeek(thandle_t h, toff_t off, int whence) {
  auto* f = static_cast<MemoryFile*>(h);
  f->at = (whence == SEEK_CUR ? f->at : whence == SEEK_END ? f->bytes.size() : 0) + off;
  return f->at;
}
int memClose(thandle_t) { return 0; }
toff_t memSize(thandle_t h) { return static_cast<MemoryFile*>(h)->bytes.size(); }
int memMap(thandle_t, void**, toff_t*) { return 0; }
void memUnmap(thandle_t, void*, toff_t) {}

}  // namespace

Bytes FormatSamples::tiff(const Bitmap& b, int orientation, const Bytes& icc, bool deflate) {
  MemoryFile file;
  TIFF* t = TIFFClientOpen("sample", "w", &file, memRead, memWrite, memSeek, memClose, memSize, memMap, memUnmap);
  TIFFSetField(t, TIFFTAG_IMAGEWIDTH, b.width);
  TIFFSetField(t, TIFFTAG_IMAGELENGTH, b.height);
  TIFFSetField(t, TIFFTAG_SAMPLESPERPIXEL, b.channels);
  TIFFSetField(t, TIFFTAG_BITSPERSAMPLE, 8);
  TIFFSetField(t, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_RGB);
  TIFFSetField(t, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
  TIFFSetField(t, TIFFTAG_ORIENTATION, orientation);
  TIFFSetField(t, TIFFTAG_COMPRESSION, deflate ? COMPRESSION_ADOBE_DEFLATE : COMPRESSION_NONE);
  TIFFSetField(t, TIFFTAG_ROWSPERSTRIP, 8);
  if (b.channels == 4) {
    const std::uint16_t extra = EXTRASAMPLE_UNASSALPHA;
    TIFFSetField(t, TIFFTAG_EXTRASAMPLES, 1, &extra);
  }
  if (!icc.empty()) TIFFSetField(t, TIFFTAG_ICCPROFILE, static_cast<std::uint32_t>(icc.size()), icc.data());
  for (int y = 0; y < b.height; ++y) TIFFWriteScanline(t, const_cast<std::uint8_t*>(b.row(y)), y, 0);
  TIFFClose(t);
  return file.bytes;
}

Bytes FormatSamples::bmp(const Bitmap& b) {
  Bytes out;
  stbi_write_bmp_to_func(
      [](void* context, void* data, int size) {
        auto* o = static_cast<Bytes*>(context);
        auto* p = static_cast<std::uint8_t*>(data);
        o->insert(o->end(), p, p + size);
      },
      &out, b.width, b.height, b.channels, b.pixels.data());
  return out;
}

Bytes FormatSamples::cameraJpegWithProfile(const Bitmap& rgb, int quality, const Bytes& icc, int exifOrientation) {
  tjhandle h = tjInitCompress();
  unsigned char* data = nullptr;
  unsigned long size = 0;
  tjCompress2(h, rgb.pixels.data(), rgb.width, 0, rgb.height, rgb.channels == 4 ? TJPF_RGBA : TJPF_RGB, &data, &size,
              TJSAMP_420, quality, 0);
  Bytes jpeg(data, data + size);
  tjFree(data);
  tjDestroy(h);
  jpeg = *ImageMetadata::write(jpeg, SampleImages::cameraProperties(exifOrientation));
  if (icc.empty()) return jpeg;
  auto image = Exiv2::ImageFactory::open(jpeg.data(), static_cast<long>(jpeg.size()));
  image->readMetadata();
  Exiv2::DataBuf profile(icc.data(), static_cast<long>(icc.size()));
  image->setIccProfile(profile, true);
  image->writeMetadata();
  Exiv2::BasicIo& io = image->io();
  io.seek(0, Exiv2::BasicIo::beg);
  Exiv2::DataBuf all = io.read(static_cast<long>(io.size()));
  return Bytes(all.pData_, all.pData_ + all.size_);
}

Bytes FormatSamples::pngWithProfile(const Bitmap& rgb, const Bytes& icc) {
  spng_ctx* ctx = spng_ctx_new(SPNG_CTX_ENCODER);
  spng_set_option(ctx, SPNG_ENCODE_TO_BUFFER, 1);
  spng_ihdr ihdr{};
  ihdr.width = static_cast<std::uint32_t>(rgb.width);
  ihdr.height = static_cast<std::uint32_t>(rgb.height);
  ihdr.bit_depth = 8;
  ihdr.color_type = rgb.channels == 4 ? SPNG_COLOR_TYPE_TRUECOLOR_ALPHA : SPNG_COLOR_TYPE_TRUECOLOR;
  spng_set_ihdr(ctx, &ihdr);
  spng_iccp iccp{};
  std::strcpy(iccp.profile_name, "test profile");
  iccp.profile_len = icc.size();
  iccp.profile = const_cast<char*>(reinterpret_cast<const char*>(icc.data()));
  if (!icc.empty()) spng_set_iccp(ctx, &iccp);
  spng_encode_image(ctx, rgb.pixels.data(), rgb.pixels.size(), SPNG_FMT_PNG, SPNG_ENCODE_FINALIZE);
  size_t size = 0;
  int err = 0;
  auto* buf = static_cast<std::uint8_t*>(spng_get_png_buffer(ctx, &size, &err));
  Bytes out(buf, buf + size);
  std::free(buf);
  spng_ctx_free(ctx);
  return out;
}

Bytes FormatSamples::profileOf(const Bytes& encoded) {
  auto image = Exiv2::ImageFactory::open(encoded.data(), static_cast<long>(encoded.size()));
  image->readMetadata();
  if (!image->iccProfileDefined()) return {};
  const Exiv2::DataBuf* p = image->iccProfile();
  return Bytes(p->pData_, p->pData_ + p->size_);
}

long FormatSamples::orientationTagOf(const Bytes& encoded) {
  auto image = Exiv2::ImageFactory::open(encoded.data(), static_cast<long>(encoded.size()));
  image->readMetadata();
  auto it = image->exifData().findKey(Exiv2::ExifKey("Exif.Image.Orientation"));
  return it == image->exifData().end() ? 0 : it->toLong();
}

Bytes FormatSamples::heic(const Bitmap& rgb, const Bytes& icc, int nclxPrimaries, int nclxTransfer) {
  heif_context* ctx = heif_context_alloc();
  heif_encoder* encoder = nullptr;
  if (heif_context_get_encoder_for_format(ctx, heif_compression_HEVC, &encoder).code != heif_error_Ok) {
    heif_context_free(ctx);
    return {};
  }
  heif_encoder_set_lossy_quality(encoder, 95);
  heif_image* image = nullptr;
  heif_image_create(rgb.width, rgb.height, heif_colorspace_RGB, heif_chroma_interleaved_RGB, &image);
  heif_image_add_plane(image, heif_channel_interleaved, rgb.width, rgb.height, 8);
  int stride = 0;
  std::uint8_t* plane = heif_image_get_plane(image, heif_channel_interleaved, &stride);
  for (int y = 0; y < rgb.height; ++y)
    for (int x = 0; x < rgb.width; ++x) std::memcpy(plane + y * stride + x * 3, rgb.row(y) + x * rgb.channels, 3);
  if (!icc.empty()) heif_image_set_raw_color_profile(image, "prof", icc.data(), icc.size());
  heif_color_profile_nclx* nclx = heif_nclx_color_profile_alloc();
  heif_encoding_options* options = heif_encoding_options_alloc();
  if (nclxPrimaries != 0) {
    heif_nclx_color_profile_set_color_primaries(nclx, static_cast<std::uint16_t>(nclxPrimaries));
    heif_nclx_color_profile_set_transfer_characteristics(nclx, static_cast<std::uint16_t>(nclxTransfer));
    heif_nclx_color_profile_set_matrix_coefficients(nclx, 6);
    nclx->full_range_flag = 1;
    heif_image_set_nclx_color_profile(image, nclx);
    options->output_nclx_profile = nclx;
    options->macOS_compatibility_workaround_no_nclx_profile = 0;  // write the colr box
  }
  heif_context_encode_image(ctx, image, encoder, options, nullptr);
  Bytes out;
  heif_writer writer{};
  writer.writer_api_version = 1;
  writer.write = [](heif_context*, const void* data, size_t size, void* user) -> heif_error {
    auto* o = static_cast<Bytes*>(user);
    o->insert(o->end(), static_cast<const std::uint8_t*>(data), static_cast<const std::uint8_t*>(data) + size);
    return heif_error{heif_error_Ok, heif_suberror_Unspecified, "ok"};
  };
  heif_context_write(ctx, &writer, &out);
  heif_encoding_options_free(options);
  heif_nclx_color_profile_free(nclx);
  heif_image_release(image);
  heif_encoder_release(encoder);
  heif_context_free(ctx);
  return out;
}

namespace {

Bytes lcmsProfile(cmsCIExyYTRIPLE primaries, cmsToneCurve* curve, const char* name) {
  const cmsCIExyY d65{0.3127, 0.3290, 1.0};
  cmsToneCurve* curves[3] = {curve, curve, curve};
  cmsHPROFILE p = cmsCreateRGBProfile(&d65, &primaries, curves);
  cmsMLU* text = cmsMLUalloc(nullptr, 1);
  cmsMLUsetASCII(text, "en", "US", name);
  cmsWriteTag(p, cmsSigProfileDescriptionTag, text);
  cmsMLUfree(text);
  cmsUInt32Number size = 0;
  cmsSaveProfileToMem(p, nullptr, &size);
  Bytes out(size);
  cmsSaveProfileToMem(p, out.data(), &size);
  cmsCloseProfile(p);
  cmsFreeToneCurve(curve);
  return out;
}

}  // namespace

Bytes FormatSamples::adobeRgbProfile() {
  static const Bytes profile =
      lcmsProfile({{0.64, 0.33, 1}, {0.21, 0.71, 1}, {0.15, 0.06, 1}}, cmsBuildGamma(nullptr, 563.0 / 256), "Adobe RGB (1998)");
  return profile;
}

Bytes FormatSamples::displayP3Profile() {
  const cmsFloat64Number srgb[5] = {2.4, 1 / 1.055, 0.055 / 1.055, 1 / 12.92, 0.04045};
  static const Bytes profile = lcmsProfile({{0.680, 0.320, 1}, {0.265, 0.690, 1}, {0.150, 0.060, 1}},
                                           cmsBuildParametricToneCurve(nullptr, 4, srgb), "Display P3");
  return profile;
}

}  // namespace velqor::testing
