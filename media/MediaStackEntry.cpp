#include "media/FfmpegMediaExport.h"
#include "media/LibheifCodec.h"
#include "media/MovieFrames.h"
#include "media/MovieMaker.h"
#include "media/MovieProbe.h"
#include "platform/linux/MediaStack.h"

namespace velqor {
namespace {

// The media module's one object: each operation is the FFmpeg or libheif
// class that does it.
class FfmpegHeifStack final : public MediaStack {
 public:
  std::shared_ptr<MediaExport> makeExport() override { return std::make_shared<FfmpegMediaExport>(); }
  StatusOr<std::shared_ptr<const ImageSource>> heifSource(std::shared_ptr<const Bytes> bytes,
                                                          const DecodeLimits& limits) override {
    return LibheifCodec::source(std::move(bytes), limits);
  }
  StatusOr<Bytes> heifEncode(const Bitmap& bitmap, int quality) override { return LibheifCodec::encode(bitmap, quality); }
  Status makeMovie(const std::string& path, const MovieSpec& shape) override { return MovieMaker::make(path, shape); }
  std::optional<Bitmap> firstFrame(const std::string& path, int side) override {
    return MovieFrames::firstFrame(path, side);
  }
  std::optional<MovieSummary> movieSummary(const std::string& path) override { return MovieProbe::read(path); }
};

}  // namespace
}  // namespace velqor

extern "C" __attribute__((visibility("default"))) velqor::MediaStack* velqor_media_stack() {
  static velqor::FfmpegHeifStack stack;
  return &stack;
}
