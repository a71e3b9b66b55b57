#pragma once

#include <string>

#include "core/PluginCore.h"

namespace velqor {

// Texts shown to the user, looked up by key in the application's "Velqor.bundle"
// in the user's language.
//
// Threads: any; no state, no cache.
class LocalizedStrings {
 public:
  // The empty string when the bundle is missing or unreadable; the key itself
  // when the table has no entry for it.
  static std::string getLocalizingString(const PluginCore& core, const std::string& key);
};

}  // namespace velqor
