#pragma once

extern "C" {
#include <libavutil/display.h>
#include <libavutil/hash.h>
}

#include <cmath>
#include <map>
#include <numeric>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "media/AvHandles.h"

namespace velqor::testing {

// A time as an exact reduced fraction of a second, so times written in
// different time bases compare equal when they are the same instant.
struct ExactTime {
  std::int64_t num = 0, den = 0;  // den 0: no time
  static ExactTime of(std::int64_t ts, AVRational base) {
    if (ts == AV_NOPTS_VALUE) return {};
    const std::int64_t num = ts * base.num, den = base.den;
    const std::int64_t g = std::gcd(num, den);
    return {num / g, den / g};
  }
  friend bool operator==(const ExactTime&, const ExactTime&) = default;
};

struct ProbedPacket {
  ExactTime pts, dts, duration;
  bool key = false, discard = false;
  std::string sha256;
  friend bool operator==(const ProbedPacket&, const ProbedPacket&) = default;
};
inline void PrintTo(const ProbedPacket& p, std::ostream* os) {
  *os << "{pts " << p.pts.num << "/" << p.pts.den << " dts " << p.dts.num << "/" << p.dts.den << " dur "
      << p.duration.num << "/" << p.duration.den << (p.key ? " key" : "") << (p.discard ? " discard" : "") << " "
      << p.sha256.substr(0, 12) << "}";
}

struct ProbedTrack {
  std::string type, codec, tag, language, handler;
  int rotation = 0;  // clockwise degrees a player turns the picture, 0 to 359
  std::vector<ProbedPacket> packets;
};

struct ProbedChapter {
  ExactTime start;
  std::string title;
  friend bool operator==(const ProbedChapter&, const ProbedChapter&) = default;
};
inline void PrintTo(const ProbedChapter& c, std::ostream* os) {
  *os << "{" << c.start.num << "/" << c.start.den << " " << c.title << "}";
}

// A movie read back with FFmpeg as a player reads it: its global metadata and
// chapters, and per track the coding, sample entry tag, display rotation,
// language, handler name and every packet's timestamps and content hash.
struct ProbedMovie {
  std::map<std::string, std::string> metadata;
  std::vector<ProbedTrack> tracks;
  std::vector<ProbedChapter> chapters;

  std::string value(const std::string& key) const {
    auto it = metadata.find(key);
    return it == metadata.end() ? std::string() : it->second;
  }
  const ProbedTrack* first(const std::string& type) const {
    for (const auto& t : tracks)
      if (t.type == type) return &t;
    return nullptr;
  }

  static std::optional<ProbedMovie> read(const std::string& path) {
    AVFormatContext* raw = nullptr;
    if (avformat_open_input(&raw, path.c_str(), nullptr, nullptr) < 0) return std::nullopt;
    AvInput in(raw);
    if (avformat_find_stream_info(raw, nullptr) < 0) return std::nullopt;
    ProbedMovie movie;
    movie.metadata = entries(in->metadata);
    for (unsigned i = 0; i < in->nb_chapters; ++i) {
      const AVChapter& c = *in->chapters[i];
      const AVDictionaryEntry* title = av_dict_get(c.metadata, "title", nullptr, 0);
      movie.chapters.push_back({ExactTime::of(c.start, c.time_base), title ? title->value : ""});
    }
    for (unsigned i = 0; i < in->nb_streams; ++i) movie.tracks.push_back(track(*in->streams[i]));
    AvPacket pkt(av_packet_alloc());
    while (av_read_frame(raw, pkt.get()) >= 0) {
      const AVRational base = in->streams[pkt->stream_index]->time_base;
      movie.tracks[pkt->stream_index].packets.push_back(
          {ExactTime::of(pkt->pts, base), ExactTime::of(pkt->dts, base), ExactTime::of(pkt->duration, base),
           (pkt->flags & AV_PKT_FLAG_KEY) != 0, (pkt->flags & AV_PKT_FLAG_DISCARD) != 0, sha256(*pkt)});
      av_packet_unref(pkt.get());
    }
    return movie;
  }

 private:
  static std::map<std::string, std::string> entries(const AVDictionary* d) {
    std::map<std::string, std::string> out;
    const AVDictionaryEntry* e = nullptr;
    while ((e = av_dict_get(d, "", e, AV_DICT_IGNORE_SUFFIX))) out[e->key] = e->value;
    return out;
  }

  static ProbedTrack track(const AVStream& s) {
    ProbedTrack t;
    const char* type = av_get_media_type_string(s.codecpar->codec_type);
    t.type = type ? type : "unknown";
    t.codec = avcodec_get_name(s.codecpar->codec_id);
    char tag[AV_FOURCC_MAX_STRING_SIZE] = {};
    t.tag = av_fourcc_make_string(tag, s.codecpar->codec_tag);
    auto names = entries(s.metadata);
    t.language = names["language"];
    t.handler = names["handler_name"];
    size_t size = 0;
    if (auto* m = av_stream_get_side_data(&s, AV_PKT_DATA_DISPLAYMATRIX, &size); m && size >= 36) {
      // FFmpeg counts counterclockwise; players and phones speak of the clockwise turn.
      const double ccw = av_display_rotation_get(reinterpret_cast<const int32_t*>(m));
      t.rotation = ((static_cast<int>(std::lround(-ccw)) % 360) + 360) % 360;
    }
    return t;
  }

  static std::string sha256(const AVPacket& pkt) {
    AVHashContext* ctx = nullptr;
    if (av_hash_alloc(&ctx, "SHA256") < 0) return {};
    av_hash_init(ctx);
    av_hash_update(ctx, pkt.data, pkt.size);
    char hex[2 * AV_HASH_MAX_SIZE + 1] = {};
    av_hash_final_hex(ctx, reinterpret_cast<std::uint8_t*>(hex), sizeof hex);
    av_hash_freep(&ctx);
    return hex;
  }
};

}  // namespace velqor::testing
