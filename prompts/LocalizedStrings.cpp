#include "prompts/LocalizedStrings.h"

#include "platform/Bundle.h"

namespace velqor {

std::string LocalizedStrings::getLocalizingString(const PluginCore& core, const std::string& key) {
  if (!core.services.resourceBundles) return "";
  auto path = core.services.resourceBundles->pathForResource("Velqor", "bundle");
  if (!path) return "";
  auto bundle = Bundle::open(*path);
  if (!bundle) return "";
  return bundle->localizedString(key, core.services.locale.languages());
}

}  // namespace velqor
