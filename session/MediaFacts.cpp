#include "session/MediaFacts.h"

#include <cstdio>
#include <filesystem>
#include <memory>

#include "host/FileBytes.h"
#include "host/ValueJson.h"
#include "imaging/metadata/ImageMetadata.h"
#include "imaging/codecs/JpegCodec.h"
#include "imaging/codecs/LinuxImageCodec.h"
#include "platform/linux/MediaModule.h"
#include "results/ImageGeometry.h"
#include "session/HtmlText.h"
#include "session/MovieStill.h"

namespace velqor {
namespace fs = std::filesystem;

namespace {

constexpr std::uint64_t kMaxReadBytes = std::uint64_t{256} << 20;

std::string formatOfImage(const Bytes& b) {
  if (b.size() > 3 && b[0] == 0xFF && b[1] == 0xD8) return "JPEG";
  if (b.size() > 8 && b[0] == 0x89 && b[1] == 'P' && b[2] == 'N' && b[3] == 'G') return "PNG";
  if (b.size() > 12 && b[4] == 'f' && b[5] == 't' && b[6] == 'y' && b[7] == 'p') return "HEIF";
  return "image";
}

// Movie facts through the media module; false when it reads no movie there.
bool readMovie(const std::string& path, MediaFacts& facts) {
  auto stack = MediaModule::stack();
  if (!stack.ok()) return false;
  auto movie = (*stack)->movieSummary(path);
  if (!movie) return false;
  facts.width = movie->width;
  facts.height = movie->height;
  facts.seconds = movie->seconds;
  facts.tracks = movie->tracks;
  facts.format = movie->format;
  return true;
}

// The entries a reader of the report looks for, not the whole dictionary.
nlohmann::ordered_json tellingMetadata(const Dictionary& d) {
  nlohmann::ordered_json out = nlohmann::ordered_json::object();
  const auto pick = [&](const char* group, std::initializer_list<const char*> keys) {
    const Value* g = find(d, group);
    if (!g || !g->asDictionary()) return;
    for (const char* k : keys)
      if (const Value* v = find(*g->asDictionary(), k)) out[k] = valueToJson(*v);
  };
  pick("{TIFF}", {"Make", "Model"});
  pick("{Exif}", {"DateTimeOriginal", "OffsetTimeOriginal", "ExposureTime", "FNumber", "ISOSpeedRatings", "LensModel"});
  pick("{GPS}", {"Latitude", "LatitudeRef", "Longitude", "LongitudeRef", "Altitude"});
  return out;
}

}  // namespace

MediaFacts MediaFacts::of(const std::string& path) {
  MediaFacts facts;
  std::error_code ec;
  if (!fs::is_regular_file(path, ec)) return facts;
  facts.bytes = fs::file_size(path, ec);
  facts.kind = Kind::other;
  const std::string ext = fs::path(path).extension().string();
  if (ext == ".mov" || ext == ".mp4" || ext == ".m4v" || ext == ".MOV" || ext == ".MP4") {
    if (readMovie(path, facts)) facts.kind = Kind::movie;
    return facts;
  }
  auto bytes = FileBytes::read(path, kMaxReadBytes);
  if (!bytes.ok()) return facts;
  auto properties = ImageMetadata::read(*bytes);
  if (!properties.ok()) return facts;
  facts.kind = Kind::image;
  facts.format = formatOfImage(*bytes);
  if (const Value* w = find(*properties, "PixelWidth")) facts.width = static_cast<int>(w->asInteger().value_or(0));
  if (const Value* h = find(*properties, "PixelHeight")) facts.height = static_cast<int>(h->asInteger().value_or(0));
  if (const Value* o = find(*properties, "Orientation"))
    if (auto n = o->asInteger()) facts.orientation = static_cast<int>(*n);
  facts.metadata = tellingMetadata(*properties);
  return facts;
}

std::string MediaFacts::orientationInWords(int orientation) {
  switch (orientation) {
    case 1: return "up";
    case 2: return "mirrored";
    case 3: return "upside down";
    case 4: return "mirrored upside down";
    case 5: return "mirrored, turn 90° clockwise to view";
    case 6: return "turn 90° clockwise to view";
    case 7: return "mirrored, turn 90° counter-clockwise to view";
    case 8: return "turn 90° counter-clockwise to view";
    default: return "not a valid orientation";
  }
}

std::string MediaFacts::describe() const {
  const std::string size = width > 0 ? std::to_string(width) + " × " + std::to_string(height) + " " : "";
  switch (kind) {
    case Kind::missing: return "missing";
    case Kind::other: return "not an image or movie the report can read, " + HtmlText::byteSize(bytes);
    case Kind::image: {
      std::string out = size + format;
      if (orientation) out += ", orientation " + std::to_string(*orientation) + " (" + orientationInWords(*orientation) + ")";
      return out + ", " + HtmlText::byteSize(bytes);
    }
    case Kind::movie: {
      char seconds[32];
      std::snprintf(seconds, sizeof seconds, "%.1f s", this->seconds);
      return size + format + " movie, " + seconds + " (" + tracks + "), " + HtmlText::byteSize(bytes);
    }
  }
  return {};
}

bool MediaFacts::writeThumbnail(const std::string& path, const std::string& thumbnail, int side) {
  if (of(path).kind == Kind::movie) {
    auto still = MovieStill::firstFrame(path, side);
    if (!still) return false;
    auto jpeg = JpegCodec::encode(*still, 0.8);
    return jpeg.ok() && FileBytes::writeAtomically(thumbnail, *jpeg).ok();
  }
  LinuxImageCodec codec;
  auto bytes = FileBytes::read(path, kMaxReadBytes);
  if (!bytes.ok()) return false;
  auto image = codec.imageWithData(std::make_shared<const Bytes>(std::move(*bytes)));
  if (!image) return false;
  // Drawn upright (the scaling applies the EXIF orientation), as a viewer shows it.
  auto small = ImageGeometry::imageByScalingNotCroppingForSize(*image, {static_cast<double>(side), static_cast<double>(side)});
  if (!small) return false;
  auto jpeg = codec.jpegRepresentation(*small, 0.8);
  return jpeg && FileBytes::writeAtomically(thumbnail, *jpeg).ok();
}

}  // namespace velqor
