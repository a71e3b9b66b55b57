#include "media/MovieFrames.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/pixdesc.h>
}

#include <algorithm>
#include <cmath>
#include <memory>

namespace velqor {
namespace {

struct FormatCloser {
  void operator()(AVFormatContext* c) const noexcept { avformat_close_input(&c); }
};
struct CodecFreer {
  void operator()(AVCodecContext* c) const noexcept { avcodec_free_context(&c); }
};
struct FrameFreer {
  void operator()(AVFrame* f) const noexcept { av_frame_free(&f); }
};
struct PacketFreer {
  void operator()(AVPacket* p) const noexcept { av_packet_free(&p); }
};

// How many packets to read at most before giving up on a first picture.
constexpr int kMaxPackets = 600;

std::uint8_t clamp(double v) { return static_cast<std::uint8_t>(std::clamp(std::lround(v), 0L, 255L)); }

// Nearest-neighbour sampling of a planar YUV frame into RGB (BT.601; full
// range for the JPEG "yuvj" formats, studio range otherwise).
std::optional<Bitmap> sample(const AVFrame& frame, int side) {
  const AVPixFmtDescriptor* d = av_pix_fmt_desc_get(static_cast<AVPixelFormat>(frame.format));
  if (!d || !(d->flags & AV_PIX_FMT_FLAG_PLANAR) || d->nb_components < 3 || d->comp[0].depth != 8 ||
      (d->flags & AV_PIX_FMT_FLAG_RGB) || frame.width <= 0 || frame.height <= 0)
    return std::nullopt;
  const double scale = std::min(1.0, static_cast<double>(side) / std::max(frame.width, frame.height));
  const int w = std::max(1, static_cast<int>(std::lround(frame.width * scale)));
  const int h = std::max(1, static_cast<int>(std::lround(frame.height * scale)));
  const bool full = frame.color_range == AVCOL_RANGE_JPEG || std::string_view(d->name).starts_with("yuvj");
  Bitmap out(w, h, 3);
  for (int y = 0; y < h; ++y) {
    const int sy = std::min(frame.height - 1, static_cast<int>(y / scale));
    for (int x = 0; x < w; ++x) {
      const int sx = std::min(frame.width - 1, static_cast<int>(x / scale));
      double Y = frame.data[0][sy * frame.linesize[0] + sx];
      double U = frame.data[1][(sy >> d->log2_chroma_h) * frame.linesize[1] + (sx >> d->log2_chroma_w)] - 128.0;
      double V = frame.data[2][(sy >> d->log2_chroma_h) * frame.linesize[2] + (sx >> d->log2_chroma_w)] - 128.0;
      if (!full) {
        Y = (Y - 16) * 255.0 / 219.0;
        U *= 255.0 / 224.0;
        V *= 255.0 / 224.0;
      }
      std::uint8_t* p = &out.pixels[(static_cast<size_t>(y) * w + x) * 3];
      p[0] = clamp(Y + 1.402 * V);
      p[1] = clamp(Y - 0.344136 * U - 0.714136 * V);
      p[2] = clamp(Y + 1.772 * U);
    }
  }
  return out;
}

}  // namespace

std::optional<Bitmap> MovieFrames::firstFrame(const std::string& path, int side) {
  av_log_set_level(AV_LOG_QUIET);
  AVFormatContext* raw = nullptr;
  if (avformat_open_input(&raw, ("file:" + path).c_str(), nullptr, nullptr) < 0) return std::nullopt;
  std::unique_ptr<AVFormatContext, FormatCloser> format(raw);
  if (avformat_find_stream_info(format.get(), nullptr) < 0) return std::nullopt;
  const AVCodec* codec = nullptr;
  const int stream = av_find_best_stream(format.get(), AVMEDIA_TYPE_VIDEO, -1, -1, &codec, 0);
  if (stream < 0 || !codec) return std::nullopt;
  std::unique_ptr<AVCodecContext, CodecFreer> decoder(avcodec_alloc_context3(codec));
  if (!decoder || avcodec_parameters_to_context(decoder.get(), format->streams[stream]->codecpar) < 0 ||
      avcodec_open2(decoder.get(), codec, nullptr) < 0)
    return std::nullopt;
  std::unique_ptr<AVPacket, PacketFreer> packet(av_packet_alloc());
  std::unique_ptr<AVFrame, FrameFreer> frame(av_frame_alloc());
  if (!packet || !frame) return std::nullopt;
  for (int read = 0; read < kMaxPackets; ++read) {
    const bool more = av_read_frame(format.get(), packet.get()) >= 0;
    if (more && packet->stream_index != stream) {
      av_packet_unref(packet.get());
      continue;
    }
    const int sent = avcodec_send_packet(decoder.get(), more ? packet.get() : nullptr);  // null drains
    av_packet_unref(packet.get());
    if (sent < 0 && sent != AVERROR(EAGAIN)) return std::nullopt;
    if (avcodec_receive_frame(decoder.get(), frame.get()) == 0) return sample(*frame, side);
    if (!more) return std::nullopt;
  }
  return std::nullopt;
}

}  // namespace velqor
