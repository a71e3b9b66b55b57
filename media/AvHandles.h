#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/dict.h>
}

#include <memory>

namespace velqor {

// One owner per FFmpeg handle, shared by the movie writer, the export and the
// tools that read movies back.

struct AvInputDeleter {
  void operator()(AVFormatContext* c) const noexcept { avformat_close_input(&c); }
};
// A demuxer opened with avformat_open_input.
using AvInput = std::unique_ptr<AVFormatContext, AvInputDeleter>;

struct AvOutputDeleter {
  void operator()(AVFormatContext* c) const noexcept {
    if (!c) return;
    if (c->pb && !(c->oformat->flags & AVFMT_NOFILE)) avio_closep(&c->pb);
    avformat_free_context(c);
  }
};
// A muxer made with avformat_alloc_output_context2; closes its file too.
using AvOutput = std::unique_ptr<AVFormatContext, AvOutputDeleter>;

struct AvPacketDeleter {
  void operator()(AVPacket* p) const noexcept { av_packet_free(&p); }
};
using AvPacket = std::unique_ptr<AVPacket, AvPacketDeleter>;

struct AvFrameDeleter {
  void operator()(AVFrame* f) const noexcept { av_frame_free(&f); }
};
using AvFrame = std::unique_ptr<AVFrame, AvFrameDeleter>;

struct AvCodecDeleter {
  void operator()(AVCodecContext* c) const noexcept { avcodec_free_context(&c); }
};
using AvCodec = std::unique_ptr<AVCodecContext, AvCodecDeleter>;

struct AvDictionaryDeleter {
  void operator()(AVDictionary* d) const noexcept { av_dict_free(&d); }
};
using AvDictionary = std::unique_ptr<AVDictionary, AvDictionaryDeleter>;

}  // namespace velqor
