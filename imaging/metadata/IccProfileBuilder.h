#pragma once

#include <span>
#include <string>

#include "host/StatusOr.h"
#include "host/Value.h"

namespace velqor {

// An RGB colour space described by its chromaticities and transfer curve, the
// way video and HEIF headers (nclx) describe one.
struct RgbColourSpace {
  enum class Transfer { srgb, bt709, gamma };
  double whiteX = 0.3127, whiteY = 0.3290;
  double redX = 0.64, redY = 0.33, greenX = 0.30, greenY = 0.60, blueX = 0.15, blueY = 0.06;
  Transfer transfer = Transfer::srgb;
  double gamma = 2.2;  // for Transfer::gamma
  std::string description = "sRGB";
};

// ICC profiles made and read with Little CMS: a matrix/curve RGB profile for a
// colour space, and the description of any profile.
//
// Threads: any; every call uses its own profile objects.
class IccProfileBuilder {
 public:
  // A version 4 display profile; the same space always gives the same bytes
  // (its creation date is fixed).
  static StatusOr<Bytes> rgb(const RgbColourSpace& space);
  // The profile's description in ASCII; "" when it has none or does not parse.
  static std::string description(std::span<const std::uint8_t> profile);
};

}  // namespace velqor
