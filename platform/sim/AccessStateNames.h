#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "platform/DeviceAccess.h"

namespace velqor {

// The access states by the names the CLI, scenario files and the web page use.
inline const std::map<std::string, std::int64_t>& accessStateNames() {
  static const std::map<std::string, std::int64_t> kStates{{"notDetermined", AccessState::notDetermined},
                                                           {"restricted", AccessState::restricted},
                                                           {"denied", AccessState::denied},
                                                           {"authorized", AccessState::authorized},
                                                           {"limited", AccessState::limited}};
  return kStates;
}

}  // namespace velqor
