#include "media/MovieMaker.h"

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/display.h>
#include <libavutil/log.h>
#include <libavutil/opt.h>
}

#include <cmath>
#include <algorithm>
#include <cstring>

#include "media/AvHandles.h"

namespace velqor {
namespace {

struct Track {
  AvCodec codec;
  AVStream* stream = nullptr;
};

Status drain(AVFormatContext* out, Track& t, AVFrame* frame) {
  if (int rc = avcodec_send_frame(t.codec.get(), frame); rc < 0 && rc != AVERROR_EOF)
    return Status::internal("encoder refused a frame");
  AvPacket pkt(av_packet_alloc());
  while (avcodec_receive_packet(t.codec.get(), pkt.get()) == 0) {
    av_packet_rescale_ts(pkt.get(), t.codec->time_base, t.stream->time_base);
    pkt->stream_index = t.stream->index;
    if (av_interleaved_write_frame(out, pkt.get()) < 0) return Status::internal("cannot write a packet");
  }
  return Status::okStatus();
}

void nameTrack(AVStream* stream, const std::string& language, const std::string& handler) {
  if (!language.empty()) av_dict_set(&stream->metadata, "language", language.c_str(), 0);
  if (!handler.empty()) av_dict_set(&stream->metadata, "handler_name", handler.c_str(), 0);
}

const AVCodec* videoEncoder(const MovieSpec& shape) {
  if (shape.videoCodec == "hevc") return avcodec_find_encoder_by_name("libx265");
  const AVCodec* c = avcodec_find_encoder_by_name("libx264");
  return c ? c : avcodec_find_encoder(AV_CODEC_ID_MPEG4);
}

void tuneVideoEncoder(AVCodecContext* codec, const MovieSpec& shape) {
  const std::string name = codec->codec->name;
  if (name == "libx264") {
    av_opt_set(codec->priv_data, "preset", "ultrafast", 0);
    if (shape.noise) av_opt_set(codec->priv_data, "qp", "0", 0);  // lossless: as large as it gets
  } else if (name == "libx265") {
    av_opt_set(codec->priv_data, "preset", "ultrafast", 0);
    av_opt_set(codec->priv_data, "x265-params", shape.noise ? "log-level=none:lossless=1" : "log-level=none", 0);
  } else if (shape.noise) {
    codec->flags |= AV_CODEC_FLAG_QSCALE;
    codec->global_quality = FF_QP2LAMBDA;  // quantizer 1
  }
}

Status openVideo(AVFormatContext* out, const MovieSpec& shape, Track& video) {
  const AVCodec* c = videoEncoder(shape);
  if (!c) return Status::unavailable("no " + shape.videoCodec + " video encoder");
  video.codec.reset(avcodec_alloc_context3(c));
  video.codec->width = shape.width;
  video.codec->height = shape.height;
  video.codec->time_base = AVRational{1, shape.fps};
  video.codec->framerate = AVRational{shape.fps, 1};
  video.codec->pix_fmt = AV_PIX_FMT_YUV420P;
  video.codec->bit_rate = shape.videoBitrate;
  video.codec->gop_size = shape.fps;
  if (out->oformat->flags & AVFMT_GLOBALHEADER) video.codec->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
  tuneVideoEncoder(video.codec.get(), shape);
  if (avcodec_open2(video.codec.get(), c, nullptr) < 0) return Status::internal("cannot open the video encoder");
  video.stream = avformat_new_stream(out, nullptr);
  if (!video.stream) return Status::internal("cannot add the video track");
  avcodec_parameters_from_context(video.stream->codecpar, video.codec.get());
  if (shape.videoCodec == "hevc") video.stream->codecpar->codec_tag = shape.hevcTag == "hev1" ? MKTAG('h', 'e', 'v', '1')
                                                                                              : MKTAG('h', 'v', 'c', '1');
  video.stream->time_base = video.codec->time_base;
  video.stream->avg_frame_rate = video.codec->framerate;
  if (shape.rotation % 360 != 0) {
    auto* matrix = reinterpret_cast<int32_t*>(av_stream_new_side_data(video.stream, AV_PKT_DATA_DISPLAYMATRIX, 9 * 4));
    if (!matrix) return Status::internal("cannot set the display matrix");
    // This sign writes the matrix a phone writes for a clockwise turn (b = 1, c = -1 for 90).
    av_display_rotation_set(matrix, shape.rotation);
  }
  if (!shape.timecode.empty()) av_dict_set(&video.stream->metadata, "timecode", shape.timecode.c_str(), 0);
  nameTrack(video.stream, shape.language, shape.videoHandler);
  return Status::okStatus();
}

Status openAudio(AVFormatContext* out, const MovieSpec& shape, Track& audio) {
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
  audio.stream = avformat_new_stream(out, nullptr);
  if (!audio.stream) return Status::internal("cannot add the audio track");
  avcodec_parameters_from_context(audio.stream->codecpar, audio.codec.get());
  audio.stream->time_base = audio.codec->time_base;
  nameTrack(audio.stream, shape.language, shape.audioHandler);
  return Status::okStatus();
}

AVStream* addMetadataTrack(AVFormatContext* out) {
  AVStream* s = avformat_new_stream(out, nullptr);
  if (!s) return nullptr;
  s->codecpar->codec_type = AVMEDIA_TYPE_DATA;
  s->codecpar->codec_id = AV_CODEC_ID_BIN_DATA;
  s->codecpar->codec_tag = MKTAG('g', 'p', 'm', 'd');
  s->time_base = AVRational{1, 1000};
  return s;
}

// The recording's global metadata: time, place and the rest, stored the way
// the shape says (QuickTime keys or user-data atoms).
void describeRecording(AVFormatContext* out, const MovieSpec& shape) {
  if (!shape.creationTime.empty()) av_dict_set(&out->metadata, "creation_time", shape.creationTime.c_str(), 0);
  if (!shape.location.empty())
    av_dict_set(&out->metadata, shape.quickTimeKeys ? "com.apple.quicktime.location.ISO6709" : "location",
                shape.location.c_str(), 0);
  for (const auto& [key, value] : shape.metadata) av_dict_set(&out->metadata, key.c_str(), value.c_str(), 0);
}

Status addChapters(AVFormatContext* out, const MovieSpec& shape) {
  if (shape.chapters.empty()) return Status::okStatus();
  // Owned by the writer's context from here on; avformat_free_context frees them.
  out->chapters = static_cast<AVChapter**>(av_calloc(shape.chapters.size(), sizeof(AVChapter*)));
  if (!out->chapters) return Status::resourceExhausted("no memory for chapters");
  for (size_t i = 0; i < shape.chapters.size(); ++i) {
    auto* c = static_cast<AVChapter*>(av_mallocz(sizeof(AVChapter)));
    if (!c) return Status::resourceExhausted("no memory for chapters");
    out->chapters[out->nb_chapters++] = c;
    c->id = static_cast<std::int64_t>(i);
    c->time_base = AVRational{1, 1000};
    c->start = std::llround(shape.chapters[i].first * 1000);
    c->end = std::llround((i + 1 < shape.chapters.size() ? shape.chapters[i + 1].first : shape.seconds) * 1000);
    av_dict_set(&c->metadata, "title", shape.chapters[i].second.c_str(), 0);
  }
  return Status::okStatus();
}

// One sample of the metadata track for video frame `i`: a small record that
// differs from sample to sample, as sensor readings do.
Status writeMetadataSample(AVFormatContext* out, AVStream* track, int i, int every, int fps) {
  AvPacket pkt(av_packet_alloc());
  if (!pkt || av_new_packet(pkt.get(), 32) < 0) return Status::resourceExhausted("no memory for a metadata sample");
  std::memcpy(pkt->data, "GPMD", 4);
  for (int k = 4; k < 32; ++k) pkt->data[k] = static_cast<std::uint8_t>(i * 7 + k * 13);
  pkt->pts = pkt->dts = static_cast<std::int64_t>(i) * 1000 / fps;
  pkt->duration = static_cast<std::int64_t>(every) * 1000 / fps;
  pkt->stream_index = track->index;
  pkt->flags |= AV_PKT_FLAG_KEY;
  if (av_interleaved_write_frame(out, pkt.get()) < 0) return Status::internal("cannot write a metadata sample");
  return Status::okStatus();
}

void paintFrame(AVFrame* vf, const MovieSpec& shape, int i) {
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
}

// Encodes a 440 Hz tone frame by frame.
class ToneWriter {
 public:
  ToneWriter(AVFormatContext* out, Track& audio) : out_(out), audio_(audio), frame_(av_frame_alloc()) {}

  Status writeUntil(std::int64_t sampleCount) {
    while (samples_ < sampleCount) RETURN_IF_ERROR(writeOne());
    return Status::okStatus();
  }

 private:
  Status writeOne() {
    AVFrame* af = frame_.get();
    af->format = audio_.codec->sample_fmt;
    af->nb_samples = audio_.codec->frame_size > 0 ? audio_.codec->frame_size : 1024;
    av_channel_layout_copy(&af->ch_layout, &audio_.codec->ch_layout);
    af->sample_rate = 44100;
    if (av_frame_get_buffer(af, 0) < 0) return Status::resourceExhausted("no memory for audio");
    auto* data = reinterpret_cast<float*>(af->data[0]);
    for (int k = 0; k < af->nb_samples; ++k) data[k] = 0.2f * std::sin(2 * M_PI * 440 * (samples_ + k) / 44100.0);
    af->pts = samples_;
    samples_ += af->nb_samples;
    Status s = drain(out_, audio_, af);
    av_frame_unref(af);
    return s;
  }

  AVFormatContext* out_;
  Track& audio_;
  AvFrame frame_;
  std::int64_t samples_ = 0;
};

Status writeMedia(AVFormatContext* out, const MovieSpec& shape, Track& video, Track& audio, AVStream* metadata) {
  const int frames = static_cast<int>(std::lround(shape.seconds * shape.fps));
  const std::int64_t totalSamples = static_cast<std::int64_t>(shape.seconds * 44100);
  const int every = std::max(1, shape.fps / 3);
  ToneWriter tone(out, audio);
  AvFrame vf(av_frame_alloc());
  if (shape.video) {
    vf->format = AV_PIX_FMT_YUV420P;
    vf->width = shape.width;
    vf->height = shape.height;
    if (av_frame_get_buffer(vf.get(), 0) < 0) return Status::resourceExhausted("no memory for a frame");
  }
  for (int i = 0; shape.video && i < frames; ++i) {
    if (av_frame_make_writable(vf.get()) < 0) return Status::resourceExhausted("no memory for a frame");
    paintFrame(vf.get(), shape, i);
    vf->pts = i;
    RETURN_IF_ERROR(drain(out, video, vf.get()));
    if (metadata && i % every == 0) RETURN_IF_ERROR(writeMetadataSample(out, metadata, i, every, shape.fps));
    // Interleave audio up to the video's time.
    if (shape.audio) RETURN_IF_ERROR(tone.writeUntil(std::min<std::int64_t>(totalSamples, (i + 1) * 44100LL / shape.fps)));
  }
  if (!shape.video && shape.audio) RETURN_IF_ERROR(tone.writeUntil(totalSamples));
  if (shape.video) RETURN_IF_ERROR(drain(out, video, nullptr));
  if (shape.audio) RETURN_IF_ERROR(drain(out, audio, nullptr));
  return Status::okStatus();
}

}  // namespace

Status MovieMaker::make(const std::string& path, const MovieSpec& shape) {
  av_log_set_level(AV_LOG_FATAL);
  AVFormatContext* raw = nullptr;
  if (avformat_alloc_output_context2(&raw, nullptr, shape.container.c_str(), path.c_str()) < 0 || !raw)
    return Status::internal("no " + shape.container + " writer");
  AvOutput out(raw);

  Track video, audio;
  if (shape.video) RETURN_IF_ERROR(openVideo(out.get(), shape, video));
  if (shape.audio) RETURN_IF_ERROR(openAudio(out.get(), shape, audio));
  AVStream* metadata = shape.metadataTrack ? addMetadataTrack(out.get()) : nullptr;
  if (shape.metadataTrack && !metadata) return Status::internal("cannot add the metadata track");
  describeRecording(out.get(), shape);
  RETURN_IF_ERROR(addChapters(out.get(), shape));

  if (avio_open(&out->pb, path.c_str(), AVIO_FLAG_WRITE) < 0) return Status::unavailable("cannot create " + path);
  AVDictionary* options = nullptr;
  if (shape.quickTimeKeys) av_dict_set(&options, "movflags", "use_metadata_tags", 0);
  AvDictionary ownedOptions(options);
  options = ownedOptions.release();
  const int rc = avformat_write_header(out.get(), &options);
  ownedOptions.reset(options);
  if (rc < 0) return Status::internal("cannot write the header");
  RETURN_IF_ERROR(writeMedia(out.get(), shape, video, audio, metadata));
  if (av_write_trailer(out.get()) < 0) return Status::internal("cannot finish " + path);
  return Status::okStatus();
}

}  // namespace velqor
