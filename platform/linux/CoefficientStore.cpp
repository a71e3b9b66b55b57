#include "platform/linux/CoefficientStore.h"

#include <jerror.h>

#include <cstdlib>
#include <new>

namespace velqor {
namespace {

// Raises a library error, as the library's own memory manager would.
[[noreturn]] void fail(j_common_ptr cinfo, int code, int parameter = 0) {
  cinfo->err->msg_code = code;
  cinfo->err->msg_parm.i[0] = parameter;
  (*cinfo->err->error_exit)(cinfo);
  std::abort();  // error_exit never returns
}

}  // namespace

void CoefficientStore::attach(JpegDecompression& d) {
  d.info.client_data = this;
  jpeg_memory_mgr& mem = *d.info.mem;
  libraryRequest_ = mem.request_virt_barray;
  libraryRealize_ = mem.realize_virt_arrays;
  libraryAccess_ = mem.access_virt_barray;
  mem.request_virt_barray = request;
  mem.realize_virt_arrays = realize;
  mem.access_virt_barray = access;
}

std::size_t CoefficientStore::mappedBytes() const {
  std::size_t total = 0;
  for (std::size_t i = 0; i < used_; ++i) total += arrays_[i].memory.size();
  return total;
}

CoefficientStore& CoefficientStore::of(j_common_ptr cinfo) { return *static_cast<CoefficientStore*>(cinfo->client_data); }

CoefficientStore::Array* CoefficientStore::owned(jvirt_barray_ptr array) {
  for (std::size_t i = 0; i < used_; ++i)
    if (array == reinterpret_cast<jvirt_barray_ptr>(&arrays_[i])) return &arrays_[i];
  return nullptr;
}

jvirt_barray_ptr CoefficientStore::request(j_common_ptr cinfo, int pool, boolean preZero, JDIMENSION blocksPerRow,
                                           JDIMENSION rows, JDIMENSION maxAccess) {
  CoefficientStore& self = of(cinfo);
  if (pool != JPOOL_IMAGE) fail(cinfo, JERR_BAD_POOL_ID, pool);  // arrays live with one image, as in the library
  if (self.used_ == kMaxArrays) return self.libraryRequest_(cinfo, pool, preZero, blocksPerRow, rows, maxAccess);
  Array& a = self.arrays_[self.used_++];
  a.blocksPerRow = blocksPerRow;
  a.rows = rows;
  return reinterpret_cast<jvirt_barray_ptr>(&a);
}

void CoefficientStore::realize(j_common_ptr cinfo) {
  CoefficientStore& self = of(cinfo);
  for (std::size_t i = 0; i < self.used_; ++i) {
    Array& a = self.arrays_[i];
    if (!a.memory.empty() || a.rows == 0) continue;
    const std::size_t rowBytes = std::size_t{a.blocksPerRow} * sizeof(JBLOCK);
    a.memory = HugePageBuffer(rowBytes * a.rows);
    a.rowPointers.reset(new (std::nothrow) JBLOCKROW[a.rows]);
    if (a.memory.empty() || !a.rowPointers) fail(cinfo, JERR_OUT_OF_MEMORY);
    auto* base = static_cast<unsigned char*>(a.memory.data());
    for (JDIMENSION r = 0; r < a.rows; ++r) a.rowPointers[r] = reinterpret_cast<JBLOCKROW>(base + rowBytes * r);
  }
  self.libraryRealize_(cinfo);
}

JBLOCKARRAY CoefficientStore::access(j_common_ptr cinfo, jvirt_barray_ptr array, JDIMENSION start, JDIMENSION count,
                                     boolean writable) {
  CoefficientStore& self = of(cinfo);
  Array* a = self.owned(array);
  if (!a) return self.libraryAccess_(cinfo, array, start, count, writable);
  if (!a->rowPointers || start > a->rows || count > a->rows - start) fail(cinfo, JERR_BAD_VIRTUAL_ACCESS);
  return a->rowPointers.get() + start;
}

}  // namespace velqor
