#pragma once

#include <cstdint>
#include <optional>

namespace velqor {

// An option of a takePicture command, with the raw values the page sends.
enum class MediaType : std::int64_t {
  mediaTypePicture = 0,
  mediaTypeVideo = 1,
  mediaTypeAll = 2,
};

// The case with that raw value; none for any other integer.
inline std::optional<MediaType> mediaTypeFromRaw(std::int64_t raw) {
  if (raw < 0 || raw >= 3) return std::nullopt;
  return static_cast<MediaType>(raw);
}

}  // namespace velqor
