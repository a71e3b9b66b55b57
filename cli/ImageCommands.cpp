#include <chrono>
#include <iostream>

#include <nlohmann/json.hpp>

#include "cli/Cli.h"
#include "host/FileBytes.h"
#include "platform/linux/IccProfileBuilder.h"
#include "platform/linux/JpegCodec.h"
#include "platform/linux/LinuxImageCodec.h"
#include "platform/linux/PngCodec.h"
#include "results/ImageGeometry.h"

namespace velqor::cli {
namespace {

// The image at `path`, pixels not decoded yet; null (with the reason
// printed) when it is no image. A header that lies is found when the pixels
// are needed: see explainFailure.
std::shared_ptr<PlatformImage> openImage(LinuxImageCodec& codec, const std::string& path,
                                         std::shared_ptr<const Bytes>* kept = nullptr) {
  auto bytes = FileBytes::read(path, 512u << 20);
  if (!bytes.ok()) throw UsageError{bytes.status().message()};
  auto shared = std::make_shared<const Bytes>(std::move(*bytes));
  if (kept) *kept = shared;
  auto image = codec.imageWithData(shared);
  if (!image) std::cerr << "velqor-camera: " << path << ": " << codec.probe(*shared).message() << "\n";
  return image;
}

// Why an image that opened could not be encoded: the file's pixels do not
// decode (the same words as a file that does not open), or the limits.
void explainFailure(LinuxImageCodec& codec, const std::string& path, const Bytes& bytes, const PlatformImage& image) {
  if (Status why = codec.probe(bytes); !why.ok()) {
    std::cerr << "velqor-camera: " << path << ": " << why.message() << "\n";
    return;
  }
  Status why = image.checkDecode();
  std::cerr << "velqor-camera: cannot encode the image" << (why.ok() ? "" : ": " + why.message()) << "\n";
}

double millisSince(std::chrono::steady_clock::time_point t) {
  return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - t).count();
}

}  // namespace

void registerImageCommands(CLI::App& app, Registration& chosen) {
  static std::string infoPath;
  auto* info = app.add_subcommand("image-info", "Print an image's size, stored size, orientation and type");
  info->add_option("FILE", infoPath, "The image file")->required();
  info->callback([&chosen] {
    chosen.run = [] {
      LinuxImageCodec codec;
      std::shared_ptr<const Bytes> bytes;
      auto image = openImage(codec, infoPath, &bytes);
      if (!image) return kExitFailure;
      // Facts are printed only about pixels that decode.
      if (Status why = codec.probe(*bytes); !why.ok()) {
        std::cerr << "velqor-camera: " << infoPath << ": " << why.message() << "\n";
        return kExitFailure;
      }
      nlohmann::ordered_json j;
      j["size"] = {image->size().width, image->size().height};
      j["storedSize"] = {image->storedWidth(), image->storedHeight()};
      j["orientation"] = image->imageOrientation();
      j["type"] = image->sourceTypeName();
      if (const auto& icc = image->iccProfile())
        j["iccProfile"] = {{"description", IccProfileBuilder::description(*icc)}, {"bytes", icc->size()}};
      else
        j["iccProfile"] = nullptr;
      std::cout << j.dump() << "\n";
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
  fit->add_option("--quality", fitQuality, "JPEG quality, 0-100 (default 50)");
  fit->add_flag("--whole-bitmap", fitWhole, "Decode the whole bitmap even where a JPEG could be re-encoded without it");
  fit->add_option("-o,--output", fitOut, "Where to write the result")->required();
  fit->callback([&chosen] {
    chosen.run = [] {
      auto start = std::chrono::steady_clock::now();
      LinuxImageCodec codec;
      codec.setReencodeRoads(!fitWhole);
      std::shared_ptr<const Bytes> bytes;
      auto image = openImage(codec, fitPath, &bytes);
      if (!image) return kExitFailure;
      if (fitCorrect) image = ImageGeometry::imageCorrectedForCaptureOrientation(*image, image->imageOrientation());
      if (image && fitWidth > 0 && fitHeight > 0) {
        auto scaled = ImageGeometry::imageByScalingNotCroppingForSize(*image, {fitWidth, fitHeight});
        if (scaled) image = scaled;
      }
      if (!image) {
        std::cerr << "velqor-camera: the image could not be drawn\n";
        return kExitFailure;
      }
      auto encoded = fitPng ? codec.pngRepresentation(*image) : codec.jpegRepresentation(*image, fitQuality / 100.0);
      if (!encoded) {
        explainFailure(codec, fitPath, *bytes, *image);
        return kExitFailure;
      }
      if (Status s = FileBytes::writeAtomically(fitOut, *encoded); !s.ok()) throw UsageError{s.message()};
      nlohmann::ordered_json j;
      j["output"] = fitOut;
      j["size"] = {image->storedWidth(), image->storedHeight()};
      j["bytes"] = encoded->size();
      j["milliseconds"] = millisSince(start);
      std::cout << j.dump() << "\n";
      return kExitOk;
    };
  });
}

}  // namespace velqor::cli
