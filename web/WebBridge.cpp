#include "web/WebBridge.h"

#include <cmath>
#include <filesystem>
#include <map>
#include <algorithm>

#include "host/FileBytes.h"
#include "host/ValueJson.h"
#include "platform/ImagePickerController.h"
#include "platform/linux/ImageMetadata.h"
#include "platform/sim/AccessStateNames.h"

namespace velqor {
namespace {

const std::map<std::string, std::int64_t>& sourceNames() {
  static const std::map<std::string, std::int64_t> kSources{{"photoLibrary", SourceType::photoLibrary},
                                                            {"camera", SourceType::camera},
                                                            {"savedPhotosAlbum", SourceType::savedPhotosAlbum}};
  return kSources;
}

std::string nameOf(const std::map<std::string, std::int64_t>& names, std::int64_t value) {
  for (const auto& [name, v] : names)
    if (v == value) return name;
  return std::to_string(value);
}

StatusOr<std::int64_t> accessFrom(const nlohmann::json& value, const std::string& key) {
  if (!value.is_string()) return Status::invalidArgument(key + " must be a string");
  const auto it = accessStateNames().find(value.get<std::string>());
  if (it == accessStateNames().end())
    return Status::invalidArgument(key + ": unknown access state (notDetermined, restricted, denied, authorized, limited)");
  return it->second;
}

Status requireObject(const nlohmann::json& request) {
  if (!request.is_object()) return Status::invalidArgument("the request body must be a JSON object");
  return Status::okStatus();
}

// A short alphanumeric extension from the user's file name, so the codecs see
// the type the user's file claims ("bin" when it claims none).
std::string extensionOf(const std::string& name) {
  const auto dot = name.rfind('.');
  std::string ext = dot == std::string::npos ? "" : name.substr(dot + 1);
  if (ext.empty() || ext.size() > 5 || !std::all_of(ext.begin(), ext.end(), [](unsigned char c) { return std::isalnum(c); }))
    return "bin";
  return ext;
}

// The device describes itself in insertion-ordered JSON; the bridge answers in plain JSON.
nlohmann::json plain(const nlohmann::ordered_json& ordered) {
  return nlohmann::json::parse(ordered.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace));
}

}  // namespace

WebBridge::WebBridge(DeviceSession& session, std::string uploads) : session_(session), uploads_(std::move(uploads)) {}

StatusOr<nlohmann::json> WebBridge::call(const nlohmann::json& request) {
  RETURN_IF_ERROR(requireObject(request));
  const auto op = request.find("operation");
  if (op == request.end() || !op->is_string()) return Status::invalidArgument("\"operation\" must be a string");
  const std::string name = op->get<std::string>();
  const bool plainName = !name.empty() && name.size() <= 64 && std::isalpha(static_cast<unsigned char>(name[0])) &&
                         std::all_of(name.begin(), name.end(), [](unsigned char c) { return std::isalnum(c); });
  if (!plainName || !session_.host().hasOperation(name + ":"))
    return Status::invalidArgument("the plug-in has no command operation \"" + name + "\"");
  std::string argsText = "[]";
  if (const auto args = request.find("args"); args != request.end()) {
    if (!args->is_array()) return Status::invalidArgument("\"args\" must be an array");
    argsText = args->dump();
  }
  ASSIGN_OR_RETURN(Array args, argumentsFromJson(argsText));
  const auto id = session_.host().callCommand(name + ":", std::move(args));
  if (!id) return Status::invalidArgument("the plug-in has no command operation \"" + name + "\"");
  return nlohmann::json{{"callbackId", *id}};
}

nlohmann::json WebBridge::state(size_t answersFrom, size_t eventsFrom) const {
  nlohmann::json out;
  const auto& log = *session_.host().answers();
  out["answerCount"] = log.size();
  auto list = nlohmann::json::array();
  for (const auto& answer : log.answersFrom(answersFrom)) {
    auto a = answer.toJson();
    a["callbackId"] = answer.callbackId;
    a["afterFinal"] = answer.afterFinal;
    list.push_back(std::move(a));
  }
  out["answers"] = std::move(list);
  const auto& events = *session_.device().events();
  out["eventCount"] = events.total();
  auto eventList = nlohmann::json::array();
  for (const auto& e : events.eventsFrom(eventsFrom)) eventList.push_back(plain(e));
  out["events"] = std::move(eventList);
  auto screen = nlohmann::json::array();
  for (const auto& vc : session_.device().onScreen()) screen.push_back(plain(SimDevice::describe(*vc)));
  out["screen"] = std::move(screen);
  out["device"] = deviceSettings();
  out["locationStarted"] = session_.location().startedManagers();
  return out;
}

nlohmann::json WebBridge::deviceSettings() const {
  const auto st = session_.device().state();
  auto sources = nlohmann::json::array();
  for (auto s : st.availableSources) sources.push_back(nameOf(sourceNames(), s));
  return {{"cameraAccess", nameOf(accessStateNames(), st.cameraAccess)},
          {"libraryAccess", nameOf(accessStateNames(), st.libraryAccess)},
          {"cameraAnswer", st.cameraRequestGranted ? "granted" : "denied"},
          {"libraryAnswer", nameOf(accessStateNames(), st.libraryRequestAnswer)},
          {"sources", std::move(sources)}};
}

StatusOr<nlohmann::json> WebBridge::finishPickerWithFile(const std::string& kind, const std::string& name,
                                                        const std::string& bytes, const std::string& edit) {
  SimPickerChoice choice;
  if (kind == "photo")
    choice.kind = SimPickerChoice::Kind::photo;
  else if (kind == "video")
    choice.kind = SimPickerChoice::Kind::video;
  else
    return Status::invalidArgument("\"kind\" must be photo or video");
  if (bytes.empty()) return Status::invalidArgument("the chosen file is empty");
  if (!edit.empty()) {
    std::array<double, 4> r{};
    if (std::sscanf(edit.c_str(), "%lf,%lf,%lf,%lf", &r[0], &r[1], &r[2], &r[3]) != 4 ||
        !std::all_of(r.begin(), r.end(), [](double v) { return std::isfinite(v) && v >= 0; }) || r[2] <= 0 || r[3] <= 0)
      return Status::invalidArgument("\"edit\" must be x,y,width,height with a positive size");
    choice.edit = r;
  }
  bool pickerShown = false;
  for (const auto& vc : session_.device().onScreen())
    if (std::dynamic_pointer_cast<ImagePickerController>(vc)) pickerShown = true;
  if (!pickerShown) return Status::failedPrecondition("no picker is on the screen");

  choice.file = uploads_ + "/chosen-" + std::to_string(++uploadCount_) + "." + extensionOf(name);
  RETURN_IF_ERROR(FileBytes::writeAtomically(choice.file, std::span(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size())));
  auto st = session_.device().state();
  st.makePickerInfo = session_.pickerInfoFor(choice);
  session_.device().setState(std::move(st));
  if (!session_.device().finishPicker()) {
    std::string why = "the picker did not take the file";
    for (const auto& e : session_.device().events()->events())
      if (e["event"] == "pickerFailed") why = e["error"].get<std::string>();
    if (auto refused = session_.device().pickerRefusal()) why = *refused;
    return Status::invalidArgument(why);
  }
  return nlohmann::json{{"finished", true}, {"before", kind == "photo" ? metadataOf(bytes) : nlohmann::json::object()}};
}

StatusOr<nlohmann::json> WebBridge::pickAsset(const nlohmann::json& request) {
  RETURN_IF_ERROR(requireObject(request));
  const auto asset = request.find("asset");
  if (asset == request.end() || !asset->is_string()) return Status::invalidArgument("\"asset\" must be a string");
  ASSIGN_OR_RETURN(auto found, session_.library().asset(asset->get<std::string>()));
  (void)found;
  SimPickerChoice choice;
  choice.kind = SimPickerChoice::Kind::pick;
  choice.asset = asset->get<std::string>();
  auto st = session_.device().state();
  st.makePickerInfo = session_.pickerInfoFor(choice);
  session_.device().setState(std::move(st));
  if (!session_.device().finishPicker()) {
    if (auto refused = session_.device().pickerRefusal()) return Status::invalidArgument(*refused);
    return Status::failedPrecondition("no picker is on the screen");
  }
  return nlohmann::json{{"finished", true}};
}

StatusOr<nlohmann::json> WebBridge::cancelPicker() {
  if (!session_.device().cancelPicker()) return Status::failedPrecondition("no picker is on the screen");
  return nlohmann::json{{"cancelled", true}};
}

StatusOr<nlohmann::json> WebBridge::tapAlert(const nlohmann::json& request) {
  RETURN_IF_ERROR(requireObject(request));
  const auto button = request.find("button");
  if (button == request.end() || !button->is_string()) return Status::invalidArgument("\"button\" must be a string");
  if (!session_.device().tapAlertButton(button->get<std::string>()))
    return Status::failedPrecondition("no alert with that button is on the screen");
  return nlohmann::json{{"tapped", button->get<std::string>()}};
}

StatusOr<nlohmann::json> WebBridge::deliverFix(const nlohmann::json& request) {
  RETURN_IF_ERROR(requireObject(request));
  LocationFix fix;
  const auto number = [&](const char* key, double lo, double hi, double& out) -> Status {
    const auto v = request.find(key);
    if (v == request.end() || !v->is_number() || !std::isfinite(v->get<double>()) || v->get<double>() < lo ||
        v->get<double>() > hi)
      return Status::invalidArgument(std::string("\"") + key + "\" must be a number from " + std::to_string(lo) +
                                     " to " + std::to_string(hi));
    out = v->get<double>();
    return Status::okStatus();
  };
  RETURN_IF_ERROR(number("latitude", -90, 90, fix.latitude));
  RETURN_IF_ERROR(number("longitude", -180, 180, fix.longitude));
  if (request.contains("altitude") && !request["altitude"].is_null())
    RETURN_IF_ERROR(number("altitude", -1e5, 1e6, fix.altitude));
  fix.timestamp = std::chrono::system_clock::now();
  session_.location().deliverNow(fix);
  return nlohmann::json{{"delivered", true}, {"waitingManagers", session_.location().startedManagers()}};
}

StatusOr<nlohmann::json> WebBridge::configureDevice(const nlohmann::json& request) {
  RETURN_IF_ERROR(requireObject(request));
  auto st = session_.device().state();
  for (const auto& [key, value] : request.items()) {
    if (key == "cameraAccess") {
      ASSIGN_OR_RETURN(st.cameraAccess, accessFrom(value, key));
    } else if (key == "libraryAccess") {
      ASSIGN_OR_RETURN(st.libraryAccess, accessFrom(value, key));
    } else if (key == "libraryAnswer") {
      ASSIGN_OR_RETURN(st.libraryRequestAnswer, accessFrom(value, key));
    } else if (key == "cameraAnswer") {
      if (value != "granted" && value != "denied") return Status::invalidArgument("cameraAnswer: granted or denied");
      st.cameraRequestGranted = value == "granted";
    } else if (key == "sources") {
      if (!value.is_array()) return Status::invalidArgument("\"sources\" must be an array");
      st.availableSources.clear();
      for (const auto& s : value) {
        const auto it = s.is_string() ? sourceNames().find(s.get<std::string>()) : sourceNames().end();
        if (it == sourceNames().end())
          return Status::invalidArgument("sources: photoLibrary, camera or savedPhotosAlbum");
        st.availableSources.insert(it->second);
      }
    } else {
      return Status::invalidArgument("unknown device setting \"" + key + "\"");
    }
  }
  session_.device().setState(std::move(st));
  return deviceSettings();
}

StatusOr<nlohmann::json> WebBridge::library() const {
  ASSIGN_OR_RETURN(auto records, session_.library().list());
  auto out = nlohmann::json::array();
  for (const auto& r : records)
    out.push_back({{"localIdentifier", r.localIdentifier},
                   {"extension", r.extension},
                   {"video", r.video},
                   {"size", r.size},
                   {"file", r.file},
                   {"referenceUrl", r.referenceUrl().absoluteString()}});
  return out;
}

nlohmann::json WebBridge::metadataOf(const std::string& bytes) {
  auto properties = ImageMetadata::read(std::span(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()));
  if (!properties.ok()) return nlohmann::json::object();
  return dictionaryToJson(*properties);
}

}  // namespace velqor
