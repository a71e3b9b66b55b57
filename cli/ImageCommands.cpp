#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>

#include <nlohmann/json.hpp>

#include "cli/Cli.h"
#include "host/FileBytes.h"
#include "host/UniqueFd.h"
#include "imaging/metadata/IccProfileBuilder.h"
#include "imaging/codecs/JpegCodec.h"
#include "imaging/codecs/LinuxImageCodec.h"
#include "imaging/codecs/PngCodec.h"
#include "results/ImageGeometry.h"

namespace velqor::cli {
namespace {

// The bytes of the image file at `path`, or a usage error saying why not.
std::shared_ptr<const Bytes> readImageFile(const std::string& path) {
  requireReadableFile("FILE", path);
  auto bytes = FileBytes::read(path, 512u << 20);
  if (!bytes.ok()) throw UsageError{path + ": " + bytes.status().message()};
  return std::make_shared<const Bytes>(std::move(*bytes));
}

// The image at `path`, its pixels checked to decode first.
std::shared_ptr<PlatformImage> openImage(LinuxImageCodec& codec, const std::string& path) {
  auto shared = readImageFile(path);
  if (Status why = codec.probe(*shared); !why.ok()) throw UsageError{path + ": " + why.message()};
  return codec.imageWithData(shared);
}

// Why an image that opened could not be encoded: its pixels do not decode
// (an input error, in the same words as image-info's), or the limits.
int explainFailure(LinuxImageCodec& codec, const std::string& path, const Bytes& bytes, const PlatformImage& image) {
  if (Status why = codec.probe(bytes); !why.ok()) throw UsageError{path + ": " + why.message()};
  Status why = image.checkDecode();
  Console::error("cannot encode the image" + (why.ok() ? std::string() : ": " + why.message()));
  return kExitFailure;
}

double millisSince(std::chrono::steady_clock::time_point t) {
  return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - t).count();
}

int reportFit(const std::string& out, const PlatformImage& image, size_t bytes, std::chrono::steady_clock::time_point start) {
  nlohmann::ordered_json j;
  j["output"] = out;
  j["size"] = {image.storedWidth(), image.storedHeight()};
  j["bytes"] = bytes;
  j["milliseconds"] = millisSince(start);
  Console::result(j.dump());
  return kExitOk;
}

// The file `write` makes, streamed into a new file beside `out` and renamed
// over it when whole; `write`'s error when it takes no streamed road.
StatusOr<size_t> writeStreamed(const std::string& out, UniqueFunction<Status(ByteSink)> write) {
  std::string partial = out + ".partial-XXXXXX";
  UniqueFd fd(::mkstemp(partial.data()));
  if (!fd.valid()) return Status::unavailable(std::string("cannot create a file beside it: ") + std::strerror(errno));
  size_t total = 0;
  Status written = write([&](const std::uint8_t* data, size_t size) {
    for (size_t done = 0; done < size;) {
      const ssize_t n = ::write(fd.get(), data + done, size - done);
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0) return false;
      done += static_cast<size_t>(n);
    }
    total += size;
    return true;
  });
  if (written.ok() && ::fchmod(fd.get(), 0644) != 0) written = Status::unavailable("cannot set the file's mode");
  if (written.ok() && ::fsync(fd.get()) != 0) written = Status::unavailable("cannot flush the file");
  fd.reset();
  if (written.ok() && ::rename(partial.c_str(), out.c_str()) != 0)
    written = Status::unavailable(std::string("cannot rename into place: ") + std::strerror(errno));
  if (!written.ok()) {
    ::unlink(partial.c_str());
    return written;
  }
  return total;
}

}  // namespace

void registerImageCommands(CLI::App& app, Registration& chosen) {
  static std::string infoPath;
  auto* info = app.add_subcommand("image-info", "Print an image's size, stored size, orientation and type");
  info->add_option("FILE", infoPath, "The image file")->required();
  info->callback([&chosen] {
    chosen.run = [] {
      LinuxImageCodec codec;
      auto image = openImage(codec, infoPath);
      if (!image) throw UsageError{infoPath + ": not an image this tool decodes"};
      nlohmann::ordered_json j;
      j["size"] = {image->size().width, image->size().height};
      j["storedSize"] = {image->storedWidth(), image->storedHeight()};
      // Two numberings exist for the same turn (EXIF's 1-8, the platform's
      // 0-7), so neither is printed bare: the EXIF tag, and the platform's by name.
      static constexpr const char* kOrientationNames[] = {"up", "down", "left", "right",
                                                          "upMirrored", "downMirrored", "leftMirrored", "rightMirrored"};
      const int orientation = image->imageOrientation();
      j["exifOrientation"] = ImageOrientation::toExif(orientation);
      j["imageOrientation"] =
          orientation >= 0 && orientation < 8 ? kOrientationNames[orientation] : std::to_string(orientation);
      j["type"] = image->sourceTypeName();
      if (const auto& icc = image->iccProfile())
        j["iccProfile"] = {{"description", IccProfileBuilder::description(*icc)}, {"bytes", icc->size()}};
      else
        j["iccProfile"] = nullptr;
      Console::result(j.dump());
      return kExitOk;
    };
  });

  static std::string fitPath, fitOut;
  static double fitWidth = 0, fitHeight = 0;
  static bool fitCorrect = false, fitPng = false, fitWhole = false;
  static int fitQuality = 50;
  auto* fit = app.add_subcommand("image-fit", "Correct, fit and encode one image, as a capture would");
  fit->add_option("FILE", fitPath, "The image file")->required();
  fit->add_option("--width", fitWidth, "Target width")->required();
  fit->add_option("--height", fitHeight, "Target height")->required();
  fit->add_flag("--correct-orientation", fitCorrect, "Turn the stored pixels upright first");
  fit->add_flag("--png", fitPng, "Encode as PNG");
  fit->add_option("--quality", fitQuality, "JPEG quality, 0-100 (default 50)")->check(CLI::Range(0, 100));
  fit->add_flag("--whole-bitmap", fitWhole, "Decode the whole bitmap even where a JPEG could be re-encoded without it");
  fit->add_option("-o,--output", fitOut, "Where to write the result")->required();
  fit->callback([&chosen, fit] {
    refuseTogether(*fit, "--png", "--quality", "PNG is lossless and has no quality");
    const bool storedSize = fitWidth == 0 && fitHeight == 0;
    if (!storedSize && (fitWidth <= 0 || fitHeight <= 0))
      throw UsageError{"--width and --height must be positive, or both 0 for the stored size"};
    chosen.run = [] {
      auto start = std::chrono::steady_clock::now();
      LinuxImageCodec codec;
      codec.setReencodeRoads(!fitWhole);
      // The pixels are decoded once, when encoding; a file whose header
      // opens but whose pixels do not is explained afterwards.
      auto bytes = readImageFile(fitPath);
      auto image = codec.imageWithData(bytes);
      if (!image) throw UsageError{fitPath + ": " + codec.probe(*bytes).message()};
      if (fitCorrect) image = ImageGeometry::imageCorrectedForCaptureOrientation(*image, image->imageOrientation());
      if (image && fitWidth > 0 && fitHeight > 0) {
        auto scaled = ImageGeometry::imageByScalingNotCroppingForSize(*image, {fitWidth, fitHeight});
        if (scaled) image = scaled;
      }
      if (!image) {
        Console::error(fitPath + ": the image could not be drawn");
        return kExitFailure;
      }
      // A picture at full size goes to the file as it is made, never whole in
      // memory; the file appears whole or not at all. A JPEG source that no
      // re-encode road takes is drawn below, where its failure is explained.
      auto streamed = writeStreamed(fitOut, [&](ByteSink sink) {
        return fitPng ? codec.writePngRows(*image, std::move(sink))
                      : codec.writeJpegRows(*image, fitQuality / 100.0, std::move(sink));
      });
      if (streamed.ok()) return reportFit(fitOut, *image, *streamed, start);
      const auto failure = streamed.status().code();
      if (failure == Status::Code::unavailable || (fitPng && failure != Status::Code::failedPrecondition)) {
        Console::error(fitOut + ": " + streamed.status().message());
        return kExitFailure;
      }
      // The roads have answered for this image; what is left is the whole bitmap.
      codec.setReencodeRoads(false);
      auto encoded = fitPng ? codec.pngRepresentation(*image) : codec.jpegRepresentation(*image, fitQuality / 100.0);
      if (!encoded) return explainFailure(codec, fitPath, *bytes, *image);
      if (Status s = FileBytes::writeAtomically(fitOut, *encoded); !s.ok()) {
        Console::error(fitOut + ": " + s.message());
        return kExitFailure;
      }
      return reportFit(fitOut, *image, encoded->size(), start);
    };
  });
}

}  // namespace velqor::cli
