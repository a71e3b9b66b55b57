#pragma once

#include <array>
#include <cstddef>
#include <memory>

#include "platform/linux/HugePageBuffer.h"
#include "platform/linux/JpegDecompression.h"

namespace velqor {

// Holds the whole-image coefficient arrays a decompressor asks for (reading a
// file's coefficients, or a progressive decode) in huge-page buffers of its
// own instead of the library's small-page pools: the library's requests,
// allocation and row access for them are routed here once `attach` has run.
// The buffers come zeroed from the kernel, which is the zero fill the
// decoder expects, so no page is touched before the decoder writes it.
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

  // Bytes mapped for the arrays so far.
  std::size_t mappedBytes() const;

 private:
  struct Array {
    JDIMENSION blocksPerRow = 0, rows = 0;
    HugePageBuffer memory;
    std::unique_ptr<JBLOCKROW[]> rowPointers;
  };

  static jvirt_barray_ptr request(j_common_ptr cinfo, int pool, boolean preZero, JDIMENSION blocksPerRow,
                                  JDIMENSION rows, JDIMENSION maxAccess);
  static void realize(j_common_ptr cinfo);
  static JBLOCKARRAY access(j_common_ptr cinfo, jvirt_barray_ptr array, JDIMENSION start, JDIMENSION count,
                            boolean writable);
  static CoefficientStore& of(j_common_ptr cinfo);
  Array* owned(jvirt_barray_ptr array);

  std::array<Array, kMaxArrays> arrays_;
  std::size_t used_ = 0;
  decltype(jpeg_memory_mgr::request_virt_barray) libraryRequest_ = nullptr;
  decltype(jpeg_memory_mgr::realize_virt_arrays) libraryRealize_ = nullptr;
  decltype(jpeg_memory_mgr::access_virt_barray) libraryAccess_ = nullptr;
};

}  // namespace velqor
