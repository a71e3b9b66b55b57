#include "imaging/jpeg/CoefficientStore.h"

#include <jerror.h>

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstdlib>
#include <new>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace velqor {
namespace {

// Raises a library error, as the library's own memory manager would.
[[noreturn]] void fail(j_common_ptr cinfo, int code, int parameter = 0) {
  cinfo->err->msg_code = code;
  cinfo->err->msg_parm.i[0] = parameter;
  (*cinfo->err->error_exit)(cinfo);
  std::abort();  // error_exit never returns
}

// Index and values of a packed array: a mask and an offset per block, and room
// for every coefficient once (what a file that writes each block once needs).
constexpr std::size_t kPackedBytesPerBlock = sizeof(std::uint64_t) + sizeof(std::uint32_t) + sizeof(JBLOCK);

std::uint64_t nonzeroMask(const JCOEF* c) {
#ifdef __SSE2__
  // Sixteen coefficients at a time: packed to bytes with saturation (a nonzero
  // stays nonzero), compared with zero, one bit each.
  std::uint64_t zeros = 0;
  for (int k = 0; k < DCTSIZE2; k += 16) {
    const __m128i low = _mm_loadu_si128(reinterpret_cast<const __m128i*>(c + k));
    const __m128i high = _mm_loadu_si128(reinterpret_cast<const __m128i*>(c + k + 8));
    const __m128i isZero = _mm_cmpeq_epi8(_mm_packs_epi16(low, high), _mm_setzero_si128());
    zeros |= static_cast<std::uint64_t>(static_cast<std::uint16_t>(_mm_movemask_epi8(isZero))) << k;
  }
  return ~zeros;
#else
  std::uint64_t mask = 0;
  for (int k = 0; k < DCTSIZE2; ++k) mask |= static_cast<std::uint64_t>(c[k] != 0) << k;
  return mask;
#endif
}

// Writes the nonzero coefficients of `block` to `out` in increasing index;
// returns how many, and their positions in `mask`.
std::size_t packNonzero(const JCOEF* block, JCOEF* out, std::uint64_t& mask) {
  mask = nonzeroMask(block);
  JCOEF* end = out;
  for (std::uint64_t m = mask; m != 0; m &= m - 1) *end++ = block[std::countr_zero(m)];
  return static_cast<std::size_t>(end - out);
}

}  // namespace

void CoefficientStore::attach(JpegDecompression& d) {
  d.info.client_data = this;
  packed_ = !d.info.progressive_mode;
  jpeg_memory_mgr& mem = *d.info.mem;
  libraryRequest_ = mem.request_virt_barray;
  libraryRealize_ = mem.realize_virt_arrays;
  libraryAccess_ = mem.access_virt_barray;
  mem.request_virt_barray = request;
  mem.realize_virt_arrays = realize;
  mem.access_virt_barray = access;
}

CoefficientStore& CoefficientStore::of(j_common_ptr cinfo) { return *static_cast<CoefficientStore*>(cinfo->client_data); }

const CoefficientStore::Array* CoefficientStore::owned(jvirt_barray_ptr array) const {
  for (std::size_t i = 0; i < used_; ++i)
    if (reinterpret_cast<const void*>(array) == &arrays_[i]) return &arrays_[i];
  return nullptr;
}

bool CoefficientStore::holds(jvirt_barray_ptr array) const { return owned(array) != nullptr; }

std::size_t CoefficientStore::storedBytes() const {
  std::size_t total = 0;
  for (std::size_t i = 0; i < used_; ++i) {
    const Array& a = arrays_[i];
    if (a.memory.empty()) continue;
    const std::size_t blocks = std::size_t{a.blocksPerRow} * a.rows;
    total += packed_ ? blocks * (sizeof(std::uint64_t) + sizeof(std::uint32_t)) + a.valuesUsed * sizeof(JCOEF)
                     : a.memory.size();
  }
  return total;
}

jvirt_barray_ptr CoefficientStore::request(j_common_ptr cinfo, int pool, boolean preZero, JDIMENSION blocksPerRow,
                                           JDIMENSION rows, JDIMENSION maxAccess) {
  CoefficientStore& self = of(cinfo);
  if (pool != JPOOL_IMAGE) fail(cinfo, JERR_BAD_POOL_ID, pool);  // arrays live with one image, as in the library
  if (self.used_ == kMaxArrays) return self.libraryRequest_(cinfo, pool, preZero, blocksPerRow, rows, maxAccess);
  Array& a = self.arrays_[self.used_++];
  a.blocksPerRow = blocksPerRow;
  a.rows = rows;
  a.maxAccess = std::min(maxAccess, rows);
  return reinterpret_cast<jvirt_barray_ptr>(&a);
}

bool CoefficientStore::allocateWhole(Array& a) {
  const std::size_t rowBytes = std::size_t{a.blocksPerRow} * sizeof(JBLOCK);
  if (rowBytes != 0 && a.rows > SIZE_MAX / rowBytes) return false;
  a.memory = HugePageBuffer(rowBytes * a.rows);
  a.rowPointers.reset(new (std::nothrow) JBLOCKROW[a.rows]);
  if (a.memory.empty() || !a.rowPointers) return false;
  auto* base = static_cast<unsigned char*>(a.memory.data());
  for (JDIMENSION r = 0; r < a.rows; ++r) a.rowPointers[r] = reinterpret_cast<JBLOCKROW>(base + rowBytes * r);
  return true;
}

bool CoefficientStore::allocatePacked(Array& a) {
  const std::size_t blocks = std::size_t{a.blocksPerRow} * a.rows;
  a.valuesCapacity = blocks * DCTSIZE2;
  // Offsets are 32 bits: far beyond any picture a decode budget lets through.
  if (a.valuesCapacity > UINT32_MAX || blocks > SIZE_MAX / kPackedBytesPerBlock) return false;
  // Mapped for the worst case, but only the pages written are ever backed.
  a.memory = HugePageBuffer(blocks * kPackedBytesPerBlock);
  const std::size_t windowBlocks = std::size_t{a.blocksPerRow} * a.maxAccess;
  a.window.reset(new (std::nothrow) JBLOCK[windowBlocks]);
  a.windowRows.reset(new (std::nothrow) JBLOCKROW[a.maxAccess]);
  if (a.memory.empty() || !a.window || !a.windowRows) return false;
  auto* base = static_cast<unsigned char*>(a.memory.data());
  a.masks = reinterpret_cast<std::uint64_t*>(base);
  a.offsets = reinterpret_cast<std::uint32_t*>(base + blocks * sizeof(std::uint64_t));
  a.values = reinterpret_cast<JCOEF*>(base + blocks * (sizeof(std::uint64_t) + sizeof(std::uint32_t)));
  for (JDIMENSION r = 0; r < a.maxAccess; ++r) a.windowRows[r] = a.window.get() + std::size_t{a.blocksPerRow} * r;
  return true;
}

void CoefficientStore::realize(j_common_ptr cinfo) {
  CoefficientStore& self = of(cinfo);
  for (std::size_t i = 0; i < self.used_; ++i) {
    Array& a = self.arrays_[i];
    if (!a.memory.empty() || a.rows == 0 || a.blocksPerRow == 0) continue;
    if (!(self.packed_ ? allocatePacked(a) : allocateWhole(a))) fail(cinfo, JERR_OUT_OF_MEMORY);
  }
  self.libraryRealize_(cinfo);
}

// Stores the window's blocks if the decoder may have written them: a block
// that fits its old place stays there, one that grew goes after the rest.
// Past the values' space it stops and marks the store outgrown.
bool CoefficientStore::storeWindow(Array& a) {
  if (!a.windowDirty) return true;
  for (JDIMENSION i = 0; i < a.windowCount; ++i) {
    const std::size_t first = std::size_t{a.windowStart + i} * a.blocksPerRow;
    for (JDIMENSION b = 0; b < a.blocksPerRow; ++b) {
      JCOEF nonzero[DCTSIZE2];
      std::uint64_t mask = 0;
      const std::size_t count = packNonzero(a.windowRows[i][b], nonzero, mask);
      const std::size_t at = first + b;
      // A block stored before keeps its place if it did not grow.
      const std::size_t room = a.masks[at] == 0 ? 0 : static_cast<std::size_t>(std::popcount(a.masks[at]));
      if (count > room) {
        if (count > a.valuesCapacity - a.valuesUsed) {
          outgrown_ = true;
          return false;
        }
        a.offsets[at] = static_cast<std::uint32_t>(a.valuesUsed);
        a.valuesUsed += count;
      }
      a.masks[at] = mask;
      std::copy(nonzero, nonzero + count, a.values + a.offsets[at]);
    }
  }
  a.windowDirty = false;
  return true;
}

void CoefficientStore::loadWindow(Array& a, JDIMENSION start, JDIMENSION count) {
  for (JDIMENSION i = 0; i < count; ++i) {
    const std::size_t first = std::size_t{start + i} * a.blocksPerRow;
    for (JDIMENSION b = 0; b < a.blocksPerRow; ++b) {
      JCOEF* c = a.windowRows[i][b];
      std::fill(c, c + DCTSIZE2, JCOEF{0});
      const JCOEF* v = a.values + a.offsets[first + b];
      for (std::uint64_t m = a.masks[first + b]; m != 0; m &= m - 1) c[std::countr_zero(m)] = *v++;
    }
  }
  a.windowStart = start;
  a.windowCount = count;
}

JBLOCKARRAY CoefficientStore::access(j_common_ptr cinfo, jvirt_barray_ptr array, JDIMENSION start, JDIMENSION count,
                                     boolean writable) {
  CoefficientStore& self = of(cinfo);
  auto* a = const_cast<Array*>(self.owned(array));
  if (!a) return self.libraryAccess_(cinfo, array, start, count, writable);
  if (a->memory.empty() || start > a->rows || count > a->rows - start) fail(cinfo, JERR_BAD_VIRTUAL_ACCESS);
  if (!self.packed_) return a->rowPointers.get() + start;
  if (count > a->maxAccess) fail(cinfo, JERR_BAD_VIRTUAL_ACCESS);
  if (a->windowCount == 0 || start != a->windowStart || count != a->windowCount) {
    if (!self.storeWindow(*a)) fail(cinfo, JERR_OUT_OF_MEMORY);
    loadWindow(*a, start, count);
  }
  if (writable) a->windowDirty = true;
  return a->windowRows.get();
}

bool CoefficientStore::seal() {
  if (!packed_) return true;
  for (std::size_t i = 0; i < used_; ++i)
    if (!arrays_[i].memory.empty() && !storeWindow(arrays_[i])) return false;
  return true;
}

CoefficientStore::Reader CoefficientStore::reader(jvirt_barray_ptr array) const {
  const Array& a = *owned(array);
  Reader r;
  r.blocksPerRow_ = a.blocksPerRow;
  r.rowCount_ = a.rows;
  if (packed_) {
    r.masks_ = a.masks;
    r.offsets_ = a.offsets;
    r.values_ = a.values;
  } else {
    r.rows_ = a.rowPointers.get();
  }
  return r;
}

PackedBlock CoefficientStore::packWhole(const JCOEF* block, JCOEF* scratch) {
  PackedBlock packed{0, scratch};
  packNonzero(block, scratch, packed.mask);
  return packed;
}

}  // namespace velqor
