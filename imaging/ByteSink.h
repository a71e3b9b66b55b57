#pragma once

#include <cstddef>
#include <cstdint>

#include "host/UniqueFunction.h"

namespace velqor {

// Receives an encoded file's bytes in order, as the encoder makes them (a file
// being written, never the whole output in memory); returns false to stop
// because the bytes could not be kept.
using ByteSink = UniqueFunction<bool(const std::uint8_t*, size_t)>;

}  // namespace velqor
