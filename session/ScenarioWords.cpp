#include "session/ScenarioWords.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>

namespace velqor {
using json = nlohmann::ordered_json;

namespace {

std::string joined(const std::vector<std::string>& parts, const std::string& separator) {
  std::string out;
  for (const auto& p : parts) out += (out.empty() ? "" : separator) + p;
  return out;
}

std::string text(const json& v) { return v.is_string() ? v.get<std::string>() : v.dump(); }

std::string number(const json& v) {
  if (!v.is_number()) return text(v);
  char out[32];
  std::snprintf(out, sizeof out, "%g", v.get<double>());
  return out;
}

// "$photo" names an input made for the run; anything else is a file name.
std::string fileWord(const json& v) {
  const std::string s = text(v);
  return s.starts_with("$") ? "the sample " + s.substr(1) : std::filesystem::path(s).filename().string();
}

std::string withCommas(size_t n) {
  std::string digits = std::to_string(n);
  for (int i = static_cast<int>(digits.size()) - 3; i > 0; i -= 3) digits.insert(static_cast<size_t>(i), ",");
  return digits;
}

}  // namespace

std::string ScenarioWords::device(const json& d) {
  std::vector<std::string> facts;
  if (d.contains("sources")) {
    std::vector<std::string> names;
    for (const auto& s : d["sources"]) names.push_back(text(s));
    facts.push_back(names.empty() ? "no picture sources at all" : "sources: " + joined(names, ", ") + " only");
  }
  if (d.contains("cameraAccess")) facts.push_back("camera access " + text(d["cameraAccess"]));
  if (d.contains("libraryAccess")) facts.push_back("library access " + text(d["libraryAccess"]));
  if (d.contains("cameraAnswer")) facts.push_back("asked for the camera, the user answers " + text(d["cameraAnswer"]));
  if (d.contains("libraryAnswer")) facts.push_back("asked for the library, the user answers " + text(d["libraryAnswer"]));
  if (d.value("viewController", true) == false) facts.push_back("the host has no view controller");
  if (d.value("settingsPage", true) == false) facts.push_back("no settings page");
  if (d.contains("language")) facts.push_back("language " + text(d["language"]));
  if (d.contains("bundle")) facts.push_back(d["bundle"] == "none" ? "no strings bundle" : "strings bundle " + fileWord(d["bundle"]));
  if (d.contains("fileUrlPrefix")) facts.push_back("the host rewrites file URLs under " + text(d["fileUrlPrefix"]));
  return facts.empty() ? "an ordinary phone: camera and library present, access granted" : joined(facts, "; ");
}

std::vector<std::string> ScenarioWords::userActions(const ScenarioResult& r) {
  std::vector<std::string> out;
  const json& u = r.user;
  if (u.contains("photo")) out.push_back("takes a photo (" + fileWord(u["photo"]) + ")");
  if (u.contains("video")) out.push_back("records a video (" + fileWord(u["video"]) + ")");
  if (u.contains("pick")) out.push_back("picks " + fileWord(u["pick"]) + " from the library");
  if (u.contains("edit") && u["edit"].is_array() && u["edit"].size() == 4) {
    const auto& e = u["edit"];
    out.push_back("crops it to " + number(e[2]) + " × " + number(e[3]) + " at (" + number(e[0]) + ", " + number(e[1]) + ")");
  }
  if (u.value("cancel", false)) out.push_back("cancels the picker");
  if (u.contains("tap")) out.push_back("taps “" + text(u["tap"]) + "” on the alert");
  for (const auto& fix : r.location) {
    if (!fix.is_array() || fix.size() < 2) continue;
    std::string where = number(fix[0]) + ", " + number(fix[1]);
    if (fix.size() > 2 && fix[2].is_number()) where += ", " + number(fix[2]) + " m";
    out.push_back("a location fix arrives at " + where);
  }
  return out;
}

std::string ScenarioWords::options(const json& o) {
  std::vector<std::string> parts{"quality " + number(o.value("quality", json(50)))};
  for (const char* key : {"destinationType", "sourceType", "encodingType", "mediaType"})
    if (o.contains(key)) parts.push_back(text(o[key]));
  if (o.contains("targetSize") && o["targetSize"].is_array())
    parts.push_back("fit in " + number(o["targetSize"][0]) + " × " + number(o["targetSize"][1]));
  if (o.value("cameraDirection", "BACK") == "FRONT") parts.push_back("FRONT camera");
  for (const auto& [key, word] : {std::pair{"allowsEditing", "editing"}, std::pair{"correctOrientation", "correct orientation"},
                                  std::pair{"saveToPhotoAlbum", "save to album"}, std::pair{"usesGeolocation", "with location"}})
    if (o.value(key, false)) parts.push_back(word);
  return joined(parts, " · ");
}

std::string ScenarioWords::answer(const json& a) {
  const std::string status = a.value("status", "");
  const json payload = a.value("payload", json());
  std::string message;
  if (payload.is_string()) message = payload.get<std::string>();
  if (payload.is_object() && payload.contains("errorMsg")) message = text(payload["errorMsg"]);
  if (status != "OK") return status + (message.empty() ? "" : ": “" + message + "”");
  if (!payload.is_object() || !payload.contains("callbackURI")) return message.empty() ? "OK" : "OK: “" + message + "”";
  const std::string uri = text(payload["callbackURI"]);
  const auto comma = uri.find(',');
  if (uri.starts_with("data:") && comma != std::string::npos) {
    const std::string type = uri.substr(5, uri.find(';') - 5);
    return "a data URL (" + type + ", " + withCommas(uri.size() - comma - 1) + " characters of base64)";
  }
  if (uri.find("assets-library://") != std::string::npos) return "a photo-library URI (" + uri.substr(uri.find("assets-library://")) + ")";
  return "a file URI (" + std::filesystem::path(uri).filename().string() + ")";
}

std::string ScenarioWords::cameBack(const ScenarioResult& r) {
  if (!r.error.empty()) return "could not be run: " + r.error;
  std::vector<std::string> parts;
  for (const auto& a : r.answers) parts.push_back(text(a.value("command", json("?"))) + ": " + answer(a));
  std::vector<std::string> shown;  // one line per open command, its first reason
  for (const auto& o : r.open) {
    const std::string label = o.substr(0, o.find(": "));
    if (std::find(shown.begin(), shown.end(), label) != shown.end()) continue;
    shown.push_back(label);
    parts.push_back(label + " stays open (" + o.substr(std::min(o.size(), label.size() + 2)) + ")");
  }
  return parts.empty() ? "nothing" : joined(parts, "; ");
}

std::string ScenarioWords::summary(const ScenarioResult& r) {
  if (!r.error.empty()) return "Not run: " + r.error;
  const auto actions = userActions(r);
  return "Device: " + device(r.device) + ". The user " + (actions.empty() ? "does nothing" : joined(actions, ", ")) +
         ". Came back: " + cameBack(r) + ".";
}

}  // namespace velqor
