#pragma once

#include <cstddef>

namespace velqor {

// Zero-filled memory for one large buffer, mapped on its own and offered to
// the kernel for transparent huge pages. 70 MB of coefficients written once
// take about 18000 page faults in 4 KiB pages, which on a virtual machine
// cost more than decoding into them; in 2 MiB pages they take 35. Where the
// kernel gives no huge pages the memory is ordinary pages, still zeroed.
// Pages never written are never backed: a buffer mapped for the worst case
// costs what is written.
//
// Owns the mapping; movable, not copyable. Threads: any, one owner at a time.
class HugePageBuffer {
 public:
  HugePageBuffer() = default;
  // Maps `bytes` (rounded up to whole huge pages); empty when the mapping fails.
  explicit HugePageBuffer(std::size_t bytes);
  HugePageBuffer(HugePageBuffer&& other) noexcept;
  HugePageBuffer& operator=(HugePageBuffer&& other) noexcept;
  HugePageBuffer(const HugePageBuffer&) = delete;
  HugePageBuffer& operator=(const HugePageBuffer&) = delete;
  ~HugePageBuffer();

  void* data() const { return data_; }
  std::size_t size() const { return size_; }
  bool empty() const { return data_ == nullptr; }

 private:
  void release();

  void* data_ = nullptr;
  std::size_t size_ = 0;     // what the caller asked for
  std::size_t mapped_ = 0;   // what is mapped at data_
};

}  // namespace velqor
