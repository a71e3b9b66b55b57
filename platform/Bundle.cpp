#include "platform/Bundle.h"

#include <algorithm>
#include <filesystem>

#include "platform/LocalizationChoice.h"
#include "platform/StringsFile.h"

namespace velqor {
namespace fs = std::filesystem;

std::optional<Bundle> Bundle::open(const std::string& path) {
  std::error_code ec;
  if (!fs::is_directory(path, ec)) return std::nullopt;
  fs::directory_iterator it(path, ec);
  if (ec) return std::nullopt;
  return Bundle(path);
}

std::vector<std::string> Bundle::localizations() const {
  std::vector<std::string> out;
  std::error_code ec;
  for (fs::directory_iterator it(path_, ec), end; !ec && it != end; it.increment(ec)) {
    std::string name = it->path().filename().string();
    if (name.size() <= 6 || name.substr(name.size() - 6) != ".lproj") continue;
    std::error_code fileError;
    if (fs::is_regular_file(it->path() / "Localizable.strings", fileError)) out.push_back(name.substr(0, name.size() - 6));
  }
  std::sort(out.begin(), out.end());
  return out;
}

std::optional<std::string> Bundle::tablePath(const std::vector<std::string>& preferredLanguages) const {
  auto chosen = LocalizationChoice::choose(localizations(), preferredLanguages);
  if (!chosen) return std::nullopt;
  return path_ + "/" + *chosen + ".lproj/Localizable.strings";
}

std::string Bundle::localizedString(const std::string& key, const std::vector<std::string>& preferredLanguages) const {
  auto table = tablePath(preferredLanguages);
  if (!table) return key;
  auto entries = StringsFile::load(*table);
  if (!entries.ok()) return key;
  auto it = entries->find(key);
  return it == entries->end() ? key : it->second;
}

}  // namespace velqor
