#include "web/WebBridge.h"
#include "web/IsoTime.h"

#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <map>
#include <algorithm>
#include <vector>

#include "host/FileBytes.h"
#include "host/ValueJson.h"
#include "platform/AlertController.h"
#include "platform/ImagePickerController.h"
#include "imaging/metadata/ImageMetadata.h"
#include "platform/sim/AccessStateNames.h"

namespace velqor {
namespace {

// The largest library file whose metadata the bridge reads for the page.
constexpr size_t kMaxMetadataBytes = size_t{256} << 20;

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

// An edit rectangle "x,y,w,h" in upright pixels; none for an empty text.
StatusOr<std::optional<std::array<double, 4>>> editFrom(const std::string& edit) {
  if (edit.empty()) return std::optional<std::array<double, 4>>();
  std::array<double, 4> r{};
  char tail = 0;
  if (std::sscanf(edit.c_str(), "%lf,%lf,%lf,%lf%c", &r[0], &r[1], &r[2], &r[3], &tail) != 4 ||
      !std::all_of(r.begin(), r.end(), [](double v) { return std::isfinite(v) && v >= 0 && v <= 1e6; }) || r[2] <= 0 ||
      r[3] <= 0)
    return Status::invalidArgument("\"edit\" must be x,y,width,height with a positive size");
  return std::optional(r);
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
  const size_t eventsFrom = session_.device().events()->total();
  const auto id = session_.host().callCommand(name + ":", std::move(args));
  if (!id) return Status::invalidArgument("the plug-in has no command operation \"" + name + "\"");
  // Answered commands need no explanation any more; a page left open for days
  // keeps only the most recent unanswered ones.
  constexpr size_t kKeptOpen = 64;
  const auto& answers = *session_.host().answers();
  std::erase_if(started_, [&](const Started& c) { return answers.isAnswered(c.callbackId); });
  if (started_.size() >= kKeptOpen) started_.erase(started_.begin());
  started_.push_back({*id, name, eventsFrom});
  return nlohmann::json{{"callbackId", *id}};
}

nlohmann::json WebBridge::state(size_t answersFrom, size_t eventsFrom) {
  nlohmann::json out;
  out["answers"] = answerSummaries(answersFrom);
  out["answerCount"] = summaryBase_ + summaries_.size();
  // Events may arrive from other threads meanwhile: the list and the count
  // are taken again until they agree, so a page resuming from the count
  // neither misses nor repeats one.
  const auto& events = *session_.device().events();
  size_t count = events.total();
  auto kept = events.eventsFrom(eventsFrom);
  for (size_t again = events.total(); again != count; again = events.total()) {
    count = again;
    kept = events.eventsFrom(eventsFrom);
  }
  auto eventList = nlohmann::json::array();
  for (const auto& e : kept) eventList.push_back(plain(e));
  out["eventCount"] = count;
  out["events"] = std::move(eventList);
  out["screen"] = screen();
  out["device"] = deviceSettings();
  out["locationStarted"] = session_.location().startedManagers();
  out["open"] = openCommands();
  return out;
}

nlohmann::json WebBridge::answerSummaries(size_t from) {
  // A summary costs one serialization of the payload (for its size), so each
  // answer is summarized once; a page left open keeps only the recent ones.
  constexpr size_t kKeptSummaries = 4096;
  constexpr size_t kNoteBytes = 200;
  const auto& log = *session_.host().answers();
  const size_t total = log.size();
  for (size_t i = std::max(summaryBase_ + summaries_.size(), total > kKeptSummaries ? total - kKeptSummaries : 0);
       i < total; ++i) {
    if (summaries_.empty()) summaryBase_ = i;
    nlohmann::json summary{{"index", i}, {"status", "GONE"}, {"keepCallback", false}, {"size", 0}};
    if (const auto answer = log.answerAt(i)) {
      const auto whole = answer->toJson();
      summary["callbackId"] = answer->callbackId;
      summary["status"] = whole["status"];
      summary["keepCallback"] = answer->keepCallback;
      summary["afterFinal"] = answer->afterFinal;
      // Milliseconds since the epoch, so a page on this machine can tell how long the answer took to reach it.
      summary["answeredAt"] =
          std::chrono::duration<double, std::milli>(answer->recordedAt.time_since_epoch()).count();
      summary["size"] = whole["payload"].dump(-1, ' ', false, nlohmann::json::error_handler_t::replace).size();
      if (answer->status != CommandStatus::OK) {
        std::string note = answer->messageText();
        if (note.size() > kNoteBytes) note = note.substr(0, kNoteBytes) + "…";
        if (!note.empty()) summary["note"] = note;
      }
      // Why an image came back empty, beside its answer (the plug-in itself says nothing).
      if (auto note = session_.noteForAnswer(i)) summary["note"] = *note;
    }
    summaries_.push_back(std::move(summary));
  }
  while (summaries_.size() > kKeptSummaries) {
    summaries_.pop_front();
    ++summaryBase_;
  }
  auto list = nlohmann::json::array();
  for (size_t i = std::max(from, summaryBase_); i < summaryBase_ + summaries_.size(); ++i)
    list.push_back(summaries_[i - summaryBase_]);
  return list;
}

StatusOr<std::string> WebBridge::answerText(size_t index) const {
  const auto answer = session_.host().answers()->answerAt(index);
  if (!answer) return Status::notFound("no answer " + std::to_string(index) + " is kept");
  auto whole = answer->toJson();
  whole["callbackId"] = answer->callbackId;
  return whole.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

void WebBridge::watch(std::function<void()> changed) {
  if (!changed) {
    session_.host().answers()->setListener(nullptr);
    session_.device().events()->setListener(nullptr);
    return;
  }
  session_.host().answers()->setListener([changed](const Answer&) { changed(); });
  session_.device().events()->setListener([changed](const nlohmann::ordered_json&) { changed(); });
}

nlohmann::json WebBridge::screen() const {
  nlohmann::json out{{"alert", nullptr}, {"picker", nullptr}};
  auto stack = nlohmann::json::array();
  for (const auto& vc : session_.device().onScreen()) {
    auto described = plain(SimDevice::describe(*vc));
    if (const auto alert = std::dynamic_pointer_cast<AlertController>(vc)) {
      auto buttons = nlohmann::json::array();
      for (const auto& a : alert->actions())
        buttons.push_back({{"title", a.title},
                           {"style", a.style == AlertController::actionStyleCancel ? "cancel"
                                     : a.style == 2                                   ? "destructive"
                                                                                      : "default"}});
      out["alert"] = {{"title", alert->title()}, {"message", alert->message()}, {"buttons", std::move(buttons)}};
    } else if (std::dynamic_pointer_cast<ImagePickerController>(vc)) {
      out["picker"] = described;
    }
    stack.push_back(std::move(described));
  }
  // The settings page opened from an alert since the newest command started.
  const size_t since = started_.empty() ? 0 : started_.back().eventsFrom;
  bool settings = false;
  for (const auto& e : session_.device().events()->eventsFrom(since))
    if (e["event"] == "settingsOpened") settings = true;
  out["settingsOpened"] = settings;
  out["stack"] = std::move(stack);
  return out;
}

nlohmann::json WebBridge::openCommands() const {
  const auto& answers = *session_.host().answers();
  auto open = nlohmann::json::array();
  // Only the newest takePicture is the plug-in's current command: an older
  // one that is still open was replaced and can never be answered.
  const Started* current = nullptr;
  for (const auto& c : started_)
    if (c.operation == "takePicture" && !answers.isAnswered(c.callbackId)) current = &c;
  for (const auto& c : started_) {
    if (answers.isAnswered(c.callbackId)) continue;
    const auto entry = [&](const std::string& reason, OpenReason::NextStep next) {
      return nlohmann::json{{"command", c.callbackId},
                            {"operation", c.operation},
                            {"reason", reason},
                            {"action", OpenReason::stepName(next)}};
    };
    if (&c != current) {
      open.push_back(entry("a later takePicture replaced it as the plug-in's current command; it will never be answered",
                           OpenReason::NextStep::none));
      continue;
    }
    for (const auto& r : session_.openReasons(c.eventsFrom)) open.push_back(entry(r.explanation, r.next));
  }
  return open;
}

nlohmann::json WebBridge::deviceSettings() const {
  const auto st = session_.device().state();
  auto sources = nlohmann::json::array();
  for (auto s : st.availableSources) sources.push_back(nameOf(sourceNames(), s));
  return {{"cameraAccess", nameOf(accessStateNames(), st.cameraAccess)},
          {"libraryAccess", nameOf(accessStateNames(), st.libraryAccess)},
          {"cameraAnswer", st.cameraRequestGranted ? "granted" : "denied"},
          {"libraryAnswer", nameOf(accessStateNames(), st.libraryRequestAnswer)},
          {"sources", std::move(sources)},
          {"hasViewController", session_.hasViewController()},
          {"languages", session_.languages()}};
}

StatusOr<nlohmann::json> WebBridge::finishPickerWithFile(const std::string& kind, const std::string& name,
                                                        const std::string& bytes, const std::string& edit) {
  const std::string path = uploads_ + "/chosen-" + std::to_string(++uploadCount_) + "." + extensionOf(name);
  RETURN_IF_ERROR(FileBytes::writeAtomically(path, std::span(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size())));
  return finishPickerWithUpload(kind, name, path, edit);
}

StatusOr<nlohmann::json> WebBridge::finishPickerWithUpload(const std::string& kind, const std::string& name,
                                                          const std::string& path, const std::string& edit) {
  // However the picker ends, the upload is not needed afterwards: a photo is
  // read into memory and a movie copied into the temporary folder first.
  struct RemoveUpload {
    const std::string& path;
    ~RemoveUpload() { ::unlink(path.c_str()); }
  } removeUpload{path};
  SimPickerChoice choice;
  if (kind == "photo")
    choice.kind = SimPickerChoice::Kind::photo;
  else if (kind == "video")
    choice.kind = SimPickerChoice::Kind::video;
  else
    return Status::invalidArgument("\"kind\" must be photo or video");
  std::error_code ec;
  if (std::filesystem::file_size(path, ec) == 0 || ec) return Status::invalidArgument("the chosen file is empty");
  ASSIGN_OR_RETURN(choice.edit, editFrom(edit));
  bool pickerShown = false;
  for (const auto& vc : session_.device().onScreen())
    if (std::dynamic_pointer_cast<ImagePickerController>(vc)) pickerShown = true;
  if (!pickerShown) return Status::failedPrecondition("no picker is on the screen");

  // The picker reads the file by its name: keep the extension the user's file had.
  choice.file = uploads_ + "/chosen-" + std::to_string(++uploadCount_) + "." + extensionOf(name);
  if (std::rename(path.c_str(), choice.file.c_str()) != 0)
    return Status::unavailable("cannot take the upload: " + std::string(std::strerror(errno)));
  const RemoveUpload removeChosen{choice.file};
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
  nlohmann::json before = nlohmann::json::object();
  if (kind == "photo") {
    auto bytes = FileBytes::read(choice.file, size_t{64} << 20);
    if (bytes.ok()) before = metadataOf(std::string(bytes->begin(), bytes->end()));
  }
  return nlohmann::json{{"finished", true}, {"before", before}};
}

StatusOr<nlohmann::json> WebBridge::pickAsset(const nlohmann::json& request) {
  RETURN_IF_ERROR(requireObject(request));
  const auto asset = request.find("asset");
  if (asset == request.end() || !asset->is_string()) return Status::invalidArgument("\"asset\" must be a string");
  const auto edit = request.find("edit");
  if (edit != request.end() && !edit->is_string()) return Status::invalidArgument("\"edit\" must be a string x,y,w,h");
  ASSIGN_OR_RETURN(std::shared_ptr<Asset> found, session_.library().asset(asset->get<std::string>()));
  SimPickerChoice choice;
  choice.kind = SimPickerChoice::Kind::pick;
  choice.asset = asset->get<std::string>();
  ASSIGN_OR_RETURN(choice.edit, editFrom(edit == request.end() ? std::string() : edit->get<std::string>()));
  auto st = session_.device().state();
  st.makePickerInfo = session_.pickerInfoFor(choice);
  session_.device().setState(std::move(st));
  if (!session_.device().finishPicker()) {
    if (auto refused = session_.device().pickerRefusal()) return Status::invalidArgument(*refused);
    return Status::failedPrecondition("no picker is on the screen");
  }
  nlohmann::json before = nlohmann::json::object();
  if (!found->isVideo())
    if (auto bytes = FileBytes::read(found->filePath(), kMaxMetadataBytes); bytes.ok())
      before = metadataOf(std::string(bytes->begin(), bytes->end()));
  return nlohmann::json{{"finished", true}, {"before", std::move(before)}};
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
  if (request.contains("timestamp") && !request["timestamp"].is_null()) {
    const auto& t = request["timestamp"];
    auto when = t.is_string() ? IsoTime::parse(t.get<std::string>()) : std::nullopt;
    if (!when) return Status::invalidArgument("\"timestamp\" must be an ISO-8601 time, like 2026-05-01T12:30:00Z");
    fix.timestamp = *when;
  }
  session_.location().deliverNow(fix);
  return nlohmann::json{{"delivered", true}, {"waitingManagers", session_.location().startedManagers()}};
}

StatusOr<nlohmann::json> WebBridge::configureDevice(const nlohmann::json& request) {
  RETURN_IF_ERROR(requireObject(request));
  auto st = session_.device().state();
  std::optional<bool> hasViewController;
  std::optional<std::vector<std::string>> languages;
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
    } else if (key == "languages") {
      // Language tags as a phone lists them: "fr", "pt-BR", "zh-Hant-TW".
      const auto tag = [](const nlohmann::json& t) {
        if (!t.is_string()) return false;
        const auto& v = t.get_ref<const std::string&>();
        return !v.empty() && v.size() <= 35 && std::isalpha(static_cast<unsigned char>(v[0])) &&
               std::all_of(v.begin(), v.end(), [](unsigned char c) { return std::isalnum(c) || c == '-' || c == '_'; });
      };
      if (!value.is_array() || value.size() > 16 || !std::all_of(value.begin(), value.end(), tag))
        return Status::invalidArgument("\"languages\" must be a list of up to 16 language tags, like [\"fr\", \"pt-BR\"]");
      languages = value.get<std::vector<std::string>>();
    } else if (key == "hasViewController") {
      if (!value.is_boolean()) return Status::invalidArgument("\"hasViewController\" must be true or false");
      hasViewController = value.get<bool>();
    } else {
      return Status::invalidArgument("unknown device setting \"" + key + "\"");
    }
  }
  session_.device().setState(std::move(st));
  if (hasViewController) session_.setHasViewController(*hasViewController);
  if (languages) session_.setLanguages(std::move(*languages));
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
