#pragma once

#include <optional>
#include <string>
#include <vector>

namespace velqor {

// A resource bundle directory holding one "<language>.lproj" folder per
// localization, each with its default strings table "Localizable.strings".
//
// Threads: immutable; any thread.
class Bundle {
 public:
  // None when the path is not a readable directory.
  static std::optional<Bundle> open(const std::string& path);

  // The text for `key` in the localization LocalizationChoice picks for the
  // user's preferred languages; the key itself when that table lacks it or no
  // localization serves the user. Tables are read on every call: nothing is cached.
  std::string localizedString(const std::string& key, const std::vector<std::string>& preferredLanguages) const;

  // The localizations that ship a default strings table, sorted.
  std::vector<std::string> localizations() const;
  const std::string& path() const { return path_; }

 private:
  explicit Bundle(std::string path) : path_(std::move(path)) {}
  std::optional<std::string> tablePath(const std::vector<std::string>& preferredLanguages) const;
  std::string path_;
};

}  // namespace velqor
