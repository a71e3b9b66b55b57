#include "session/ScenarioRunner.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>

#include "capture/PictureOptions.h"
#include "session/DeviceSession.h"
#include "session/ScenarioImages.h"
#include "host/FileBytes.h"
#include "host/JsonReader.h"
#include "host/ValueJson.h"
#include "files/FolderPolicy.h"
#include "session/PatternMatcher.h"
#include "imaging/codecs/PngCodec.h"
#include "platform/linux/SampleImages.h"
#include "platform/linux/SampleMovies.h"
#include "platform/PickerTypes.h"
#include "platform/sim/AccessStateNames.h"

namespace velqor {
namespace fs = std::filesystem;
using json = nlohmann::json;

namespace {

constexpr size_t kMaxScenarioBytes = size_t{4} << 20;

StatusOr<std::int64_t> accessState(const json& v, const std::string& key) {
  const auto& kStates = accessStateNames();
  if (!v.is_string() || !kStates.count(v.get<std::string>()))
    return Status::invalidArgument(key + ": expected notDetermined, restricted, denied, authorized or limited");
  return kStates.at(v.get<std::string>());
}

Status makeInputs(const json& inputs, const std::string& dir, std::map<std::string, std::string>& names,
                  ScenarioResult& result) {
  if (inputs.is_null()) return Status::okStatus();
  if (!inputs.is_object()) return Status::invalidArgument("inputs: expected an object");
  for (const auto& [name, recipe] : inputs.items()) {
    // Input names and extensions become file names inside the work directory.
    const auto plainChar = [](unsigned char c) { return std::isalnum(c) || c == '_' || c == '-'; };
    if (name.empty() || name.size() > 64 || !std::all_of(name.begin(), name.end(), plainChar) || !recipe.is_object())
      return Status::invalidArgument("inputs: each input needs a plain name ([A-Za-z0-9_-]) and an object");
    const std::string kind = recipe.value("kind", "");
    const int width = recipe.value("width", kind == "png" ? 640 : 1024);
    const int height = recipe.value("height", kind == "png" ? 480 : 768);
    if (width < 1 || height < 1 || width > 8192 || height > 8192)
      return Status::invalidArgument("inputs." + name + ": width and height must be from 1 to 8192");
    std::string path;
    if (kind == "camera-jpeg") {
      path = dir + "/" + name + ".jpg";
      ASSIGN_OR_RETURN(Bytes b, SampleImages::cameraJpeg(width, height,
                                                        recipe.value("orientation", 6), recipe.value("quality", 92)));
      RETURN_IF_ERROR(FileBytes::writeAtomically(path, b));
    } else if (kind == "png") {
      path = dir + "/" + name + ".png";
      ASSIGN_OR_RETURN(Bytes b, PngCodec::encode(SampleImages::scene(width, height)));
      RETURN_IF_ERROR(FileBytes::writeAtomically(path, b));
    } else if (kind == "movie") {
      path = dir + "/" + name + ".mov";
      MovieSpec m;
      m.seconds = recipe.value("seconds", 1.0);
      if (!(m.seconds > 0 && m.seconds <= 60)) return Status::invalidArgument("inputs." + name + ": seconds must be from 0 to 60");
      m.audio = recipe.value("audio", true);
      m.video = recipe.value("video", true);
      RETURN_IF_ERROR(SampleMovies::make(path, m));
    } else if (kind == "bytes") {
      const std::string extension = recipe.value("extension", std::string(".bin"));
      const bool plainExtension =
          extension.empty() || (extension.size() <= 9 && extension.size() >= 2 && extension[0] == '.' &&
                                std::all_of(extension.begin() + 1, extension.end(), [](unsigned char c) { return std::isalnum(c); }));
      if (!plainExtension)
        return Status::invalidArgument("inputs." + name + ": extension must be a dot and up to 8 letters or digits");
      path = dir + "/" + name + extension;
      std::string text = recipe.value("text", "");
      RETURN_IF_ERROR(FileBytes::writeAtomically(path, std::span(reinterpret_cast<const std::uint8_t*>(text.data()), text.size())));
    } else {
      return Status::invalidArgument("inputs." + name + ": kind must be camera-jpeg, png, movie or bytes");
    }
    names["$" + name] = path;
    result.inputs.push_back(path);
  }
  return Status::okStatus();
}

std::string resolve(const json& v, const std::map<std::string, std::string>& names, const std::string& base) {
  std::string s = v.get<std::string>();
  if (auto it = names.find(s); it != names.end()) return it->second;
  if (!s.empty() && s[0] != '/' && fs::exists(base + "/" + s)) return base + "/" + s;
  return s;
}

StatusOr<DeviceConfig> deviceConfig(const json& scenario, const std::map<std::string, std::string>& names,
                                    const std::string& base, const std::string& work) {
  DeviceConfig c;
  c.temporaryDirectory = work + "/tmp";
  c.libraryDirectory = work + "/library";
  c.device.bundlePath = DeviceSession::shippedBundle();
  const json d = scenario.value("device", json::object());
  if (d.contains("sources")) {
    c.device.availableSources.clear();
    if (!d["sources"].is_array()) return Status::invalidArgument("device.sources: expected an array");
    const std::map<std::string, std::int64_t> kSources{{"library", SourceType::photoLibrary},
                                                       {"camera", SourceType::camera},
                                                       {"album", SourceType::savedPhotosAlbum}};
    for (const auto& s : d["sources"]) {
      const auto it = s.is_string() ? kSources.find(s.get<std::string>()) : kSources.end();
      if (it == kSources.end()) return Status::invalidArgument("device.sources: each one is library, camera or album");
      c.device.availableSources.insert(it->second);
    }
  }
  if (d.contains("cameraAccess")) {
    ASSIGN_OR_RETURN(c.device.cameraAccess, accessState(d["cameraAccess"], "cameraAccess"));
  }
  if (d.contains("libraryAccess")) {
    ASSIGN_OR_RETURN(c.device.libraryAccess, accessState(d["libraryAccess"], "libraryAccess"));
  }
  if (d.contains("libraryAnswer")) {
    ASSIGN_OR_RETURN(c.device.libraryRequestAnswer, accessState(d["libraryAnswer"], "libraryAnswer"));
  }
  if (d.contains("cameraAnswer")) c.device.cameraRequestGranted = d["cameraAnswer"] == "granted";
  c.viewController = d.value("viewController", true);
  c.device.settingsUrlAvailable = d.value("settingsPage", true);
  c.language = d.value("language", "en");
  if (d.contains("bundle")) {
    if (d["bundle"] == "none") c.device.bundlePath.reset();
    else c.device.bundlePath = resolve(d["bundle"], names, base);
  }
  if (d.contains("fileUrlPrefix")) c.fileUrlPrefix = d["fileUrlPrefix"].get<std::string>();

  const json u = scenario.value("user", json::object());
  if (u.contains("tap")) c.device.alertTap = u["tap"].get<std::string>();
  if (u.value("cancel", false)) c.device.pickerChoice = SimDeviceState::PickerChoice::cancel;
  for (const char* kind : {"photo", "video", "pick"}) {
    if (!u.contains(kind)) continue;
    SimPickerChoice choice;
    choice.kind = std::string(kind) == "photo" ? SimPickerChoice::Kind::photo
                  : std::string(kind) == "video" ? SimPickerChoice::Kind::video
                                                 : SimPickerChoice::Kind::pick;
    (choice.kind == SimPickerChoice::Kind::pick ? choice.asset : choice.file) = resolve(u[kind], names, base);
    if (u.contains("edit")) choice.edit = std::array<double, 4>{u["edit"][0], u["edit"][1], u["edit"][2], u["edit"][3]};
    c.pickerChoice = choice;
  }
  for (const auto& fix : scenario.value("location", json::array())) {
    LocationFix f;
    f.latitude = fix.at(0);
    f.longitude = fix.at(1);
    if (fix.size() > 2 && fix.at(2).is_number()) f.altitude = fix.at(2);
    f.timestamp = std::chrono::system_clock::now();
    c.locationFixes.push_back(f);
  }
  return c;
}

bool matches(const json& expected, const json& actual, const std::string& where, std::vector<std::string>& diffs) {
  if (expected.is_object() && expected.size() == 1 && actual.is_string()) {
    const std::string s = actual.get<std::string>();
    const std::string op = expected.begin().key();
    const json& arg = expected.begin().value();
    bool ok = true;
    if (op == "prefix") ok = s.rfind(arg.get<std::string>(), 0) == 0;
    else if (op == "suffix") ok = s.size() >= arg.get<std::string>().size() && s.compare(s.size() - arg.get<std::string>().size(), std::string::npos, arg.get<std::string>()) == 0;
    else if (op == "contains") ok = s.find(arg.get<std::string>()) != std::string::npos;
    else if (op == "regex") {
      auto found = PatternMatcher::search(arg.get<std::string>(), s);
      if (!found.ok()) {
        diffs.push_back(where + ": " + found.status().message());
        return false;
      }
      ok = *found;
    } else {
      ok = false;
    }
    if (!ok) diffs.push_back(where + ": expected " + op + " " + arg.dump() + ", got " + actual.dump().substr(0, 200));
    return ok;
  }
  if (expected.is_object() && actual.is_object()) {
    bool ok = true;
    for (const auto& [k, v] : expected.items()) {
      if (!actual.contains(k)) {
        diffs.push_back(where + "." + k + ": missing");
        ok = false;
      } else {
        ok = matches(v, actual[k], where + "." + k, diffs) && ok;
      }
    }
    return ok;
  }
  if (expected != actual) {
    diffs.push_back(where + ": expected " + expected.dump() + ", got " + actual.dump().substr(0, 200));
    return false;
  }
  return true;
}

// A raw option by its name in the page's API, or "N (unknown)".
std::string optionName(std::optional<std::int64_t> raw, std::initializer_list<const char*> names, std::int64_t given) {
  if (raw && *raw >= 0 && *raw < static_cast<std::int64_t>(names.size())) return names.begin()[*raw];
  return std::to_string(given) + " (unknown)";
}

// The options as the plug-in parses them, by name: what the report shows.
json optionsOf(const Array& args) {
  auto command = std::make_shared<VelqorCommand>("scenario", "takePicture", args);
  bool before = PictureOptions::useLocationService.load();
  CallBackManager cb(command, nullptr, std::make_shared<AnswerLog>());
  auto o = PictureOptions::createFromTakePictureArguments(cb);
  PictureOptions::useLocationService.store(before);  // only describing, not parsing for the plug-in
  const auto given = [&](size_t i) {
    const Value* v = i < args.size() ? &args[i] : nullptr;
    return v && v->asInteger() ? *v->asInteger() : -1;
  };
  const auto raw = [](auto option) {
    return option ? std::optional<std::int64_t>(static_cast<std::int64_t>(*option)) : std::nullopt;
  };
  json j;
  j["quality"] = o->quality;
  j["destinationType"] = optionName(raw(o->destinationType), {"DATA_URL", "FILE_URI", "NATIVE_URI"}, given(1));
  j["sourceType"] = optionName(o->sourceType, {"PHOTOLIBRARY", "CAMERA", "SAVEDPHOTOALBUM"}, given(2));
  j["encodingType"] = optionName(raw(o->encodingType), {"JPEG", "PNG"}, given(5));
  j["mediaType"] = optionName(raw(o->mediaType), {"PICTURE", "VIDEO", "ALLMEDIA"}, given(6));
  j["targetSize"] = o->targetSize ? json::array({o->targetSize->width, o->targetSize->height}) : json(nullptr);
  j["cameraDirection"] = o->cameraDirection == CameraDevice::front ? "FRONT" : "BACK";
  j["allowsEditing"] = o->allowsEditing;
  j["correctOrientation"] = o->correctOrientation;
  j["saveToPhotoAlbum"] = o->saveToPhotoAlbum;
  j["usesGeolocation"] = o->usesGeolocation;
  return j;
}

}  // namespace

StatusOr<ScenarioResult> ScenarioRunner::run(const std::string& file, const std::string& workDirectory) {
  return run(file, workDirectory, false);
}

StatusOr<ScenarioResult> ScenarioRunner::run(const std::string& file, const std::string& workDirectory, bool force) {
  auto bytes = FileBytes::read(file, kMaxScenarioBytes);
  if (!bytes.ok()) return Status::invalidArgument("cannot read scenario " + file + ": " + bytes.status().message());
  auto parsed = JsonReader::parse(std::string_view(reinterpret_cast<const char*>(bytes->data()), bytes->size()), file,
                                  {.maxBytes = kMaxScenarioBytes, .maxDepth = 64});
  if (!parsed.ok() && parsed.status().code() == Status::Code::resourceExhausted)
    return Status::invalidArgument(parsed.status().message());
  if (!parsed.ok() || !parsed->is_object()) return Status::invalidArgument(file + ": not a JSON object");
  json scenario = std::move(*parsed);
  ScenarioResult result;
  if (!scenario.value("name", json("")).is_string() || !scenario.value("description", json("")).is_string())
    return Status::invalidArgument(file + ": name and description must be strings");
  result.name = scenario.value("name", fs::path(file).stem().string());
  result.description = scenario.value("description", "");
  for (auto [key, field] : {std::pair{"device", &result.device}, std::pair{"user", &result.user}})
    if (scenario.contains(key) && scenario[key].is_object()) *field = scenario[key];
  if (scenario.contains("location") && scenario["location"].is_array()) result.location = scenario["location"];
  // The run folder is named after the file and lives strictly inside the
  // work folder; the record of the runs this tool made sits beside them.
  ASSIGN_OR_RETURN(ResolvedFolder workFolder, FolderPolicy::workFolder(workDirectory));
  const FolderOwnership runsMade(workFolder.path + "/.velqor-runs");
  auto runFolder = FolderPolicy::runFolder(workFolder, fs::path(file).stem().string(), runsMade, force);
  if (!runFolder.ok()) return Status::invalidArgument(file + ": " + runFolder.status().message());
  const std::string work = runFolder->path;
  std::error_code ec;
  fs::create_directories(work + "/inputs", ec);
  std::string where = "inputs";
  std::map<std::string, std::string> names;
  try {
    RETURN_IF_ERROR(makeInputs(scenario.value("inputs", json()), work + "/inputs", names, result));
    where = "device, user or location";
    ASSIGN_OR_RETURN(DeviceConfig config, deviceConfig(scenario, names, fs::path(file).parent_path().string(), work));
    ASSIGN_OR_RETURN(auto session, DeviceSession::create(std::move(config)));
    session->device().events()->setListener([&](const nlohmann::ordered_json& e) { result.events.push_back(e); });
    std::map<std::string, std::string> labels;  // callback id -> label
    session->host().answers()->setListener([&](const Answer& a) {
      nlohmann::ordered_json j;
      j["command"] = a.callbackId;  // relabelled once every call has its label
      const nlohmann::json answer = a.toJson();
      for (const auto& [k, v] : answer.items()) j[k] = v;
      result.answers.push_back(j);
    });
    std::vector<std::pair<std::string, std::string>> commands;
    int n = 0;
    for (const auto& step : scenario.value("steps", json::array())) {
      where = "steps[" + std::to_string(n) + "]";
      const std::string call = step.value("call", "");
      const std::string label = step.value("label", call + std::to_string(++n));
      auto start = std::chrono::steady_clock::now();
      nlohmann::ordered_json record{{"call", call}, {"label", label}};
      if (call == "takePicture" || call == "cleanup") {
        Array args;
        if (step.contains("args")) {
          auto parsed = argumentsFromJson(step["args"].dump());
          if (!parsed.ok()) return Status::invalidArgument(label + ": args must be an array");
          args = *parsed;
        }
        if (call == "takePicture") record["options"] = optionsOf(args);
        auto id = session->host().callCommand(call + ":", args);
        labels[*id] = label;
        commands.emplace_back(*id, label);
        session->host().runUntilAnswered(*id, std::chrono::seconds(30));
      } else if (!session->host().hasOperation(call) && !session->host().hasOperation(call + ":")) {
        return Status::invalidArgument(label + ": unknown call \"" + call + "\"");
      } else {
        session->host().callPlain(session->host().hasOperation(call) ? call : call + ":",
                                  step.contains("arg") ? valueFromJson(step["arg"]) : Value());
      }
      session->host().runUntilQuiescent(std::chrono::seconds(30));
      record["milliseconds"] =
          std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
      result.steps.push_back(record);
    }
    for (auto& a : result.answers)
      if (auto it = labels.find(a["command"].get<std::string>()); it != labels.end()) a["command"] = it->second;
    std::vector<std::string> openLabels;
    for (const auto& [id, label] : commands) {
      if (session->host().answers()->isAnswered(id)) continue;
      openLabels.push_back(label);
      for (const auto& why : session->openReasons()) result.open.push_back(label + ": " + why.explanation);
    }
    result.watchdog = session->watchdog().reports();
    for (auto it = fs::directory_iterator(work + "/tmp", ec); !ec && it != fs::directory_iterator(); it.increment(ec))
      result.outputs.push_back(it->path().string());
    std::sort(result.outputs.begin(), result.outputs.end());

    where = "expect";
    const json expect = scenario.value("expect", json::object());
    if (expect.contains("answers")) {
      const auto& want = expect["answers"];
      if (want.size() != result.answers.size())
        result.differences.push_back("expected " + std::to_string(want.size()) + " answers, got " +
                                     std::to_string(result.answers.size()));
      for (size_t i = 0; i < std::min(want.size(), result.answers.size()); ++i)
        matches(want[i], json(result.answers[i]), "answers[" + std::to_string(i) + "]", result.differences);
    }
    if (expect.contains("events")) {
      json names = json::array();
      for (const auto& e : result.events) names.push_back(e["event"].get<std::string>());
      matches(expect["events"], names, "events", result.differences);
    }
    if (expect.contains("open")) matches(expect["open"], json(openLabels), "open", result.differences);
    if (expect.contains("outputs")) {
      json produced = json::array();
      for (const auto& o : result.outputs) produced.push_back(fs::path(o).extension().string());
      matches(expect["outputs"], produced, "outputs", result.differences);
    }
    if (expect.contains("images")) ScenarioImages::check(expect["images"], result.outputs, names, result.differences);
    if (!result.watchdog.empty()) result.differences.push_back("watchdog: " + result.watchdog.front());
  } catch (const std::exception& e) {
    // A field of the wrong type or shape: say which part of which file.
    return Status::invalidArgument(file + ": " + where + ": " + e.what());
  }
  result.passed = result.differences.empty();
  return result;
}

ScenarioResult ScenarioRunner::runOrExplain(const std::string& file, const std::string& workDirectory) {
  auto result = run(file, workDirectory);
  if (result.ok()) return std::move(*result);
  ScenarioResult failed;
  failed.name = fs::path(file).stem().string();
  failed.description = "The scenario file " + fs::path(file).filename().string() + " could not be run.";
  failed.passed = false;
  failed.error = result.status().message();
  failed.differences.push_back(failed.error);
  return failed;
}

}  // namespace velqor
