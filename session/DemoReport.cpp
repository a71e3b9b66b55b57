#include "session/DemoReport.h"

#include <filesystem>
#include <fstream>
#include <sstream>

#include "host/FileBytes.h"
#include "host/ValueJson.h"
#include "platform/linux/ImageMetadata.h"
#include "platform/linux/LinuxImageCodec.h"
#include "results/ImageGeometry.h"

namespace velqor {
namespace fs = std::filesystem;

namespace {

std::string escape(const std::string& s) {
  std::string out;
  for (char c : s) {
    switch (c) {
      case '<': out += "&lt;"; break;
      case '>': out += "&gt;"; break;
      case '&': out += "&amp;"; break;
      case '"': out += "&quot;"; break;
      default: out += c;
    }
  }
  return out;
}

bool isImage(const std::string& path) {
  auto ext = fs::path(path).extension().string();
  return ext == ".jpg" || ext == ".png" || ext == ".jpeg";
}

// A 240-pixel thumbnail made with the project's own pipeline; its file name.
std::string thumbnail(const std::string& path, const std::string& dir, int index) {
  LinuxImageCodec codec;
  auto bytes = FileBytes::read(path, 256u << 20);
  if (!bytes.ok()) return {};
  auto image = codec.imageWithData(std::make_shared<const Bytes>(std::move(*bytes)));
  if (!image) return {};
  auto small = ImageGeometry::imageByScalingNotCroppingForSize(*image, {240, 240});
  if (!small) return {};
  auto jpeg = codec.jpegRepresentation(*small, 0.8);
  if (!jpeg) return {};
  const std::string name = "thumb-" + std::to_string(index) + ".jpg";
  if (!FileBytes::writeAtomically(dir + "/" + name, *jpeg).ok()) return {};
  return name;
}

std::string metadataSummary(const std::string& path) {
  auto bytes = FileBytes::read(path, 256u << 20);
  if (!bytes.ok()) return "";
  auto dict = ImageMetadata::read(*bytes);
  if (!dict.ok()) return "(no metadata)";
  nlohmann::json j;
  for (const char* key : {"Orientation", "{Exif}", "{GPS}"})
    if (const Value* v = find(*dict, key)) j[key] = valueToJson(*v);
  if (j.contains("{Exif}")) {
    nlohmann::json kept;
    for (const char* k : {"DateTimeOriginal", "ExposureTime", "FNumber", "ISOSpeedRatings", "LensModel"})
      if (j["{Exif}"].contains(k)) kept[k] = j["{Exif}"][k];
    j["{Exif}"] = kept;
  }
  return j.is_null() ? "(no metadata)" : j.dump(1);
}

}  // namespace

StatusOr<std::string> DemoReport::write(const std::vector<ScenarioResult>& results, const std::string& directory) {
  std::error_code ec;
  fs::create_directories(directory, ec);
  if (ec) return Status::unavailable("cannot create " + directory + ": " + ec.message());
  std::ostringstream html;
  html << "<!doctype html><html><head><meta charset=\"utf-8\"><title>VelqorCamera demo</title><style>"
          "body{font-family:sans-serif;margin:2em;max-width:72em}section{border-top:1px solid #ccc;padding:1em 0}"
          "pre{background:#f6f6f6;padding:.5em;overflow-x:auto;font-size:12px}.pass{color:#080}.fail{color:#b00}"
          "img{border:1px solid #999;margin:4px}table{border-collapse:collapse}td,th{padding:2px 8px;text-align:left}"
          "</style></head><body><h1>VelqorCamera demo</h1><table><tr><th>scenario</th><th>verdict</th></tr>";
  for (const auto& r : results)
    html << "<tr><td><a href=\"#" << escape(r.name) << "\">" << escape(r.name) << "</a></td><td class=\""
         << (r.passed ? "pass\">pass" : "fail\">fail") << "</td></tr>";
  html << "</table>";
  int thumbs = 0;
  for (const auto& r : results) {
    html << "<section id=\"" << escape(r.name) << "\"><h2>" << escape(r.name) << " <span class=\""
         << (r.passed ? "pass\">pass" : "fail\">fail") << "</span></h2><p>" << escape(r.description) << "</p>";
    html << "<h3>Steps, options and timing</h3><pre>" << escape(r.steps.dump(1)) << "</pre>";
    html << "<h3>What the user saw</h3><pre>";
    for (const auto& e : r.events) html << escape(e.dump()) << "\n";
    html << "</pre><h3>Answers</h3><pre>";
    for (const auto& a : r.answers) {
      std::string line = a.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
      if (line.size() > 600) line = line.substr(0, 600) + "… (" + std::to_string(line.size()) + " characters)";
      html << escape(line) << "\n";
    }
    for (const auto& o : r.open) html << "still open: " << escape(o) << "\n";
    for (const auto& w : r.watchdog) html << escape(w) << "\n";
    html << "</pre>";
    for (const auto& d : r.differences) html << "<p class=\"fail\">" << escape(d) << "</p>";
    for (const auto& [title, files] : {std::pair{"Inputs", &r.inputs}, std::pair{"Output files", &r.outputs}}) {
      if (files->empty()) continue;
      html << "<h3>" << title << "</h3>";
      for (const auto& f : *files) {
        html << "<div><code>" << escape(f) << "</code> (" << fs::file_size(f, ec) << " bytes)<br>";
        if (isImage(f)) {
          std::string t = thumbnail(f, directory, thumbs++);
          if (!t.empty()) html << "<img src=\"" << t << "\" alt=\"thumbnail\">";
          html << "<pre>" << escape(metadataSummary(f)) << "</pre>";
        }
        html << "</div>";
      }
    }
    html << "</section>";
  }
  html << "</body></html>\n";
  const std::string path = fs::absolute(directory + "/index.html").lexically_normal().string();
  std::string text = html.str();
  RETURN_IF_ERROR(FileBytes::writeAtomically(path, std::span(reinterpret_cast<const std::uint8_t*>(text.data()), text.size())));
  return path;
}

}  // namespace velqor
