#include "media/MovieMetadata.h"

#include <array>
#include <string>
#include <string_view>

namespace velqor {
namespace {

// Written anew by the MPEG-4 writer for the file it makes.
constexpr std::array<std::string_view, 4> kContainerKeys{"major_brand", "minor_version", "compatible_brands", "encoder"};

bool describesContainer(std::string_view key) {
  for (auto k : kContainerKeys)
    if (k == key) return true;
  return false;
}

// "location-eng" beside "location": the reader's copy of a user-data item
// under its language, which the writer would store as a second key.
bool languageCopy(const AVDictionary* d, std::string_view key) {
  if (key.size() < 5 || key[key.size() - 4] != '-') return false;
  for (char c : key.substr(key.size() - 3))
    if (c < 'a' || c > 'z') return false;
  return av_dict_get(d, std::string(key.substr(0, key.size() - 4)).c_str(), nullptr, 0) != nullptr;
}

Status copyKeys(const AVDictionary* from, AVDictionary** to) {
  const AVDictionaryEntry* e = nullptr;
  while ((e = av_dict_get(from, "", e, AV_DICT_IGNORE_SUFFIX))) {
    if (describesContainer(e->key) || languageCopy(from, e->key)) continue;
    if (av_dict_set(to, e->key, e->value, 0) < 0) return Status::resourceExhausted("Not enough memory for the movie's metadata.");
  }
  return Status::okStatus();
}

// The place under both names, so readers of either form find it.
Status bothLocationForms(AVDictionary** metadata) {
  const AVDictionaryEntry* quickTime = av_dict_get(*metadata, MovieMetadata::kQuickTimeLocation, nullptr, 0);
  const AVDictionaryEntry* userData = av_dict_get(*metadata, MovieMetadata::kUserDataLocation, nullptr, 0);
  int rc = 0;
  if (quickTime && !userData) rc = av_dict_set(metadata, MovieMetadata::kUserDataLocation, quickTime->value, 0);
  if (userData && !quickTime) rc = av_dict_set(metadata, MovieMetadata::kQuickTimeLocation, userData->value, 0);
  return rc < 0 ? Status::resourceExhausted("Not enough memory for the movie's location.") : Status::okStatus();
}

Status copyChapters(const AVFormatContext& in, AVFormatContext& out) {
  if (in.nb_chapters == 0) return Status::okStatus();
  // The writer's context owns the array and every chapter; avformat_free_context frees them.
  out.chapters = static_cast<AVChapter**>(av_calloc(in.nb_chapters, sizeof(AVChapter*)));
  if (!out.chapters) return Status::resourceExhausted("Not enough memory for the movie's chapters.");
  for (unsigned i = 0; i < in.nb_chapters; ++i) {
    const AVChapter& from = *in.chapters[i];
    auto* to = static_cast<AVChapter*>(av_mallocz(sizeof(AVChapter)));
    if (!to) return Status::resourceExhausted("Not enough memory for the movie's chapters.");
    out.chapters[out.nb_chapters++] = to;
    to->id = from.id;
    to->time_base = from.time_base;
    to->start = from.start;
    to->end = from.end;
    if (av_dict_copy(&to->metadata, from.metadata, 0) < 0) return Status::resourceExhausted("Not enough memory for the movie's chapters.");
  }
  return Status::okStatus();
}

}  // namespace

Status MovieMetadata::carry(const AVFormatContext& in, AVFormatContext& out) {
  RETURN_IF_ERROR(copyKeys(in.metadata, &out.metadata));
  RETURN_IF_ERROR(bothLocationForms(&out.metadata));
  return copyChapters(in, out);
}

}  // namespace velqor
