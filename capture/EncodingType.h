#pragma once

#include <cstdint>
#include <optional>

namespace velqor {

// An option of a takePicture command, with the raw values the page sends.
enum class EncodingType : std::int64_t {
  encodingTypeJPEG = 0,
  encodingTypePNG = 1,
};

// The case with that raw value; none for any other integer.
inline std::optional<EncodingType> encodingTypeFromRaw(std::int64_t raw) {
  if (raw < 0 || raw >= 2) return std::nullopt;
  return static_cast<EncodingType>(raw);
}

}  // namespace velqor
