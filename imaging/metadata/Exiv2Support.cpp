#include "imaging/metadata/Exiv2Support.h"

#include <exiv2/exiv2.hpp>

#include <mutex>

namespace velqor {

void Exiv2Support::ensureInitialized() {
  static std::once_flag once;
  std::call_once(once, [] {
    Exiv2::LogMsg::setLevel(Exiv2::LogMsg::mute);
    Exiv2::XmpParser::initialize();
  });
}

}  // namespace velqor
