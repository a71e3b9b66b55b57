#include <memory>

#include <nlohmann/json.hpp>

#include "capture/PictureOptions.h"
#include "cli/Cli.h"
#include "cli/TakePictureArguments.h"
#include "host/CallBackManager.h"
#include "host/ValueJson.h"
#include "plugin/Version.h"

namespace velqor::cli {
namespace {

Array parseArgsOrThrow(const std::string& text) {
  auto args = argumentsFromJson(text);
  if (!args.ok()) throw UsageError{"--args: " + args.status().message()};
  return std::move(args).value();
}

std::shared_ptr<PictureOptions> parseOptions(const Array& args) {
  auto command = std::make_shared<VelqorCommand>("cli", "takePicture", args);
  CallBackManager cb(command, nullptr, std::make_shared<AnswerLog>());
  return PictureOptions::createFromTakePictureArguments(cb);
}

template <typename T>
nlohmann::ordered_json optionalRaw(const std::optional<T>& v) {
  if (!v) return nullptr;
  return static_cast<std::int64_t>(*v);
}

nlohmann::ordered_json optionsToJson(const PictureOptions& o) {
  nlohmann::ordered_json j;
  j["quality"] = o.quality;
  j["destinationType"] = optionalRaw(o.destinationType);
  j["sourceType"] = optionalRaw(o.sourceType);
  j["targetSize"] = o.targetSize ? nlohmann::ordered_json::array({o.targetSize->width, o.targetSize->height})
                                 : nlohmann::ordered_json(nullptr);
  j["encodingType"] = optionalRaw(o.encodingType);
  j["mediaType"] = optionalRaw(o.mediaType);
  j["cameraDirection"] = optionalRaw(o.cameraDirection);
  j["allowsEditing"] = o.allowsEditing;
  j["correctOrientation"] = o.correctOrientation;
  j["saveToPhotoAlbum"] = o.saveToPhotoAlbum;
  j["usesGeolocation"] = o.usesGeolocation;
  j["cropToSize"] = o.cropToSize;
  j["useLocationService"] = PictureOptions::useLocationService.load();
  return j;
}

}  // namespace

void registerSpineCommands(CLI::App& app, Registration& chosen) {
  static std::string optionsArgs;
  auto* options = app.add_subcommand("options", "Parse a takePicture argument list and print the options");
  options->add_option("--args", optionsArgs, "JSON array of takePicture arguments (table below)")->required();
  options->footer(kTakePictureArguments);
  options->callback([&chosen] {
    chosen.run = [] {
      auto o = parseOptions(parseArgsOrThrow(optionsArgs));
      Console::result(optionsToJson(*o).dump());
      return kExitOk;
    };
  });

  static std::string geoArgs;
  auto* geo = app.add_subcommand("uses-geolocation",
                                 "Print what usesGeolocation answers, optionally after a parse");
  geo->add_option("--args", geoArgs, "JSON array of takePicture arguments to parse first");
  geo->callback([&chosen] {
    chosen.run = [] {
      if (!geoArgs.empty()) parseOptions(parseArgsOrThrow(geoArgs));
      Console::result(PictureOptions::useLocationService.load() ? "true" : "false");
      return kExitOk;
    };
  });

  auto* version = app.add_subcommand("version", "Print the library's version string");
  version->callback([&chosen] {
    chosen.run = [] {
      Console::result(VelqorCameraVersionString);
      return kExitOk;
    };
  });
}

}  // namespace velqor::cli
