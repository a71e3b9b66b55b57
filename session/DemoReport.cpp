#include "session/DemoReport.h"

#include <cstdio>
#include <filesystem>
#include <sstream>

#include "host/FileBytes.h"
#include "session/HtmlText.h"
#include "session/MediaFacts.h"
#include "session/ReportStyle.h"
#include "session/ScenarioWords.h"

namespace velqor {
namespace fs = std::filesystem;
using json = nlohmann::ordered_json;

namespace {

const auto& esc = HtmlText::escape;

std::string text(const json& v) { return v.is_string() ? v.get<std::string>() : v.dump(); }

std::string verdict(const ScenarioResult& r) {
  if (!r.error.empty()) return "<span class=\"verdict fail\">not run</span>";
  return r.passed ? "<span class=\"verdict pass\">pass</span>" : "<span class=\"verdict fail\">fail</span>";
}

// The picker as the user saw it.
std::string pickerCard(const json& e) {
  const auto source = e.value("source", json(-1));
  const bool camera = source == 1;
  std::ostringstream card;
  card << "<div class=\"screen-card\"><div class=\"card-title\">"
       << (camera ? "Camera" : source == 0 ? "Photo library" : source == 2 ? "Saved photos" : "Picker") << "</div>";
  std::string media;
  for (const auto& m : e.value("mediaTypes", json::array())) media += (media.empty() ? "" : ", ") + text(m);
  card << "<div>shows " << esc(media.empty() ? "nothing" : media) << "</div>";
  if (camera)
    card << "<div>" << (e.value("captureMode", json(0)) == 1 ? "video" : "photo") << " capture, "
         << (e.value("cameraDevice", json(0)) == 1 ? "front" : "rear") << " camera</div>";
  card << "<div>" << (e.value("allowsEditing", false) ? "editing allowed" : "no editing") << "</div>";
  return card.str();
}

// An alert with its buttons; `tapped` is the title the user chose, if any.
std::string alertCard(const json& e, const std::string& tapped) {
  std::ostringstream card;
  card << "<div class=\"screen-card alert\"><div class=\"card-title\">" << esc(text(e.value("title", json("")))) << "</div>"
       << "<div class=\"message\">" << esc(text(e.value("message", json("")))) << "</div><div class=\"alert-buttons\">";
  const json buttons = e.value("buttons", json::array());
  const json styles = e.value("buttonStyles", json::array());
  for (size_t i = 0; i < buttons.size(); ++i) {
    const std::string style = i < styles.size() ? text(styles[i]) : "default";
    card << "<span class=\"alert-button" << (text(buttons[i]) == tapped ? " tapped" : "") << "\" data-style=\""
         << esc(style) << "\">" << esc(text(buttons[i])) << "</span>";
  }
  card << "</div>";
  return card.str();
}

// What the phone's screen showed, one card per picker or alert, each closed
// with what became of it; then every event in order.
std::string screenStrip(const json& events) {
  std::ostringstream out;
  std::string open;  // the card whose ending is not known yet
  const auto finish = [&](const std::string& ending) {
    if (open.empty()) return;
    out << open << "<div class=\"card-end\">" << esc(ending) << "</div></div>";
    open.clear();
  };
  for (size_t i = 0; i < events.size(); ++i) {
    const std::string name = text(events[i].value("event", json("")));
    if (name == "pickerPresented") {
      finish("");
      open = pickerCard(events[i]);
    } else if (name == "alertShown") {
      finish("");
      std::string tapped;
      for (size_t j = i + 1; j < events.size() && tapped.empty(); ++j)
        if (events[j].value("event", json("")) == "alertTapped") tapped = text(events[j].value("button", json("")));
      open = alertCard(events[i], tapped);
    } else if (name == "pickerFinished" || name == "pickerCancelled" || name == "pickerFailed") {
      finish(name == "pickerFinished" ? "→ the user finished it" : name == "pickerCancelled" ? "→ the user cancelled" : "→ it failed: " + text(events[i].value("error", json(""))));
    } else if (name == "alertTapped") {
      finish("→ tapped “" + text(events[i].value("button", json(""))) + "”");
    }
  }
  finish("→ still on the screen");
  std::string cards = out.str();
  std::ostringstream strip;
  strip << "<div class=\"strip\">" << (cards.empty() ? "<p class=\"quiet\">Nothing was shown.</p>" : cards) << "</div>";
  if (!events.empty()) {
    strip << "<p class=\"timeline\">";
    for (size_t i = 0; i < events.size(); ++i)
      strip << (i ? " → " : "") << "<span>" << esc(text(events[i].value("event", json("")))) << "</span>";
    strip << "</p>";
  }
  return strip.str();
}

std::string callsTable(const json& steps) {
  std::ostringstream out;
  out << "<table class=\"steps\"><tr><th>call</th><th>label</th><th>options</th><th>time</th></tr>";
  for (const auto& s : steps) {
    char ms[32];
    std::snprintf(ms, sizeof ms, "%.0f ms", s.value("milliseconds", 0.0));
    out << "<tr><td><code>" << esc(text(s.value("call", json("")))) << "</code></td><td>" << esc(text(s.value("label", json(""))))
        << "</td><td>" << (s.contains("options") ? esc(ScenarioWords::options(s["options"])) : "—") << "</td><td>" << ms << "</td></tr>";
  }
  return out.str() + "</table>";
}

std::string answersList(const ScenarioResult& r) {
  std::ostringstream out;
  out << "<ul class=\"answers\">";
  for (const auto& a : r.answers) {
    const bool ok = a.value("status", "") == "OK";
    out << "<li class=\"" << (ok ? "ok" : "err") << "\"><b>" << esc(text(a.value("command", json("?")))) << "</b> "
        << esc(ScenarioWords::answer(a)) << "<div class=\"raw\">"
        << HtmlText::folded(a.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace)) << "</div></li>";
  }
  for (const auto& o : r.open) {
    const auto colon = o.find(": ");
    out << "<li class=\"open\"><b>" << esc(o.substr(0, colon)) << "</b> stays open: "
        << esc(colon == std::string::npos ? std::string() : o.substr(colon + 2)) << "</li>";
  }
  for (const auto& w : r.watchdog) out << "<li class=\"err\">" << esc(w) << "</li>";
  if (r.answers.empty() && r.open.empty()) out << "<li class=\"quiet\">No command was answered or left open.</li>";
  return out.str() + "</ul>";
}

// One input or output: its thumbnail beside what it is.
std::string mediaFigure(const std::string& path, const std::string& directory, int& thumbs) {
  const MediaFacts facts = MediaFacts::of(path);
  std::ostringstream out;
  out << "<figure>";
  const std::string thumb = "thumb-" + std::to_string(thumbs) + ".jpg";
  const bool picture = facts.kind == MediaFacts::Kind::image || facts.kind == MediaFacts::Kind::movie;
  if (picture && MediaFacts::writeThumbnail(path, directory + "/" + thumb)) {
    ++thumbs;
    out << "<img src=\"" << thumb << "\" alt=\"" << esc(fs::path(path).filename().string()) << "\">";
  } else {
    out << "<div class=\"tile\">" << (facts.kind == MediaFacts::Kind::movie ? "movie" : "file") << "</div>";
  }
  out << "<figcaption><code title=\"" << esc(path) << "\">" << esc(fs::path(path).filename().string())
      << "</code><br>" << esc(facts.describe());
  if (!facts.metadata.empty()) out << "<div class=\"raw\">" << HtmlText::folded(facts.metadata.dump(), 90) << "</div>";
  out << "</figcaption></figure>";
  return out.str();
}

std::string mediaColumns(const ScenarioResult& r, const std::string& directory, int& thumbs) {
  if (r.inputs.empty() && r.outputs.empty()) return {};
  std::ostringstream out;
  out << "<h3>Inputs and outputs</h3><div class=\"media\">";
  for (const auto& [title, files] : {std::pair{"In: what the user gave", &r.inputs}, std::pair{"Out: what the plug-in wrote", &r.outputs}}) {
    out << "<div class=\"column\"><h4>" << title << "</h4>";
    if (files->empty()) out << "<p class=\"quiet\">none</p>";
    for (const auto& f : *files) out << mediaFigure(f, directory, thumbs);
    out << "</div>";
  }
  return out.str() + "</div>";
}

std::string scenarioSection(const ScenarioResult& r, const std::string& directory, int& thumbs) {
  std::ostringstream out;
  out << "<section class=\"scenario " << (r.passed ? "passed" : "failed") << "\" id=\"" << esc(r.name) << "\"><h2>"
      << esc(r.name) << " " << verdict(r) << "</h2><p class=\"description\">" << esc(r.description) << "</p>";
  if (!r.differences.empty()) {
    out << "<div class=\"problems\"><b>" << (r.error.empty() ? "Not as expected" : "Could not be run") << "</b><ul>";
    for (const auto& d : r.differences) out << "<li>" << HtmlText::folded(d, 300) << "</li>";
    out << "</ul></div>";
  }
  if (!r.error.empty()) return out.str() + "</section>";
  const auto actions = ScenarioWords::userActions(r);
  out << "<p class=\"summary\">" << esc(ScenarioWords::summary(r)) << "</p><div class=\"facts\"><div><h3>Device</h3><p>"
      << esc(ScenarioWords::device(r.device)) << "</p></div><div><h3>The user</h3>";
  if (actions.empty()) out << "<p class=\"quiet\">does nothing</p>";
  else {
    out << "<ul>";
    for (const auto& a : actions) out << "<li>" << esc(a) << "</li>";
    out << "</ul>";
  }
  out << "</div></div><h3>Calls</h3>" << callsTable(r.steps) << "<h3>What the screen showed</h3>" << screenStrip(r.events)
      << "<h3>What came back</h3>" << answersList(r) << mediaColumns(r, directory, thumbs);
  return out.str() + "</section>";
}

}  // namespace

StatusOr<std::string> DemoReport::write(const std::vector<ScenarioResult>& results, const std::string& directory) {
  std::error_code ec;
  fs::create_directories(directory, ec);
  if (ec) return Status::unavailable("cannot create " + directory + ": " + ec.message());
  size_t passed = 0;
  for (const auto& r : results) passed += r.passed ? 1 : 0;
  std::ostringstream html;
  html << "<!doctype html><html lang=\"en\"><head><meta charset=\"utf-8\"><meta name=\"viewport\" "
          "content=\"width=device-width, initial-scale=1\"><title>VelqorCamera demo</title><style>"
       << ReportStyle::css() << "</style></head><body><header><h1>VelqorCamera demo</h1><p class=\"count\">"
       << results.size() << " scenarios: " << passed << " passed, " << results.size() - passed
       << " failed</p></header><table class=\"index\"><tr><th>scenario</th><th>verdict</th><th>in short</th></tr>";
  for (const auto& r : results)
    html << "<tr class=\"" << (r.passed ? "passed" : "failed") << "\"><td><a href=\"#" << esc(r.name) << "\">" << esc(r.name)
         << "</a></td><td>" << verdict(r) << "</td><td>" << esc(ScenarioWords::cameBack(r)) << "</td></tr>";
  html << "</table>";
  int thumbs = 0;
  for (const auto& r : results) html << scenarioSection(r, directory, thumbs);
  html << "</body></html>\n";
  const std::string path = fs::absolute(directory + "/index.html").lexically_normal().string();
  const std::string page = html.str();
  RETURN_IF_ERROR(FileBytes::writeAtomically(path, std::span(reinterpret_cast<const std::uint8_t*>(page.data()), page.size())));
  return path;
}

}  // namespace velqor
