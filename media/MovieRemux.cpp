#include "media/MovieRemux.h"

extern "C" {
#include <libavutil/log.h>
}

#include <fcntl.h>
#include <stdio.h>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <mutex>
#include <random>

#include "host/VLog.h"
#include "media/MovieMetadata.h"
#include "media/MovieTracks.h"

namespace velqor {
namespace {

std::string averror(int code) {
  char buf[AV_ERROR_MAX_STRING_SIZE] = {};
  av_strerror(code, buf, sizeof buf);
  return buf;
}

void quietLibraries() {
  static std::once_flag once;
  std::call_once(once, [] { av_log_set_level(AV_LOG_FATAL); });
}

}  // namespace

int MovieRemux::openInput(const std::string& path, AvInput& out) {
  quietLibraries();
  const AVInputFormat* mov = av_find_input_format("mov");
  AVDictionary* raw = nullptr;
  av_dict_set(&raw, "protocol_whitelist", "file", 0);
  av_dict_set(&raw, "format_whitelist", "mov,mp4,m4a,3gp,3g2,mj2", 0);
  AvDictionary options(raw);
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


MovieRemux::MovieRemux(std::string input, std::string output, double start, double duration, bool faststart,
                       const std::atomic<bool>& cancel)
    : inputPath_(std::move(input)), outputPath_(std::move(output)), start_(start), duration_(duration),
      faststart_(faststart), cancel_(cancel) {}

MovieRemux::~MovieRemux() {
  if (out_ && out_->pb) avio_closep(&out_->pb);
  if (!tempPath_.empty()) ::unlink(tempPath_.c_str());
}

Status MovieRemux::run() {
  RETURN_IF_ERROR(open());
  ASSIGN_OR_RETURN(map_, MovieTracks::carry(*in_, *out_));
  RETURN_IF_ERROR(MovieMetadata::carry(*in_, *out_));
  RETURN_IF_ERROR(writeHeader());
  RETURN_IF_ERROR(copyPackets());
  return finish();
}

Status MovieRemux::open() {
  if (int rc = openInput(inputPath_, in_); rc < 0)
    return Status::dataLoss("The movie could not be opened: it is not a readable MOV or MPEG-4 file (" + averror(rc) + ").");
  const std::string dir = outputPath_.substr(0, outputPath_.find_last_of('/'));
  std::mt19937_64 rng(std::random_device{}());
  tempPath_ = dir + "/.velqor-export-" + std::to_string(::getpid()) + "-" + std::to_string(rng() % 1000000000) + ".mp4";
  AVFormatContext* rawOut = nullptr;
  if (avformat_alloc_output_context2(&rawOut, nullptr, "mp4", tempPath_.c_str()) < 0 || !rawOut)
    return Status::internal("The MPEG-4 writer is not available.");
  out_.reset(rawOut);
  return Status::okStatus();
}

Status MovieRemux::writeHeader() {
  if (avio_open(&out_->pb, tempPath_.c_str(), AVIO_FLAG_WRITE) < 0) return Status::internal("Cannot create the output file.");
  AVDictionary* raw = nullptr;
  av_dict_set(&raw, "movflags", MovieMetadata::kWriterFlags, AV_DICT_APPEND);
  if (faststart_) av_dict_set(&raw, "movflags", "+faststart", AV_DICT_APPEND);
  int rc = avformat_write_header(out_.get(), &raw);
  av_dict_free(&raw);
  if (rc < 0) return Status::internal("Cannot write the MPEG-4 header (" + averror(rc) + ").");
  return Status::okStatus();
}

// A range that covers the whole movie copies every packet, the tail of an
// audio track that runs a frame past the video included.
bool MovieRemux::bounded() const {
  const double whole = in_->duration == AV_NOPTS_VALUE ? NAN : static_cast<double>(in_->duration) / AV_TIME_BASE;
  return std::isfinite(duration_) && !(start_ <= 0 && std::isfinite(whole) && duration_ >= whole - 1e-3);
}

bool MovieRemux::inRange(const AVPacket& pkt, bool isBounded) const {
  const std::int64_t ts = pkt.pts != AV_NOPTS_VALUE ? pkt.pts : pkt.dts;
  const double seconds = ts == AV_NOPTS_VALUE ? 0 : ts * av_q2d(in_->streams[pkt.stream_index]->time_base);
  // Packets before zero (an encoder's priming) belong to a range that starts at zero.
  if (start_ > 0 && seconds < start_ - 1e-9) return false;
  return !(isBounded && duration_ > 0 && seconds >= start_ + duration_ - 1e-9);
}

Status MovieRemux::copyPackets() {
  AvPacket pkt(av_packet_alloc());
  const bool isBounded = bounded();
  auto lastReport = std::chrono::steady_clock::now();
  std::int64_t copied = 0;
  while (true) {
    if (cancel_.load()) return Status::cancelled("Export cancelled");
    int rc = av_read_frame(in_.get(), pkt.get());
    if (rc == AVERROR_EOF) return Status::okStatus();
    if (rc < 0) return Status::dataLoss("The movie could not be read to its end (" + averror(rc) + ").");
    const int target = pkt->stream_index < static_cast<int>(map_.size()) ? map_[pkt->stream_index] : -1;
    if (target < 0 || !inRange(*pkt, isBounded)) {
      av_packet_unref(pkt.get());
      continue;
    }
    av_packet_rescale_ts(pkt.get(), in_->streams[pkt->stream_index]->time_base, out_->streams[target]->time_base);
    pkt->stream_index = target;
    pkt->pos = -1;
    copied += pkt->size;
    if ((rc = av_interleaved_write_frame(out_.get(), pkt.get())) < 0)
      return Status::internal("Cannot write the MPEG-4 file (" + averror(rc) + ").");
    if (std::chrono::steady_clock::now() - lastReport > std::chrono::seconds(2)) {
      lastReport = std::chrono::steady_clock::now();
      VLog::debug("export: " + std::to_string(copied >> 20) + " MiB copied");
    }
  }
}

Status MovieRemux::finish() {
  const int rc = av_write_trailer(out_.get());
  avio_closep(&out_->pb);
  if (rc < 0) return Status::internal("Cannot finish the MPEG-4 file (" + averror(rc) + ").");
  if (::renameat2(AT_FDCWD, tempPath_.c_str(), AT_FDCWD, outputPath_.c_str(), RENAME_NOREPLACE) != 0)
    return Status::alreadyExists("The output file could not be saved: a file already exists there or the folder is not writable.");
  tempPath_.clear();  // in place: nothing to remove
  return Status::okStatus();
}

}  // namespace velqor
