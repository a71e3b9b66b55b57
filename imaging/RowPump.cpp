#include "imaging/RowPump.h"

#include <algorithm>
#include <thread>

#include "imaging/RowHandOff.h"

namespace velqor {
namespace {
constexpr int kStrips = 4;
}  // namespace

Status RowPump::run(RowStream& rows, int stripRows, UniqueFunction<bool(const std::uint8_t*, int)> consume,
                    Status stopped) {
  RowHandOff handOff(rows.stride() * static_cast<size_t>(stripRows), kStrips);
  std::thread producer([&] {
    bool ok = true;
    for (int done = 0; ok && done < rows.height();) {
      std::uint8_t* strip = handOff.acquire();
      if (!strip) break;  // the consumer stopped
      const int n = std::min(stripRows, rows.height() - done);
      ok = rows.read(strip, n);
      if (ok) handOff.publish(n), done += n;
    }
    handOff.finish(ok);
  });
  bool consumed = true;
  while (auto strip = handOff.next()) {
    consumed = consume(strip->data, strip->rows);
    handOff.release();
    if (!consumed) {
      handOff.cancel();
      break;
    }
  }
  producer.join();
  if (!consumed) return stopped;
  if (!handOff.producerSucceeded()) return rows.status().ok() ? Status::internal("the rows stopped early") : rows.status();
  return Status::okStatus();
}

}  // namespace velqor
