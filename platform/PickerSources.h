#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace velqor {

// What the device's picker can offer: which sources exist and which media
// types each lists.
//
// Threads: any.
class PickerSources {
 public:
  virtual ~PickerSources() = default;
  virtual bool isSourceTypeAvailable(std::int64_t source) = 0;
  // None when the platform gives no list for the source.
  virtual std::optional<std::vector<std::string>> availableMediaTypesForSourceType(std::int64_t source) = 0;
};

}  // namespace velqor
