#include <chrono>

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

std::shared_ptr<PlatformImage> openImage(LinuxImageCodec& codec, const std::string& path) {
  requireReadableFile("FILE", path);
  auto bytes = FileBytes::read(path, 512u << 20);
  if (!bytes.ok()) throw UsageError{path + ": " + bytes.status().message()};
  auto shared = std::make_shared<const Bytes>(std::move(*bytes));
  if (Status why = codec.probe(*shared); !why.ok()) throw UsageError{path + ": " + why.message()};
  return codec.imageWithData(shared);
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
      auto image = openImage(codec, infoPath);
      if (!image) throw UsageError{infoPath + ": not an image this tool decodes"};
      nlohmann::ordered_json j;
      j["size"] = {image->size().width, image->size().height};
      j["storedSize"] = {image->storedWidth(), image->storedHeight()};
      j["orientation"] = image->imageOrientation();
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
  static bool fitCorrect = false, fitPng = false;
  static int fitQuality = 50;
  auto* fit = app.add_subcommand("image-fit", "Correct, fit and encode one image, as a capture would");
  fit->add_option("FILE", fitPath, "The image file")->required();
  fit->add_option("--width", fitWidth, "Target width")->required();
  fit->add_option("--height", fitHeight, "Target height")->required();
  fit->add_flag("--correct-orientation", fitCorrect, "Turn the stored pixels upright first");
  fit->add_flag("--png", fitPng, "Encode as PNG");
  fit->add_option("--quality", fitQuality, "JPEG quality, 0-100 (default 50)")->check(CLI::Range(0, 100));
  fit->add_option("-o,--output", fitOut, "Where to write the result")->required();
  fit->callback([&chosen, fit] {
    refuseTogether(*fit, "--png", "--quality", "PNG is lossless and has no quality");
    if (fitWidth <= 0 || fitHeight <= 0) throw UsageError{"--width and --height must be positive"};
    chosen.run = [] {
      auto start = std::chrono::steady_clock::now();
      LinuxImageCodec codec;
      auto image = openImage(codec, fitPath);
      if (!image) throw UsageError{fitPath + ": not an image this tool decodes"};
      if (fitCorrect) image = ImageGeometry::imageCorrectedForCaptureOrientation(*image, image->imageOrientation());
      if (image && fitWidth > 0 && fitHeight > 0) {
        auto scaled = ImageGeometry::imageByScalingNotCroppingForSize(*image, {fitWidth, fitHeight});
        if (scaled) image = scaled;
      }
      if (!image) {
        Console::error(fitPath + ": the image could not be drawn");
        return kExitFailure;
      }
      auto encoded = fitPng ? codec.pngRepresentation(*image) : codec.jpegRepresentation(*image, fitQuality / 100.0);
      if (!encoded) {
        Status why = image->checkDecode();
        Console::error("cannot encode the image" + (why.ok() ? std::string() : ": " + why.message()));
        return kExitFailure;
      }
      if (Status s = FileBytes::writeAtomically(fitOut, *encoded); !s.ok()) {
        Console::error(fitOut + ": " + s.message());
        return kExitFailure;
      }
      nlohmann::ordered_json j;
      j["output"] = fitOut;
      j["size"] = {image->storedWidth(), image->storedHeight()};
      j["bytes"] = encoded->size();
      j["milliseconds"] = millisSince(start);
      Console::result(j.dump());
      return kExitOk;
    };
  });
}

}  // namespace velqor::cli
