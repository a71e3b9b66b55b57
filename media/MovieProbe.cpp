#include "media/MovieProbe.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

#include <memory>

namespace velqor {
namespace {

struct FormatContextCloser {
  void operator()(AVFormatContext* c) const noexcept { avformat_close_input(&c); }
};
using FormatContext = std::unique_ptr<AVFormatContext, FormatContextCloser>;

}  // namespace

std::optional<MovieSummary> MovieProbe::read(const std::string& path) {
  MovieSummary facts;
  av_log_set_level(AV_LOG_QUIET);
  AVFormatContext* raw = nullptr;
  if (avformat_open_input(&raw, ("file:" + path).c_str(), nullptr, nullptr) < 0) return std::nullopt;
  FormatContext ctx(raw);
  if (avformat_find_stream_info(ctx.get(), nullptr) < 0) return std::nullopt;
  bool any = false;
  for (unsigned i = 0; i < ctx->nb_streams; ++i) {
    const AVCodecParameters* p = ctx->streams[i]->codecpar;
    if (p->codec_type != AVMEDIA_TYPE_VIDEO && p->codec_type != AVMEDIA_TYPE_AUDIO) continue;
    any = true;
    if (p->codec_type == AVMEDIA_TYPE_VIDEO && facts.width == 0) {
      facts.width = p->width;
      facts.height = p->height;
    }
    facts.tracks += (facts.tracks.empty() ? "" : ", ") + std::string(avcodec_get_name(p->codec_id)) +
                    (p->codec_type == AVMEDIA_TYPE_VIDEO ? " video" : " audio");
  }
  if (!any) return std::nullopt;
  facts.seconds = ctx->duration == AV_NOPTS_VALUE ? 0 : static_cast<double>(ctx->duration) / AV_TIME_BASE;
  const std::string name = ctx->iformat->name;
  facts.format = name.find("mp4") != std::string::npos ? (path.ends_with(".mov") ? "QuickTime" : "MPEG-4") : name;
  return facts;
}

}  // namespace velqor
