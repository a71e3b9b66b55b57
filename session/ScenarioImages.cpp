#include "session/ScenarioImages.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <optional>

#include "host/FileBytes.h"
#include "imaging/Dihedral.h"
#include "imaging/Resampler.h"
#include "imaging/codecs/LinuxImageCodec.h"

namespace velqor {
namespace {

using json = nlohmann::json;

// The picture in a file as a viewer shows it: decoded and turned upright.
std::optional<Bitmap> uprightPixels(const std::string& path) {
  auto bytes = FileBytes::read(path);
  if (!bytes.ok()) return std::nullopt;
  LinuxImageCodec codec;
  auto image = codec.imageWithData(std::make_shared<const Bytes>(std::move(*bytes)));
  if (!image) return std::nullopt;
  const ImageSize size = image->size();
  auto upright = image->drawn(displayTransform(image->imageOrientation()), static_cast<int>(size.width),
                              static_cast<int>(size.height), ImageOrientation::up);
  return upright ? upright->cgImage() : std::nullopt;
}

std::optional<Bitmap> cropped(const Bitmap& b, const json& rect) {
  const int x = rect.at(0), y = rect.at(1), w = rect.at(2), h = rect.at(3);
  if (x < 0 || y < 0 || w < 1 || h < 1 || x + w > b.width || y + h > b.height) return std::nullopt;
  Bitmap out(w, h, b.channels);
  for (int row = 0; row < h; ++row)
    std::copy_n(b.row(y + row) + static_cast<size_t>(x) * b.channels, out.stride(), out.row(row));
  return out;
}

double psnr(const Bitmap& a, const Bitmap& b) {
  double sum = 0;
  for (int y = 0; y < a.height; ++y)
    for (int x = 0; x < a.width; ++x)
      for (int c = 0; c < 3; ++c) {
        const double d = double(a.row(y)[x * a.channels + c]) - double(b.row(y)[x * b.channels + c]);
        sum += d * d;
      }
  if (sum == 0) return 99;
  return 10 * std::log10(255.0 * 255.0 / (sum / (3.0 * a.width * a.height)));
}

void compare(const json& sameAs, const Bitmap& picture, const std::map<std::string, std::string>& inputs,
             const std::string& where, std::vector<std::string>& differences) {
  const auto input = inputs.find("$" + sameAs.value("input", std::string()));
  if (input == inputs.end()) {
    differences.push_back(where + ".sameAs: no input named " + sameAs.value("input", std::string()).c_str());
    return;
  }
  auto reference = uprightPixels(input->second);
  if (reference && sameAs.contains("crop")) reference = cropped(*reference, sameAs["crop"]);
  if (!reference) {
    differences.push_back(where + ".sameAs: the input cannot be read or cropped that way");
    return;
  }
  // Compared at a quarter of the size: codec noise and fine texture average
  // out, and what is left is where things are.
  const int w = std::max(1, picture.width / 4), h = std::max(1, picture.height / 4);
  const double got = psnr(Resampler::resize(*reference, w, h), Resampler::resize(picture, w, h));
  const double wanted = sameAs.value("minPsnr", 40.0);
  if (got < wanted)
    differences.push_back(where + ": differs from " + input->first + " (" + std::to_string(got) + " dB, wanted " +
                          std::to_string(wanted) + ")");
}

}  // namespace

void ScenarioImages::check(const json& expected, const std::vector<std::string>& outputs,
                           const std::map<std::string, std::string>& inputs, std::vector<std::string>& differences) {
  std::vector<std::string> pictures;
  for (const auto& o : outputs) {
    const std::string ext = std::filesystem::path(o).extension().string();
    if (ext == ".jpg" || ext == ".png") pictures.push_back(o);
  }
  if (pictures.size() != expected.size()) {
    differences.push_back("images: expected " + std::to_string(expected.size()) + " pictures, got " +
                          std::to_string(pictures.size()));
    return;
  }
  for (size_t i = 0; i < pictures.size(); ++i) {
    const std::string where = "images[" + std::to_string(i) + "]";
    auto picture = uprightPixels(pictures[i]);
    if (!picture) {
      differences.push_back(where + ": " + pictures[i] + " does not decode");
      continue;
    }
    const json& want = expected[i];
    if (picture->width != want.value("width", picture->width) || picture->height != want.value("height", picture->height)) {
      differences.push_back(where + ": expected " + std::to_string(want.value("width", 0)) + "x" +
                            std::to_string(want.value("height", 0)) + ", got " + std::to_string(picture->width) + "x" +
                            std::to_string(picture->height));
      continue;
    }
    if (want.contains("sameAs")) compare(want["sameAs"], *picture, inputs, where, differences);
  }
}

}  // namespace velqor
