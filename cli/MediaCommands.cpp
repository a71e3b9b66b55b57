
#include <nlohmann/json.hpp>

#include "cli/Cli.h"
#include "host/FileBytes.h"
#include "host/ValueJson.h"
#include "imaging/metadata/ImageMetadata.h"
#include "imaging/codecs/LinuxImageCodec.h"
#include "imaging/codecs/PngCodec.h"
#include "platform/linux/SampleImages.h"
#include "platform/linux/SampleMovies.h"

namespace velqor::cli {

void registerMediaCommands(CLI::App& app, Registration& chosen) {
  static std::string metadataPath;
  auto* metadata = app.add_subcommand("metadata", "Print a file's image metadata as JSON");
  metadata->add_option("FILE", metadataPath, "The image file")->required();
  metadata->callback([&chosen] {
    chosen.run = [] {
      requireReadableFile("FILE", metadataPath);
      auto bytes = FileBytes::read(metadataPath, 512u << 20);
      if (!bytes.ok()) throw UsageError{metadataPath + ": " + bytes.status().message()};
      // Only images carry the metadata this prints; a movie or any other file is refused, not shown as {}.
      if (Status why = LinuxImageCodec().probe(*bytes); !why.ok()) throw UsageError{metadataPath + ": " + why.message()};
      auto dict = ImageMetadata::read(*bytes);
      if (!dict.ok()) throw UsageError{metadataPath + ": " + dict.status().message()};
      Console::result(dictionaryToJson(*dict).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace));
      return kExitOk;
    };
  });

  static std::string kind, out;
  static int width = 4032, height = 3024, orientation = 6, quality = 93;
  auto* sample = app.add_subcommand("sample", "Make a sample input with the project's own code");
  static double seconds = 2;
  static bool noise = false;
  sample->add_option("KIND", kind, "camera-jpeg (a photo with camera EXIF), png, or movie (H.264/AAC in MOV)")
      ->required()
      ->check(CLI::IsMember({"camera-jpeg", "png", "movie"}));
  sample->add_option("--seconds", seconds, "Movie length (default 2)");
  sample->add_flag("--noise", noise, "Movie of noise at the finest quantizer: large, quick to make");
  sample->add_option("--width", width, "Stored width (default 4032)");
  sample->add_option("--height", height, "Stored height (default 3024)");
  sample->add_option("--orientation", orientation, "EXIF orientation tag (default 6)");
  sample->add_option("--quality", quality, "JPEG quality (default 93)");
  sample->add_option("-o,--output", out, "Where to write it")->required();
  static MovieSpec recording;
  sample->add_option("--rotation", recording.rotation, "Movie: clockwise turn of its display matrix (0, 90, 180, 270)")
      ->check(CLI::IsMember({0, 90, 180, 270}));
  sample->add_option("--creation-time", recording.creationTime, "Movie: when it was recorded, 2024-03-05T14:07:31.000000Z");
  sample->add_option("--location", recording.location, "Movie: where it was recorded, ISO 6709 (+48.8584+002.2945+035.000/)");
  sample->add_option("--video-codec", recording.videoCodec, "Movie: h264 or hevc (hvc1)")->check(CLI::IsMember({"h264", "hevc"}));
  sample->callback([&chosen, sample] {
    if (kind != "movie")
      for (const char* movieOnly : {"--seconds", "--noise"})
        if (sample->count(movieOnly)) throw UsageError{std::string(movieOnly) + " is for KIND movie only"};
    if (kind != "camera-jpeg")
      for (const char* jpegOnly : {"--orientation", "--quality"})
        if (sample->count(jpegOnly)) throw UsageError{std::string(jpegOnly) + " is for KIND camera-jpeg only"};
    chosen.run = [sample] {
      // A camera JPEG is written row by row; the others are made whole.
      const long long limit = kind == "camera-jpeg" ? 1'000'000'000 : 100'000'000;
      if (width <= 0 || height <= 0 || static_cast<long long>(width) * height > limit)
        throw UsageError{"--width and --height must be positive and at most " + std::to_string(limit / 1'000'000) +
                         " megapixels together"};
      if (kind == "movie") {
        MovieSpec shape = recording;
        shape.seconds = seconds;
        shape.noise = noise;
        if (sample->count("--width")) shape.width = width;
        if (sample->count("--height")) shape.height = height;
        if (Status s = SampleMovies::make(out, shape); !s.ok()) {
          Console::error(s.message());
          return kExitFailure;
        }
        Console::result(out);
        return kExitOk;
      }
      StatusOr<Bytes> bytes = kind == "png" ? PngCodec::encode(SampleImages::scene(width, height))
                                            : SampleImages::cameraJpeg(width, height, orientation, quality);
      if (!bytes.ok()) {
        Console::error(bytes.status().message());
        return kExitFailure;
      }
      if (Status s = FileBytes::writeAtomically(out, *bytes); !s.ok()) {
        Console::error(out + ": " + s.message());
        return kExitFailure;
      }
      Console::result(out);
      return kExitOk;
    };
  });
}

}  // namespace velqor::cli
