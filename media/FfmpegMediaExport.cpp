#include "media/FfmpegMediaExport.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/avutil.h>
#include <libavutil/log.h>
}

#include <fcntl.h>
#include <stdio.h>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <mutex>
#include <random>
#include <thread>

#include "host/VLog.h"

namespace velqor {
namespace {

constexpr const char* kDomain = "AVFoundationErrorDomain";

struct InputDeleter {
  void operator()(AVFormatContext* c) const noexcept { avformat_close_input(&c); }
};
using Input = std::unique_ptr<AVFormatContext, InputDeleter>;

struct OutputDeleter {
  void operator()(AVFormatContext* c) const noexcept {
    if (!c) return;
    if (c->pb && !(c->oformat->flags & AVFMT_NOFILE)) avio_closep(&c->pb);
    avformat_free_context(c);
  }
};
using Output = std::unique_ptr<AVFormatContext, OutputDeleter>;

struct PacketDeleter {
  void operator()(AVPacket* p) const noexcept { av_packet_free(&p); }
};

struct DictionaryDeleter {
  void operator()(AVDictionary* d) const noexcept { av_dict_free(&d); }
};

std::string averror(int code) {
  char buf[AV_ERROR_MAX_STRING_SIZE] = {};
  av_strerror(code, buf, sizeof buf);
  return buf;
}

void quietLibraries() {
  static std::once_flag once;
  std::call_once(once, [] { av_log_set_level(AV_LOG_FATAL); });
}

// Opens a movie the safe way: the MOV/MP4 demuxer only, the file protocol only.
int openInput(const std::string& path, Input& out) {
  quietLibraries();
  const AVInputFormat* mov = av_find_input_format("mov");
  AVDictionary* raw = nullptr;
  av_dict_set(&raw, "protocol_whitelist", "file", 0);
  av_dict_set(&raw, "format_whitelist", "mov,mp4,m4a,3gp,3g2,mj2", 0);
  std::unique_ptr<AVDictionary, DictionaryDeleter> options(raw);
  AVFormatContext* ctx = avformat_alloc_context();
  if (!ctx) return AVERROR(ENOMEM);
  ctx->protocol_whitelist = av_strdup("file");
  raw = options.release();
  int rc = avformat_open_input(&ctx, ("file:" + path).c_str(), mov, &raw);
  av_dict_free(&raw);
  if (rc < 0) return rc;  // avformat_open_input freed ctx
  out.reset(ctx);
  return avformat_find_stream_info(ctx, nullptr);
}

class FfmpegExportSession final : public ExportSession, public std::enable_shared_from_this<FfmpegExportSession> {
 public:
  FfmpegExportSession(std::string inputPath, std::shared_ptr<std::atomic<int>> running)
      : input_(std::move(inputPath)), running_(std::move(running)) {}

  void setOutputFileType(const std::string& type) override { type_ = type; }
  void setOutputURL(const Url& url) override { output_ = url.path(); }
  void setTimeRange(double start, double duration) override {
    start_ = start;
    duration_ = duration;
  }
  void setShouldOptimizeForNetworkUse(bool optimize) override { faststart_ = optimize; }
  void cancelExport() override { cancel_.store(true); }
  std::int64_t status() const override { return status_.load(); }
  std::optional<PlatformError> error() const override {
    std::lock_guard lock(mutex_);
    return error_;
  }

  void exportAsynchronously(UniqueFunction<void()> completion) override {
    status_.store(exporting);
    ++*running_;
    auto self = shared_from_this();
    std::thread([self, completion = std::move(completion)]() mutable {
      self->run();
      completion();
      --*self->running_;
    }).detach();
  }

 private:
  void fail(const std::string& description, std::int64_t code = -11800) {
    std::lock_guard lock(mutex_);
    error_ = PlatformError{kDomain, code, description};
    status_.store(failed);
  }

  void run() {
    if (type_ != fileTypeMPEG4) return fail("The requested output file type is not supported.", -11838);
    if (output_.empty()) return fail("No output location was given for the export.", -11838);
    Input in;
    if (int rc = openInput(input_, in); rc < 0)
      return fail("The movie could not be opened: it is not a readable MOV or MPEG-4 file (" + averror(rc) + ").");

    AVFormatContext* rawOut = nullptr;
    const std::string dir = output_.substr(0, output_.find_last_of('/'));
    std::mt19937_64 rng(std::random_device{}());
    const std::string temp = dir + "/.velqor-export-" + std::to_string(::getpid()) + "-" + std::to_string(rng() % 1000000000) + ".mp4";
    if (avformat_alloc_output_context2(&rawOut, nullptr, "mp4", temp.c_str()) < 0 || !rawOut)
      return fail("The MPEG-4 writer is not available.");
    Output out(rawOut);

    std::vector<int> map(in->nb_streams, -1);
    for (unsigned i = 0; i < in->nb_streams; ++i) {
      AVStream* s = in->streams[i];
      const auto type = s->codecpar->codec_type;
      if (type != AVMEDIA_TYPE_VIDEO && type != AVMEDIA_TYPE_AUDIO) continue;  // timecode, metadata tracks
      if (avformat_query_codec(out->oformat, s->codecpar->codec_id, FF_COMPLIANCE_NORMAL) != 1) {
        const char* name = avcodec_get_name(s->codecpar->codec_id);
        return fail(std::string("The movie holds a ") + (name ? name : "unknown") + " " +
                    (type == AVMEDIA_TYPE_VIDEO ? "video" : "audio") + " track, which an MPEG-4 file cannot carry.",
                    -11821);
      }
      AVStream* o = avformat_new_stream(out.get(), nullptr);
      if (!o || avcodec_parameters_copy(o->codecpar, s->codecpar) < 0) return fail("Cannot set up the MPEG-4 tracks.");
      o->codecpar->codec_tag = 0;
      o->time_base = s->time_base;
      av_dict_copy(&o->metadata, s->metadata, 0);
      map[i] = o->index;
    }
    if (out->nb_streams == 0) return fail("The movie has no audio or video to export.", -11821);

    if (avio_open(&out->pb, temp.c_str(), AVIO_FLAG_WRITE) < 0) return fail("Cannot create the output file.");
    AVDictionary* opts = nullptr;
    if (faststart_) av_dict_set(&opts, "movflags", "+faststart", 0);
    int rc = avformat_write_header(out.get(), &opts);
    av_dict_free(&opts);
    auto removeTemp = [&] {
      if (out->pb) avio_closep(&out->pb);
      ::unlink(temp.c_str());
    };
    if (rc < 0) {
      removeTemp();
      return fail("Cannot write the MPEG-4 header (" + averror(rc) + ").");
    }

    std::unique_ptr<AVPacket, PacketDeleter> pkt(av_packet_alloc());
    // A range that covers the whole movie copies every packet, the tail of an
    // audio track that runs a frame past the video included.
    const double whole = in->duration == AV_NOPTS_VALUE ? NAN : static_cast<double>(in->duration) / AV_TIME_BASE;
    const bool bounded = std::isfinite(duration_) && !(start_ <= 0 && std::isfinite(whole) && duration_ >= whole - 1e-3);
    const double end = start_ + (bounded ? duration_ : 0);
    auto lastReport = std::chrono::steady_clock::now();
    std::int64_t copied = 0;
    while (true) {
      if (cancel_.load()) {
        removeTemp();
        status_.store(cancelled);
        return;
      }
      rc = av_read_frame(in.get(), pkt.get());
      if (rc == AVERROR_EOF) break;
      if (rc < 0) {
        removeTemp();
        return fail("The movie could not be read to its end (" + averror(rc) + ").");
      }
      const int target = pkt->stream_index < static_cast<int>(map.size()) ? map[pkt->stream_index] : -1;
      if (target < 0) {
        av_packet_unref(pkt.get());
        continue;
      }
      AVStream* s = in->streams[pkt->stream_index];
      const std::int64_t ts = pkt->pts != AV_NOPTS_VALUE ? pkt->pts : pkt->dts;
      const double seconds = ts == AV_NOPTS_VALUE ? 0 : ts * av_q2d(s->time_base);
      // Packets before zero (an encoder's priming) belong to a range that starts at zero.
      if ((start_ > 0 && seconds < start_ - 1e-9) || (bounded && seconds >= end - 1e-9 && duration_ > 0)) {
        av_packet_unref(pkt.get());
        continue;
      }
      av_packet_rescale_ts(pkt.get(), s->time_base, out->streams[target]->time_base);
      pkt->stream_index = target;
      pkt->pos = -1;
      copied += pkt->size;
      rc = av_interleaved_write_frame(out.get(), pkt.get());
      if (rc < 0) {
        removeTemp();
        return fail("Cannot write the MPEG-4 file (" + averror(rc) + ").");
      }
      if (std::chrono::steady_clock::now() - lastReport > std::chrono::seconds(2)) {
        lastReport = std::chrono::steady_clock::now();
        VLog::debug("export: " + std::to_string(copied >> 20) + " MiB copied");
      }
    }
    rc = av_write_trailer(out.get());
    avio_closep(&out->pb);
    if (rc < 0) {
      ::unlink(temp.c_str());
      return fail("Cannot finish the MPEG-4 file (" + averror(rc) + ").");
    }
    if (::renameat2(AT_FDCWD, temp.c_str(), AT_FDCWD, output_.c_str(), RENAME_NOREPLACE) != 0) {
      ::unlink(temp.c_str());
      return fail("The output file could not be saved: a file already exists there or the folder is not writable.",
                  -11823);
    }
    status_.store(completed);
  }

  std::string input_;
  std::shared_ptr<std::atomic<int>> running_;
  std::string type_;
  std::string output_;
  double start_ = 0;
  double duration_ = std::nan("");
  bool faststart_ = false;
  std::atomic<bool> cancel_{false};
  std::atomic<std::int64_t> status_{unknown};
  mutable std::mutex mutex_;
  std::optional<PlatformError> error_;
};

}  // namespace

double FfmpegMediaExport::assetDuration(const Url& asset) {
  Input in;
  if (openInput(asset.path(), in) < 0 || in->duration == AV_NOPTS_VALUE || in->duration < 0) return std::nan("");
  return static_cast<double>(in->duration) / AV_TIME_BASE;
}

std::shared_ptr<ExportSession> FfmpegMediaExport::makeSession(const Url& asset, const std::string& preset) {
  if (preset != ExportSession::presetPassthrough) return nullptr;
  return std::make_shared<FfmpegExportSession>(asset.path(), running_);
}

}  // namespace velqor
