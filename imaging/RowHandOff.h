#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <optional>
#include <vector>

namespace velqor {

// A fixed set of row buffers passed in order from one producing thread to one
// consuming thread, so a decoder and an encoder can work on different strips
// of the same image at once while only a few strips exist. Either side may
// stop early: a producer that failed calls finish(false), a consumer that
// failed calls cancel(), and the other side sees it at its next call.
//
// Threads: acquire/publish/finish from the producer only; next/release/cancel
// from the consumer only.
class RowHandOff {
 public:
  RowHandOff(size_t bufferBytes, int buffers);
  RowHandOff(const RowHandOff&) = delete;
  RowHandOff& operator=(const RowHandOff&) = delete;

  // An empty buffer of `bufferBytes` to fill, waiting for one if needed; null
  // once the consumer has cancelled.
  std::uint8_t* acquire();
  // The acquired buffer now holds `rows` rows and goes to the consumer.
  void publish(int rows);
  // No more buffers will come; `ok` false when the producer failed.
  void finish(bool ok);

  struct Filled {
    const std::uint8_t* data;
    int rows;
  };
  // The next filled buffer, waiting for it; none once the producer finished
  // and every buffer was taken.
  std::optional<Filled> next();
  // The buffer from next() may be reused.
  void release();
  // The consumer stops; the producer's next acquire() returns null.
  void cancel();
  // Whether the producer finished without failing (valid once next() gave none).
  bool producerSucceeded() const;

 private:
  std::vector<std::vector<std::uint8_t>> buffers_;
  std::vector<int> rows_;
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  size_t produced_ = 0;  // buffers published so far
  size_t consumed_ = 0;  // buffers released so far
  bool finished_ = false, succeeded_ = false, cancelled_ = false;
};

}  // namespace velqor
