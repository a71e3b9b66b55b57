#pragma once

#include <cstdint>
#include <optional>

namespace velqor {

// An option of a takePicture command, with the raw values the page sends.
enum class DestinationType : std::int64_t {
  destinationTypeDataUrl = 0,
  destinationTypeFileUri = 1,
  destinationTypeNativeUri = 2,
};

// The case with that raw value; none for any other integer.
inline std::optional<DestinationType> destinationTypeFromRaw(std::int64_t raw) {
  if (raw < 0 || raw >= 3) return std::nullopt;
  return static_cast<DestinationType>(raw);
}

}  // namespace velqor
