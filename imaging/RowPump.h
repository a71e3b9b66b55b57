#pragma once

#include <cstdint>

#include "host/Status.h"
#include "host/UniqueFunction.h"
#include "imaging/RowStream.h"

namespace velqor {

// Reads a RowStream on a thread of its own while the calling thread consumes
// strips of rows, so decoding and encoding share the two halves of the work.
// Only four strips exist at a time.
//
// Threads: any caller; each run starts one thread and joins it before returning.
class RowPump {
 public:
  // Strips of `stripRows` rows (fewer at the end) go to `consume` in order;
  // `consume` returns false to stop. Ok when every row was read and consumed;
  // the stream's error when reading failed; `stopped` when the consumer stopped.
  static Status run(RowStream& rows, int stripRows, UniqueFunction<bool(const std::uint8_t*, int)> consume,
                    Status stopped);
};

}  // namespace velqor
