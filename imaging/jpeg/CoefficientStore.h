#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "imaging/jpeg/HugePageBuffer.h"
#include "imaging/jpeg/JpegDecompression.h"

namespace velqor {

// The nonzero coefficients of one block: bit k of `mask` is set when the
// coefficient at natural index k is nonzero, and `values` holds those
// coefficients in increasing k.
struct PackedBlock {
  std::uint64_t mask = 0;
  const JCOEF* values = nullptr;
};

// Holds the whole-image coefficient arrays a decompressor asks for when it
// reads a file's coefficients, instead of the library's small-page pools:
// the library's requests, allocation and row access for them are routed here
// once `attach` has run.
//
// A sequential file is kept packed: the decoder writes into a window of the
// rows it asked for, and when it moves on the window's blocks are stored as
// their nonzero coefficients only (a camera photo has about six of 64 in a
// block, so 73 MB of arrays become about 12). Rows asked for again are
// unpacked into the window; rewritten blocks that grew are stored anew.
// A progressive file, whose scans refine every block many times, is kept
// whole, two bytes a coefficient. Either way the memory is mapped on its own
// and comes zeroed from the kernel, the zero fill the decoder expects.
// Arrays beyond the first kMaxArrays go to the library as before.
//
// Owns the buffers; must outlive every use of the decompressor's arrays and
// sit beside it (it uses the decompressor's client_data). Threads: the
// decompressor's.
class CoefficientStore {
 public:
  static constexpr std::size_t kMaxArrays = 4;

  CoefficientStore() = default;
  CoefficientStore(const CoefficientStore&) = delete;
  CoefficientStore& operator=(const CoefficientStore&) = delete;

  // Routes `d`'s whole-image arrays here; call after `d.open`, before the
  // decoder is started.
  void attach(JpegDecompression& d);

  // Stores what the decoder last wrote; call once it has read the file and
  // before reading blocks. False when the packed values outgrow their space:
  // one full write of every block, which a file that rewrites its blocks with
  // more and more coefficients can pass.
  bool seal();

  // Whether the packed values outgrew their space, at `seal` or while the
  // decoder ran (it then stops with the library's out-of-memory error).
  bool outgrown() const { return outgrown_; }

  // Whether `array` is one of the store's (the library holds the rest).
  bool holds(jvirt_barray_ptr array) const;

  // Reads the blocks of one held array once the store is sealed. Cheap to
  // copy; valid while the store lives and nothing writes the array.
  class Reader {
   public:
    // The block at `row`, `column` (both inside the array); `scratch` (64
    // values) holds the values when the array is kept whole.
    PackedBlock block(JDIMENSION row, JDIMENSION column, JCOEF* scratch) const {
      if (!masks_) return packWhole(rows_[row][column], scratch);
      const std::size_t at = std::size_t{row} * blocksPerRow_ + column;
      return {masks_[at], values_ + offsets_[at]};
    }
    // Start loading a packed block `block` will be asked for soon (a turn
    // reads blocks a whole row apart, which the processor cannot foresee):
    // its index entry first, its values some blocks later, once the entry is
    // in cache. Outside the array, and for whole arrays, they do nothing.
    void prefetchIndex(JDIMENSION row, JDIMENSION column) const {
      if (!masks_ || row >= rowCount_ || column >= blocksPerRow_) return;
      const std::size_t at = std::size_t{row} * blocksPerRow_ + column;
      __builtin_prefetch(masks_ + at);
      __builtin_prefetch(offsets_ + at);
    }
    void prefetchValues(JDIMENSION row, JDIMENSION column) const {
      if (!masks_ || row >= rowCount_ || column >= blocksPerRow_) return;
      __builtin_prefetch(values_ + offsets_[std::size_t{row} * blocksPerRow_ + column]);
    }

   private:
    friend class CoefficientStore;
    const std::uint64_t* masks_ = nullptr;  // null when the array is kept whole
    const std::uint32_t* offsets_ = nullptr;
    const JCOEF* values_ = nullptr;
    const JBLOCKROW* rows_ = nullptr;
    JDIMENSION blocksPerRow_ = 0, rowCount_ = 0;
  };

  // The reader of a held array.
  Reader reader(jvirt_barray_ptr array) const;

  // Bytes of memory the arrays have written so far (packed values counted
  // with their index), and whether the arrays are kept packed.
  std::size_t storedBytes() const;
  bool packed() const { return packed_; }

 private:
  struct Array {
    JDIMENSION blocksPerRow = 0, rows = 0, maxAccess = 0;
    // Kept whole: every row at its place in `memory`. Kept packed: per
    // block a mask and an offset into the values, then the values, all in
    // `memory`; the decoder reads and writes through the window.
    HugePageBuffer memory;
    std::unique_ptr<JBLOCKROW[]> rowPointers;
    std::uint64_t* masks = nullptr;
    std::uint32_t* offsets = nullptr;
    JCOEF* values = nullptr;
    std::size_t valuesUsed = 0, valuesCapacity = 0;
    std::unique_ptr<JBLOCK[]> window;
    std::unique_ptr<JBLOCKROW[]> windowRows;
    JDIMENSION windowStart = 0, windowCount = 0;
    bool windowDirty = false;
  };

  static jvirt_barray_ptr request(j_common_ptr cinfo, int pool, boolean preZero, JDIMENSION blocksPerRow,
                                  JDIMENSION rows, JDIMENSION maxAccess);
  static void realize(j_common_ptr cinfo);
  static JBLOCKARRAY access(j_common_ptr cinfo, jvirt_barray_ptr array, JDIMENSION start, JDIMENSION count,
                            boolean writable);
  static CoefficientStore& of(j_common_ptr cinfo);
  const Array* owned(jvirt_barray_ptr array) const;
  static PackedBlock packWhole(const JCOEF* block, JCOEF* scratch);
  static bool allocateWhole(Array& a);
  static bool allocatePacked(Array& a);
  bool storeWindow(Array& a);
  static void loadWindow(Array& a, JDIMENSION start, JDIMENSION count);

  std::array<Array, kMaxArrays> arrays_;
  std::size_t used_ = 0;
  bool packed_ = false;
  bool outgrown_ = false;
  decltype(jpeg_memory_mgr::request_virt_barray) libraryRequest_ = nullptr;
  decltype(jpeg_memory_mgr::realize_virt_arrays) libraryRealize_ = nullptr;
  decltype(jpeg_memory_mgr::access_virt_barray) libraryAccess_ = nullptr;
};

}  // namespace velqor
