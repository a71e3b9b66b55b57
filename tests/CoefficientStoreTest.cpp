#include <gtest/gtest.h>
#include <turbojpeg.h>

#include <cstdint>
#include <cstdlib>

#include "imaging/jpeg/CoefficientStore.h"
#include "imaging/jpeg/HugePageBuffer.h"
#include "platform/linux/SampleImages.h"

namespace velqor {
namespace {

struct Source {
  const char* name;
  int width, height, sampling;  // a TJSAMP_ value
  bool progressive;
  std::size_t keep;  // bytes kept of the encoded file (0: all of it)
  bool scanPerComponent = false;  // sequential, one scan for each component
};

// A sequential file whose components come one after another, each in a scan
// of its own: the decoder writes every array from top to bottom in turn.
Bytes encodeScanPerComponent(const Bitmap& scene, int width, int height) {
  jpeg_compress_struct c{};
  jpeg_error_mgr errors{};
  c.err = jpeg_std_error(&errors);
  jpeg_create_compress(&c);
  unsigned char* out = nullptr;
  unsigned long size = 0;
  jpeg_mem_dest(&c, &out, &size);
  c.image_width = static_cast<JDIMENSION>(width);
  c.image_height = static_cast<JDIMENSION>(height);
  c.input_components = 3;
  c.in_color_space = JCS_RGB;
  jpeg_set_defaults(&c);
  jpeg_set_quality(&c, 90, TRUE);
  jpeg_scan_info scans[3] = {};
  for (int i = 0; i < 3; ++i) {
    scans[i].comps_in_scan = 1;
    scans[i].component_index[0] = i;
    scans[i].Se = DCTSIZE2 - 1;
  }
  c.scan_info = scans;
  c.num_scans = 3;
  jpeg_start_compress(&c, TRUE);
  while (c.next_scanline < c.image_height) {
    auto* row = const_cast<JSAMPLE*>(scene.pixels.data() + std::size_t{c.next_scanline} * width * 3);
    jpeg_write_scanlines(&c, &row, 1);
  }
  jpeg_finish_compress(&c);
  jpeg_destroy_compress(&c);
  Bytes bytes(out, out + size);
  std::free(out);
  return bytes;
}

Bytes encode(const Source& s) {
  const Bitmap scene = SampleImages::scene(s.width, s.height);
  if (s.scanPerComponent) return encodeScanPerComponent(scene, s.width, s.height);
  tjhandle h = tjInitCompress();
  unsigned char* out = nullptr;
  unsigned long size = 0;
  tjCompress2(h, scene.pixels.data(), s.width, 0, s.height, TJPF_RGB, &out, &size, s.sampling, 90,
              s.progressive ? TJFLAG_PROGRESSIVE : 0);
  Bytes bytes(out, out + (s.keep ? std::min<std::size_t>(s.keep, size) : size));
  tjFree(out);
  tjDestroy(h);
  return bytes;
}

// Every coefficient of every component, in row order, read with or without
// the store; empty when the file does not decode.
bool readInto(JpegDecompression& d, CoefficientStore* store, const Bytes& jpeg, jvirt_barray_ptr*& arrays) {
  if (setjmp(d.errors.jump)) return false;
  d.open(jpeg);
  if (store) store->attach(d);
  arrays = jpeg_read_coefficients(&d.info);
  return arrays != nullptr;
}

bool copyRows(JpegDecompression& d, jvirt_barray_ptr* arrays, std::vector<JCOEF>& out) {
  if (setjmp(d.errors.jump)) return false;
  for (int ci = 0; ci < d.info.num_components; ++ci) {
    const jpeg_component_info& c = d.info.comp_info[ci];
    for (JDIMENSION r = 0; r < c.height_in_blocks; ++r) {
      JBLOCKROW row = d.info.mem->access_virt_barray(reinterpret_cast<j_common_ptr>(&d.info), arrays[ci], r, 1, FALSE)[0];
      for (JDIMENSION b = 0; b < c.width_in_blocks; ++b) out.insert(out.end(), row[b], row[b] + DCTSIZE2);
    }
  }
  return true;
}

struct Read {
  std::vector<JCOEF> rows;    // every coefficient, through the library's row access
  std::vector<JCOEF> blocks;  // the same, block by block from the store
  std::size_t stored = 0;
  bool packed = false;
};

// The blocks of every component as the store hands them out, unpacked.
void copyBlocks(const JpegDecompression& d, const CoefficientStore& store, jvirt_barray_ptr* arrays,
                std::vector<JCOEF>& out) {
  JCOEF scratch[DCTSIZE2];
  for (int ci = 0; ci < d.info.num_components; ++ci) {
    const jpeg_component_info& c = d.info.comp_info[ci];
    for (JDIMENSION r = 0; r < c.height_in_blocks; ++r)
      for (JDIMENSION b = 0; b < c.width_in_blocks; ++b) {
        const PackedBlock block = store.reader(arrays[ci]).block(r, b, scratch);
        JCOEF whole[DCTSIZE2] = {};
        const JCOEF* v = block.values;
        for (int k = 0; k < DCTSIZE2; ++k)
          if (block.mask >> k & 1) whole[k] = *v++;
        out.insert(out.end(), whole, whole + DCTSIZE2);
      }
  }
}

Read coefficients(const Bytes& jpeg, bool withStore) {
  JpegDecompression d;
  CoefficientStore store;
  jvirt_barray_ptr* arrays = nullptr;
  Read read;
  if (!readInto(d, withStore ? &store : nullptr, jpeg, arrays)) return {};
  if (withStore) {
    if (!store.seal()) return {};
    copyBlocks(d, store, arrays, read.blocks);
  }
  if (!copyRows(d, arrays, read.rows)) return {};
  read.stored = store.storedBytes();
  read.packed = store.packed();
  return read;
}

class CoefficientStoreReads : public ::testing::TestWithParam<Source> {};

// The store hands the decoder zeroed rows it addresses like the library's
// own arrays: every file, whole or cut short, reads to the same coefficients,
// through row access and block by block. A sequential file is kept in a
// fraction of the arrays' size; a progressive one whole.
TEST_P(CoefficientStoreReads, TheSameCoefficientsAsTheLibrary) {
  const Bytes jpeg = encode(GetParam());
  const Read library = coefficients(jpeg, false), stored = coefficients(jpeg, true);
  ASSERT_FALSE(library.rows.empty());
  EXPECT_TRUE(stored.rows == library.rows) << "the store's rows differ from the library's";
  EXPECT_TRUE(stored.blocks == library.rows) << "the store's blocks differ from the library's";
  const std::size_t whole = library.rows.size() * sizeof(JCOEF);
  EXPECT_EQ(stored.packed, !GetParam().progressive);
  if (stored.packed)
    EXPECT_LT(stored.stored, whole / 2);
  else
    EXPECT_GE(stored.stored, whole);
}

INSTANTIATE_TEST_SUITE_P(
    Files, CoefficientStoreReads,
    ::testing::Values(Source{"fullChroma", 256, 192, TJSAMP_444, false, 0},
                      Source{"subsampled", 250, 190, TJSAMP_420, false, 0},
                      Source{"halfWidthChroma", 200, 120, TJSAMP_422, false, 0},
                      Source{"grey", 96, 64, TJSAMP_GRAY, false, 0},
                      Source{"progressive", 250, 190, TJSAMP_420, true, 0},
                      Source{"cutShort", 256, 192, TJSAMP_444, false, 9000},
                      Source{"progressiveCutShort", 256, 192, TJSAMP_420, true, 6000},
                      Source{"scanPerComponent", 248, 184, TJSAMP_444, false, 0, true}),
    [](const auto& info) { return std::string(info.param.name); });

// A decoder's rewrites, driven through the memory manager's hooks on an array
// of three rows of two blocks: each write fills every block of a row with
// `nonzeros` leading coefficients. Rows read back as last written, rewrites
// that shrink stay in place, and a file that keeps growing its blocks past
// one full write of the array is refused instead of growing memory.
struct Write {
  JDIMENSION row;
  int nonzeros;
};
struct Rewrites {
  const char* name;
  std::vector<Write> writes;
  bool fits;
  std::size_t valuesStored;  // when it fits
};

JCOEF valueAt(JDIMENSION block, int k) { return static_cast<JCOEF>(100 * (block + 1) + k + 1); }

bool drive(JpegDecompression& d, CoefficientStore& store, const Bytes& jpeg, const std::vector<Write>& writes,
           jvirt_barray_ptr& array) {
  if (setjmp(d.errors.jump)) return false;
  d.open(jpeg);
  store.attach(d);
  auto common = reinterpret_cast<j_common_ptr>(&d.info);
  array = d.info.mem->request_virt_barray(common, JPOOL_IMAGE, TRUE, 2, 3, 1);
  d.info.mem->realize_virt_arrays(common);
  for (const Write& w : writes) {
    JBLOCKROW row = d.info.mem->access_virt_barray(common, array, w.row, 1, TRUE)[0];
    for (JDIMENSION b = 0; b < 2; ++b)
      for (int k = 0; k < DCTSIZE2; ++k) row[b][k] = k < w.nonzeros ? valueAt(b, k) : 0;
  }
  return store.seal();
}

class CoefficientStoreRewrites : public ::testing::TestWithParam<Rewrites> {};

TEST_P(CoefficientStoreRewrites, ReadBackAsLastWritten) {
  const Rewrites& c = GetParam();
  JpegDecompression d;
  CoefficientStore store;
  jvirt_barray_ptr array = nullptr;
  const bool fits = drive(d, store, encode(Source{"tiny", 16, 16, TJSAMP_444, false, 0}), c.writes, array);
  ASSERT_EQ(fits, c.fits);
  EXPECT_EQ(store.outgrown(), !c.fits);
  if (!fits) return;
  EXPECT_EQ(store.storedBytes(), 6 * (sizeof(std::uint64_t) + sizeof(std::uint32_t)) + c.valuesStored * sizeof(JCOEF));
  for (JDIMENSION r = 0; r < 3; ++r) {
    int last = 0;
    for (const Write& w : c.writes)
      if (w.row == r) last = w.nonzeros;
    JCOEF scratch[DCTSIZE2];
    for (JDIMENSION b = 0; b < 2; ++b) {
      const PackedBlock block = store.reader(array).block(r, b, scratch);
      ASSERT_EQ(block.mask, last == 64 ? ~std::uint64_t{0} : (std::uint64_t{1} << last) - 1) << "row " << r;
      for (int k = 0; k < last; ++k) EXPECT_EQ(block.values[k], valueAt(b, k)) << "row " << r << " block " << b;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(
    Decoders, CoefficientStoreRewrites,
    ::testing::Values(Rewrites{"eachRowOnce", {{0, 5}, {1, 5}, {2, 5}}, true, 30},
                      Rewrites{"rewrittenSmallerInPlace", {{0, 10}, {1, 10}, {0, 3}}, true, 40},
                      Rewrites{"rewrittenLargerAfterTheRest", {{0, 10}, {1, 10}, {0, 30}, {2, 1}}, true, 102},
                      Rewrites{"revisitedWithoutChange", {{0, 7}, {1, 7}, {0, 7}, {2, 7}, {0, 7}}, true, 42},
                      Rewrites{"everyCoefficientOnce", {{0, 64}, {1, 64}, {2, 64}}, true, 384},
                      Rewrites{"outgrowsItsSpaceAtTheEnd", {{0, 1}, {1, 1}, {2, 1}, {0, 64}, {1, 64}, {2, 64}}, false, 0},
                      Rewrites{"outgrowsItsSpaceWhileDecoding",
                               {{0, 1}, {1, 1}, {2, 1}, {0, 64}, {1, 64}, {2, 64}, {0, 1}}, false, 0}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(HugePageBuffer, IsZeroedAlignedAndMovable) {
  HugePageBuffer buffer(5'000'000);
  ASSERT_FALSE(buffer.empty());
  EXPECT_EQ(buffer.size(), 5'000'000u);
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(buffer.data()) % (2u << 20), 0u);
  const auto* bytes = static_cast<const unsigned char*>(buffer.data());
  EXPECT_EQ(std::count(bytes, bytes + buffer.size(), 0), static_cast<std::ptrdiff_t>(buffer.size()));
  static_cast<unsigned char*>(buffer.data())[buffer.size() - 1] = 7;  // the last byte is writable
  HugePageBuffer moved = std::move(buffer);
  EXPECT_TRUE(buffer.empty());
  EXPECT_EQ(static_cast<const unsigned char*>(moved.data())[moved.size() - 1], 7);
  EXPECT_TRUE(HugePageBuffer(0).empty());
}

}  // namespace
}  // namespace velqor
