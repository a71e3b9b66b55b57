#include "imaging/jpeg/HugePageBuffer.h"

#include <sys/mman.h>

#include <cstdint>
#include <utility>

namespace velqor {
namespace {

constexpr std::size_t kHugePage = std::size_t{2} << 20;

std::size_t roundUp(std::size_t n, std::size_t to) { return (n + to - 1) / to * to; }

}  // namespace

HugePageBuffer::HugePageBuffer(std::size_t bytes) {
  if (bytes == 0 || bytes > SIZE_MAX - 2 * kHugePage) return;
  const std::size_t length = roundUp(bytes, kHugePage);
  // Map one huge page more and trim both ends, so the buffer starts on a
  // huge-page boundary: only aligned 2 MiB ranges can be backed by one page.
  const std::size_t over = length + kHugePage;
  void* raw = mmap(nullptr, over, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (raw == MAP_FAILED) return;
  const auto start = reinterpret_cast<std::uintptr_t>(raw);
  const std::uintptr_t aligned = roundUp(start, kHugePage);
  if (aligned > start) munmap(raw, aligned - start);
  const std::size_t tail = over - (aligned - start) - length;
  if (tail > 0) munmap(reinterpret_cast<void*>(aligned + length), tail);
  data_ = reinterpret_cast<void*>(aligned);
  size_ = bytes;
  mapped_ = length;
  madvise(data_, mapped_, MADV_HUGEPAGE);  // a hint: refused where huge pages are off
}

HugePageBuffer::HugePageBuffer(HugePageBuffer&& other) noexcept
    : data_(std::exchange(other.data_, nullptr)),
      size_(std::exchange(other.size_, 0)),
      mapped_(std::exchange(other.mapped_, 0)) {}

HugePageBuffer& HugePageBuffer::operator=(HugePageBuffer&& other) noexcept {
  if (this != &other) {
    release();
    data_ = std::exchange(other.data_, nullptr);
    size_ = std::exchange(other.size_, 0);
    mapped_ = std::exchange(other.mapped_, 0);
  }
  return *this;
}

HugePageBuffer::~HugePageBuffer() { release(); }

void HugePageBuffer::release() {
  if (data_) munmap(data_, mapped_);
  data_ = nullptr;
  size_ = mapped_ = 0;
}

}  // namespace velqor
