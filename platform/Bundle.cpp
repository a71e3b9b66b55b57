#include "platform/Bundle.h"

#include <algorithm>
#include <cctype>
#include <filesystem>

#include "platform/StringsFile.h"

namespace velqor {
namespace fs = std::filesystem;

namespace {

std::string canonical(std::string tag) {
  for (auto& c : tag) c = c == '_' ? '-' : static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return tag;
}

}  // namespace

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
    if (name.size() > 6 && name.substr(name.size() - 6) == ".lproj") out.push_back(name.substr(0, name.size() - 6));
  }
  std::sort(out.begin(), out.end());
  return out;
}

std::optional<std::string> Bundle::tablePath(const std::string& language) const {
  auto available = localizations();
  std::string wanted = canonical(language);
  std::string base = wanted.substr(0, wanted.find('-'));
  for (const std::string& candidate : {wanted, base, std::string("en"), std::string("base")}) {
    for (const auto& loc : available) {
      if (canonical(loc) == candidate) {
        std::string table = path_ + "/" + loc + ".lproj/Localizable.strings";
        std::error_code ec;
        if (fs::is_regular_file(table, ec)) return table;
      }
    }
  }
  return std::nullopt;
}

std::string Bundle::localizedString(const std::string& key, const std::string& language) const {
  auto table = tablePath(language);
  if (!table) return key;
  auto entries = StringsFile::load(*table);
  if (!entries.ok()) return key;
  auto it = entries->find(key);
  return it == entries->end() ? key : it->second;
}

}  // namespace velqor
