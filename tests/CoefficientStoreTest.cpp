#include <gtest/gtest.h>
#include <turbojpeg.h>

#include <cstdint>

#include "platform/linux/CoefficientStore.h"
#include "platform/linux/HugePageBuffer.h"
#include "platform/linux/SampleImages.h"

namespace velqor {
namespace {

struct Source {
  const char* name;
  int width, height, sampling;  // a TJSAMP_ value
  bool progressive;
  std::size_t keep;  // bytes kept of the encoded file (0: all of it)
};

Bytes encode(const Source& s) {
  const Bitmap scene = SampleImages::scene(s.width, s.height);
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

std::vector<JCOEF> coefficients(const Bytes& jpeg, bool withStore, std::size_t* mapped = nullptr) {
  JpegDecompression d;
  CoefficientStore store;
  jvirt_barray_ptr* arrays = nullptr;
  std::vector<JCOEF> out;
  if (!readInto(d, withStore ? &store : nullptr, jpeg, arrays) || !copyRows(d, arrays, out)) return {};
  if (mapped) *mapped = store.mappedBytes();
  return out;
}

class CoefficientStoreReads : public ::testing::TestWithParam<Source> {};

// The store hands the decoder zeroed rows it addresses like the library's
// own arrays: every file, whole or cut short, reads to the same coefficients.
TEST_P(CoefficientStoreReads, TheSameCoefficientsAsTheLibrary) {
  const Bytes jpeg = encode(GetParam());
  std::size_t mapped = 0;
  const std::vector<JCOEF> library = coefficients(jpeg, false), stored = coefficients(jpeg, true, &mapped);
  ASSERT_FALSE(library.empty());
  EXPECT_TRUE(stored == library) << "the store's coefficients differ from the library's";
  EXPECT_GE(mapped, library.size() * sizeof(JCOEF));
}

INSTANTIATE_TEST_SUITE_P(
    Files, CoefficientStoreReads,
    ::testing::Values(Source{"fullChroma", 256, 192, TJSAMP_444, false, 0},
                      Source{"subsampled", 250, 190, TJSAMP_420, false, 0},
                      Source{"halfWidthChroma", 200, 120, TJSAMP_422, false, 0},
                      Source{"grey", 96, 64, TJSAMP_GRAY, false, 0},
                      Source{"progressive", 250, 190, TJSAMP_420, true, 0},
                      Source{"cutShort", 256, 192, TJSAMP_444, false, 9000},
                      Source{"progressiveCutShort", 256, 192, TJSAMP_420, true, 6000}),
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
