#include "media/MovieTracks.h"

#include <cstring>

namespace velqor {
namespace {

std::string fourcc(std::uint32_t tag) {
  char text[AV_FOURCC_MAX_STRING_SIZE] = {};
  av_fourcc_make_string(text, tag);
  return text;
}

bool isChapterTrack(const AVStream& s) {
  // The demuxer turns a QuickTime chapter track into the movie's chapters and
  // leaves the track itself discarded.
  return s.discard == AVDISCARD_ALL && s.codecpar->codec_type != AVMEDIA_TYPE_VIDEO &&
         s.codecpar->codec_type != AVMEDIA_TYPE_AUDIO;
}

bool writable(const AVOutputFormat& format, const AVCodecParameters& par) {
  const auto type = par.codec_type;
  if (type != AVMEDIA_TYPE_VIDEO && type != AVMEDIA_TYPE_AUDIO && type != AVMEDIA_TYPE_SUBTITLE &&
      type != AVMEDIA_TYPE_DATA)
    return false;
  return par.codec_id != AV_CODEC_ID_NONE && avformat_query_codec(&format, par.codec_id, FF_COMPLIANCE_NORMAL) == 1;
}

// The input's sample entry tag when the writer knows it for the same coding
// ("hvc1" and "hev1" are both HEVC in MPEG-4); otherwise the writer picks.
std::uint32_t keptTag(const AVOutputFormat& format, const AVCodecParameters& par) {
  if (par.codec_tag == 0 || !format.codec_tag) return 0;
  return av_codec_get_id(format.codec_tag, par.codec_tag) == par.codec_id ? par.codec_tag : 0;
}

Status copySideData(const AVStream& from, AVStream& to) {
  for (int k = 0; k < from.nb_side_data; ++k) {
    const AVPacketSideData& sd = from.side_data[k];
    std::uint8_t* copy = av_stream_new_side_data(&to, sd.type, sd.size);
    if (!copy) return Status::resourceExhausted("Not enough memory to copy a track's side data.");
    std::memcpy(copy, sd.data, sd.size);
  }
  return Status::okStatus();
}

Status addTrack(const AVStream& s, AVFormatContext& out) {
  AVStream* o = avformat_new_stream(&out, nullptr);
  if (!o || avcodec_parameters_copy(o->codecpar, s.codecpar) < 0) return Status::internal("Cannot set up the MPEG-4 tracks.");
  o->codecpar->codec_tag = keptTag(*out.oformat, *s.codecpar);
  o->time_base = s.time_base;
  o->avg_frame_rate = s.avg_frame_rate;
  o->r_frame_rate = s.r_frame_rate;
  o->sample_aspect_ratio = s.sample_aspect_ratio;
  o->disposition = s.disposition;
  // Language and handler name travel in the track's metadata.
  if (av_dict_copy(&o->metadata, s.metadata, 0) < 0) return Status::resourceExhausted("Not enough memory for the track names.");
  return copySideData(s, *o);
}

}  // namespace

std::string MovieTracks::describe(const AVStream& s) {
  const AVCodecParameters& par = *s.codecpar;
  const std::string tag = fourcc(par.codec_tag);
  if (par.codec_type == AVMEDIA_TYPE_DATA) {
    if (par.codec_tag == MKTAG('t', 'm', 'c', 'd')) return "a timecode track (tmcd)";
    if (par.codec_tag == MKTAG('m', 'e', 'b', 'x')) return "a timed metadata track (mebx)";
    return "a data track (" + (par.codec_id != AV_CODEC_ID_NONE ? std::string(avcodec_get_name(par.codec_id)) : tag) + ")";
  }
  const char* kind = av_get_media_type_string(par.codec_type);
  const std::string coding = par.codec_id != AV_CODEC_ID_NONE ? avcodec_get_name(par.codec_id) : "'" + tag + "'";
  return "a " + coding + " " + (kind ? kind : "unknown") + " track";
}

StatusOr<std::vector<int>> MovieTracks::carry(const AVFormatContext& in, AVFormatContext& out) {
  std::vector<int> map(in.nb_streams, -1);
  for (unsigned i = 0; i < in.nb_streams; ++i) {
    const AVStream& s = *in.streams[i];
    if (isChapterTrack(s)) continue;
    if (!writable(*out.oformat, *s.codecpar))
      return Status::invalidArgument("The movie holds " + describe(s) + ", which an MPEG-4 file cannot carry.");
    RETURN_IF_ERROR(addTrack(s, out));
    map[i] = static_cast<int>(out.nb_streams) - 1;
  }
  bool media = false;
  for (unsigned i = 0; i < out.nb_streams; ++i) {
    const auto type = out.streams[i]->codecpar->codec_type;
    media = media || type == AVMEDIA_TYPE_VIDEO || type == AVMEDIA_TYPE_AUDIO;
  }
  if (!media) return Status::invalidArgument("The movie has no audio or video to export.");
  return map;
}

}  // namespace velqor
