#include "fuzz/FuzzTargets.h"

#include <algorithm>
#include <cstdlib>

#include <unistd.h>

#include <filesystem>
#include <future>

#include "capture/PictureOptions.h"
#include "session/ScenarioRunner.h"
#include "host/CallBackManager.h"
#include "host/FileBytes.h"
#include "host/JsonReader.h"
#include "host/ValueJson.h"
#include "platform/ExportSession.h"
#include "platform/StringsFile.h"
#include "platform/linux/LazyMediaExport.h"
#include "imaging/metadata/ImageMetadata.h"
#include "imaging/codecs/JpegCodec.h"
#include "imaging/jpeg/JpegReencoder.h"
#include "imaging/codecs/LinuxImageCodec.h"
#include "imaging/codecs/PngCodec.h"
#include "platform/linux/SampleImages.h"
#include "platform/linux/SampleMovies.h"
#include "results/ImageGeometry.h"

namespace velqor::fuzz {
namespace {

using Seeds = std::vector<std::pair<std::string, std::string>>;

std::string text(const Bytes& b) { return std::string(b.begin(), b.end()); }

// A scratch directory per process, removed at exit.
const std::string& scratch() {
  static const std::string dir = [] {
    std::string pattern = (std::filesystem::temp_directory_path() / "velqor-fuzz-XXXXXX").string();
    return std::string(::mkdtemp(pattern.data()) ? pattern : "");
  }();
  static const struct Remover {
    ~Remover() {
      std::error_code ec;
      std::filesystem::remove_all(dir, ec);
    }
  } remover;
  return dir;
}

Seeds argumentSeeds() {
  return {{"defaults.json", "[]"},
          {"file-uri.json", "[50, 1, 1, 1024, 768, 0, 0, true, true, true, null, true, true]"},
          {"fractions.json", "[150.5, 3.0, -1, 1e3, \"x\", 9, 2, 1, 0]"},
          {"nested.json", "[{\"a\": [1, 2]}, [[]], null, 1e308, -0.0]"}};
}

Seeds imageSeeds() {
  Seeds s;
  if (auto jpeg = SampleImages::cameraJpeg(96, 64, 6, 80); jpeg.ok()) s.push_back({"camera.jpg", text(*jpeg)});
  if (auto jpeg = SampleImages::cameraJpeg(33, 17, 8, 30); jpeg.ok()) s.push_back({"odd.jpg", text(*jpeg)});
  if (auto png = PngCodec::encode(SampleImages::scene(40, 30)); png.ok()) s.push_back({"scene.png", text(*png)});
  return s;
}

Seeds stringsSeeds() {
  std::string utf16 = "\xFF\xFE";
  for (char c : std::string("\"k\" = \"v\";\n")) utf16 += std::string{c, '\0'};
  return {{"plain.strings", "/* note */\n\"camera_access_title\" = \"Camera\";\n\"k2\" = \"a \\\"q\\\" \\n\";\n"},
          {"utf16.strings", utf16}};
}

Seeds scenarioSeeds() {
  return {{"capture.json",
           R"({"name":"f","inputs":{"photo":{"kind":"camera-jpeg","width":64,"height":48}},"user":{"photo":"$photo"},)"
           R"("steps":[{"call":"takePicture","args":[50,1,1],"label":"first"}],"expect":{"answers":[{"command":"first","status":"OK"}]}})"},
          {"denied.json",
           R"({"device":{"cameraAccess":"denied"},"user":{"tap":"cancel"},"steps":[{"call":"takePicture","args":[50,1,1]}]})"},
          {"bytes.json",
           R"({"inputs":{"x":{"kind":"bytes","extension":".jpg","text":"nope"}},"user":{"photo":"$x"},"steps":[{"call":"takePicture","args":[10,0,1]}]})"}};
}

Seeds movieSeeds() {
  Seeds s;
  const std::string path = scratch() + "/seed.mov";
  MovieSpec m;
  m.seconds = 0.3;
  if (SampleMovies::make(path, m).ok())
    if (auto bytes = FileBytes::read(path); bytes.ok()) s.push_back({"short.mov", text(*bytes)});
  return s;
}

Seeds jsonSeeds() {
  return {{"deep-array.json", std::string(64, '[') + std::string(64, ']')},
          {"too-deep.json", std::string(65, '[') + std::string(65, ']')},
          {"deep-object.json", "{\"a\":{\"b\":{\"c\":[1,{\"d\":\"[[[\"}]}}}"},
          {"escapes.json", "[\"\\\"[\", \"\\u005b\", 1e308, -0.0, null]"}};
}

}  // namespace

int jsonReaders(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  if (auto parsed = JsonReader::parse(text, "input"); parsed.ok())
    (void)valueToJson(valueFromJson(*parsed)).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
  if (auto args = argumentsFromJson(text); args.ok()) (void)valueToJson(Value(*args)).dump();
  return 0;
}

int takePictureArguments(const std::uint8_t* data, std::size_t size) {
  auto args = argumentsFromJson(std::string_view(reinterpret_cast<const char*>(data), size));
  if (!args.ok()) return 0;
  auto command = std::make_shared<VelqorCommand>("fuzz", "takePicture", *args);
  CallBackManager cb(command, nullptr, std::make_shared<AnswerLog>());
  (void)PictureOptions::createFromTakePictureArguments(cb);
  return 0;
}

int imagePipeline(const std::uint8_t* data, std::size_t size) {
  static LinuxImageCodec codec;
  auto bytes = std::make_shared<const Bytes>(data, data + size);
  if (!codec.probe(*bytes).ok()) return 0;
  // The probe checks a JPEG's markers without decoding it; what it passes must decode.
  if (JpegCodec::looksLike(*bytes)) {
    if (auto source = JpegCodec::source(bytes, codec.limits()); source.ok() && !(*source)->decode(1, 1).ok()) std::abort();
    // The full-size roads: coefficients kept and permuted, or scanlines streamed,
    // turned as the last byte says, at a quality that keeps or changes the chroma.
    JpegReencodeRequest request;
    request.quality = size % 2 ? 100 : 50;
    request.transform = static_cast<Dihedral>(data[size - 1] % 8);
    (void)JpegReencoder::reencode(*bytes, request, codec.limits());
  }
  auto image = codec.imageWithData(bytes);
  if (!image) return 0;
  image = ImageGeometry::imageCorrectedForCaptureOrientation(*image, image->imageOrientation());
  if (!image) return 0;
  if (auto scaled = ImageGeometry::imageByScalingNotCroppingForSize(*image, {48, 48})) image = scaled;
  (void)codec.jpegRepresentation(*image, 0.5);
  (void)codec.pngRepresentation(*image);
  return 0;
}

int imageMetadata(const std::uint8_t* data, std::size_t size) {
  const std::span<const std::uint8_t> bytes(data, size);
  auto properties = ImageMetadata::read(bytes);
  if (!properties.ok()) return 0;
  // Another orientation than the one read, so the writer always has a change
  // to make, and one that fits where the old value stood.
  const auto found = properties->find("Orientation");
  const std::int64_t old = found != properties->end() ? found->second.asInteger().value_or(1) : 1;
  (*properties)["Orientation"] = Value(static_cast<std::int64_t>((old % 8 + 8) % 8 + 1));
  const Bytes before(data, data + size);
  (void)ImageMetadata::write(bytes, *properties);
  // The input is const: a writer that edits it in place would corrupt bytes
  // its caller shares (a library asset, the picker's data).
  if (!std::equal(before.begin(), before.end(), data)) std::abort();
  return 0;
}

int stringsFile(const std::uint8_t* data, std::size_t size) {
  (void)StringsFile::parse(std::string_view(reinterpret_cast<const char*>(data), size));
  return 0;
}

int scenarioFile(const std::uint8_t* data, std::size_t size) {
  const std::string file = scratch() + "/scenario.json";
  if (!FileBytes::writeAtomically(file, std::span(data, size)).ok()) return 0;
  (void)ScenarioRunner::run(file, scratch() + "/work");
  return 0;
}

int movieExport(const std::uint8_t* data, std::size_t size) {
  static LazyMediaExport exporter;
  const std::string input = scratch() + "/input.mov";
  const std::string output = scratch() + "/output.mp4";
  std::error_code ec;
  std::filesystem::remove(output, ec);
  if (!FileBytes::writeAtomically(input, std::span(data, size)).ok()) return 0;
  auto session = exporter.makeSession(Url::fileUrlWithPath(input), ExportSession::presetPassthrough);
  if (!session) return 0;
  session->setOutputFileType(ExportSession::fileTypeMPEG4);
  session->setOutputURL(Url::fileUrlWithPath(output));
  session->setShouldOptimizeForNetworkUse(true);
  std::promise<void> done;
  session->exportAsynchronously([&done] { done.set_value(); });
  done.get_future().wait();
  return 0;
}

const std::vector<Target>& targets() {
  static const std::vector<Target> all{{"take_picture_arguments", takePictureArguments, argumentSeeds},
                                       {"image_pipeline", imagePipeline, imageSeeds},
                                       {"image_metadata", imageMetadata, imageSeeds},
                                       {"strings_file", stringsFile, stringsSeeds},
                                       {"scenario_file", scenarioFile, scenarioSeeds},
                                       {"movie_export", movieExport, movieSeeds},
                                       {"json_readers", jsonReaders, jsonSeeds},
                                       {"http_request", httpRequest, httpSeeds},
                                       {"library_file", libraryFile, librarySeeds}};
  return all;
}

const Target* targetNamed(const std::string& name) {
  for (const auto& t : targets())
    if (name == t.name) return &t;
  return nullptr;
}

}  // namespace velqor::fuzz
