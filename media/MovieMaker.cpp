#include "media/MovieMaker.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/channel_layout.h>
#include <libavutil/log.h>
#include <libavutil/opt.h>
}

#include <cmath>
#include <memory>

namespace velqor {
namespace {

struct CodecDeleter {
  void operator()(AVCodecContext* c) const noexcept { avcodec_free_context(&c); }
};
struct FrameDeleter {
  void operator()(AVFrame* f) const noexcept { av_frame_free(&f); }
};
struct PacketDeleter {
  void operator()(AVPacket* p) const noexcept { av_packet_free(&p); }
};
struct OutputDeleter {
  void operator()(AVFormatContext* c) const noexcept {
    if (c && c->pb) avio_closep(&c->pb);
    avformat_free_context(c);
  }
};
using Codec = std::unique_ptr<AVCodecContext, CodecDeleter>;
using Frame = std::unique_ptr<AVFrame, FrameDeleter>;
using Packet = std::unique_ptr<AVPacket, PacketDeleter>;

struct Track {
  Codec codec;
  AVStream* stream = nullptr;
};

Status drain(AVFormatContext* out, Track& t, AVFrame* frame) {
  if (int rc = avcodec_send_frame(t.codec.get(), frame); rc < 0 && rc != AVERROR_EOF)
    return Status::internal("encoder refused a frame");
  Packet pkt(av_packet_alloc());
  while (avcodec_receive_packet(t.codec.get(), pkt.get()) == 0) {
    av_packet_rescale_ts(pkt.get(), t.codec->time_base, t.stream->time_base);
    pkt->stream_index = t.stream->index;
    if (av_interleaved_write_frame(out, pkt.get()) < 0) return Status::internal("cannot write a packet");
  }
  return Status::okStatus();
}

}  // namespace

Status MovieMaker::make(const std::string& path, const MovieSpec& shape) {
  av_log_set_level(AV_LOG_FATAL);
  AVFormatContext* raw = nullptr;
  if (avformat_alloc_output_context2(&raw, nullptr, shape.container.c_str(), path.c_str()) < 0 || !raw)
    return Status::internal("no " + shape.container + " writer");
  std::unique_ptr<AVFormatContext, OutputDeleter> out(raw);

  Track video, audio;
  if (shape.video) {
    const AVCodec* c = avcodec_find_encoder_by_name("libx264");
    if (!c) c = avcodec_find_encoder(AV_CODEC_ID_MPEG4);
    if (!c) return Status::unavailable("no video encoder");
    video.codec.reset(avcodec_alloc_context3(c));
    video.codec->width = shape.width;
    video.codec->height = shape.height;
    video.codec->time_base = AVRational{1, shape.fps};
    video.codec->framerate = AVRational{shape.fps, 1};
    video.codec->pix_fmt = AV_PIX_FMT_YUV420P;
    video.codec->bit_rate = shape.videoBitrate;
    video.codec->gop_size = shape.fps;
    if (out->oformat->flags & AVFMT_GLOBALHEADER) video.codec->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    const bool x264 = std::string(c->name) == "libx264";
    if (x264) av_opt_set(video.codec->priv_data, "preset", "ultrafast", 0);
    if (shape.noise && x264) av_opt_set(video.codec->priv_data, "qp", "0", 0);  // lossless: as large as it gets
    if (shape.noise && !x264) {
      video.codec->flags |= AV_CODEC_FLAG_QSCALE;
      video.codec->global_quality = FF_QP2LAMBDA;  // quantizer 1
    }
    if (avcodec_open2(video.codec.get(), c, nullptr) < 0) return Status::internal("cannot open the video encoder");
    video.stream = avformat_new_stream(out.get(), nullptr);
    avcodec_parameters_from_context(video.stream->codecpar, video.codec.get());
    video.stream->time_base = video.codec->time_base;
  }
  if (shape.audio) {
    const AVCodec* c = avcodec_find_encoder(shape.pcmAudio ? AV_CODEC_ID_PCM_F32LE : AV_CODEC_ID_AAC);
    if (!c) return Status::unavailable("no audio encoder");
    audio.codec.reset(avcodec_alloc_context3(c));
    audio.codec->sample_rate = 44100;
    audio.codec->sample_fmt = shape.pcmAudio ? AV_SAMPLE_FMT_FLT : AV_SAMPLE_FMT_FLTP;
    av_channel_layout_default(&audio.codec->ch_layout, 1);
    audio.codec->bit_rate = 64000;
    audio.codec->time_base = AVRational{1, 44100};
    if (out->oformat->flags & AVFMT_GLOBALHEADER) audio.codec->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    if (avcodec_open2(audio.codec.get(), c, nullptr) < 0) return Status::internal("cannot open the audio encoder");
    audio.stream = avformat_new_stream(out.get(), nullptr);
    avcodec_parameters_from_context(audio.stream->codecpar, audio.codec.get());
    audio.stream->time_base = audio.codec->time_base;
  }
  if (avio_open(&out->pb, path.c_str(), AVIO_FLAG_WRITE) < 0) return Status::unavailable("cannot create " + path);
  if (avformat_write_header(out.get(), nullptr) < 0) return Status::internal("cannot write the header");

  const int frames = static_cast<int>(std::lround(shape.seconds * shape.fps));
  Frame vf(av_frame_alloc()), af(av_frame_alloc());
  if (shape.video) {
    vf->format = AV_PIX_FMT_YUV420P;
    vf->width = shape.width;
    vf->height = shape.height;
    av_frame_get_buffer(vf.get(), 0);
  }
  std::int64_t samples = 0;
  const std::int64_t totalSamples = static_cast<std::int64_t>(shape.seconds * 44100);
  // One frame of a 440 Hz tone.
  auto encodeTone = [&]() -> Status {
    af->format = audio.codec->sample_fmt;
    af->nb_samples = audio.codec->frame_size > 0 ? audio.codec->frame_size : 1024;
    av_channel_layout_copy(&af->ch_layout, &audio.codec->ch_layout);
    af->sample_rate = 44100;
    av_frame_get_buffer(af.get(), 0);
    auto* data = reinterpret_cast<float*>(af->data[0]);
    for (int k = 0; k < af->nb_samples; ++k) data[k] = 0.2f * std::sin(2 * M_PI * 440 * (samples + k) / 44100.0);
    af->pts = samples;
    samples += af->nb_samples;
    Status s = drain(out.get(), audio, af.get());
    av_frame_unref(af.get());
    return s;
  };
  for (int i = 0; shape.video && i < frames; ++i) {
    av_frame_make_writable(vf.get());
    std::uint32_t seed = 2463534242u + static_cast<std::uint32_t>(i);
    for (int y = 0; y < shape.height; ++y)
      for (int x = 0; x < shape.width; ++x) {
        seed ^= seed << 13, seed ^= seed >> 17, seed ^= seed << 5;
        vf->data[0][y * vf->linesize[0] + x] =
            static_cast<std::uint8_t>(shape.noise ? (seed & 0xFF) : static_cast<std::uint32_t>(x + y + i * 3));
      }
    for (int y = 0; y < shape.height / 2; ++y)
      for (int x = 0; x < shape.width / 2; ++x) {
        vf->data[1][y * vf->linesize[1] + x] = static_cast<std::uint8_t>(128 + y + i * 2);
        vf->data[2][y * vf->linesize[2] + x] = static_cast<std::uint8_t>(64 + x + i * 5);
      }
    vf->pts = i;
    if (Status s = drain(out.get(), video, vf.get()); !s.ok()) return s;
    // Interleave audio up to the video's time.
    while (shape.audio && samples < std::min(totalSamples, static_cast<std::int64_t>((i + 1) * 44100LL / shape.fps)))
      RETURN_IF_ERROR(encodeTone());
  }
  while (!shape.video && shape.audio && samples < totalSamples) RETURN_IF_ERROR(encodeTone());
  if (shape.video) drain(out.get(), video, nullptr);
  if (shape.audio) drain(out.get(), audio, nullptr);
  if (av_write_trailer(out.get()) < 0) return Status::internal("cannot finish " + path);
  return Status::okStatus();
}

}  // namespace velqor
