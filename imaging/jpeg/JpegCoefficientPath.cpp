#include "imaging/jpeg/JpegCoefficientPath.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstdint>
#include <memory>
#include <vector>

#include "imaging/jpeg/CoefficientStore.h"
#include "imaging/jpeg/JpegCompression.h"
#include "imaging/jpeg/JpegDecompression.h"
#include "imaging/jpeg/JpegEncoder.h"

namespace velqor {
namespace {

// A permutation as "transpose first, then mirror": every one of the eight is one.
struct Placement {
  bool swap = false, flipX = false, flipY = false;
};

Placement placementOf(Dihedral t) {
  switch (t) {
    case Dihedral::identity: return {false, false, false};
    case Dihedral::rotate90: return {true, true, false};
    case Dihedral::rotate180: return {false, true, true};
    case Dihedral::rotate270: return {true, false, true};
    case Dihedral::flipHorizontal: return {false, true, false};
    case Dihedral::flipVertical: return {false, false, true};
    case Dihedral::transpose: return {true, false, false};
    case Dihedral::transverse: return {true, true, true};
  }
  return {};
}

// One component's coefficients on their way out: the stored source array, the
// output frequency each source frequency goes to (the transposed one when the
// axes swap), and for each output frequency the factor (sign x old step / new
// step) that makes it.
struct ComponentFeed {
  CoefficientStore::Reader source;
  int outWidth = 0, outHeight = 0;  // in blocks
  std::array<std::uint8_t, DCTSIZE2> destination{};
  std::array<float, DCTSIZE2> factor{};
  // When every new step divides its old one (a finer or equal target, as at
  // full quality) the factors are whole numbers: the same values, in integers.
  bool wholeFactors = false;
  std::array<std::int32_t, DCTSIZE2> multiplier{};
  std::vector<JCOEF> strip;  // rows of blocks
  std::vector<JBLOCKROW> stripRows;
  std::array<JCOEF, DCTSIZE2> scratch{};  // a block's values when the store keeps its array whole
};

constexpr std::array<std::int32_t, DCTSIZE2> kLowest = [] {
  std::array<std::int32_t, DCTSIZE2> a{};
  a.fill(-1023);
  a[0] = -1024;
  return a;
}();

using AccessFn = JBLOCKARRAY (*)(j_common_ptr, jvirt_barray_ptr, JDIMENSION, JDIMENSION, boolean);

// What the encoder reads instead of stored coefficient arrays: its memory
// manager's row access is routed here for the three tokens below.
struct CoefficientFeed {
  Placement placement;
  std::array<ComponentFeed, 3> components;
  AccessFn libraryAccess = nullptr;

  jvirt_barray_ptr token(int ci) { return reinterpret_cast<jvirt_barray_ptr>(&components[static_cast<size_t>(ci)]); }
  JBLOCKARRAY rows(int ci, JDIMENSION start, JDIMENSION count);
};

// Each nonzero source coefficient goes to its output frequency, multiplied,
// rounded half away from zero and clamped to what a baseline Huffman code can
// carry (10 bits for AC, a DC of -1024..1023); zeros stay zero, so the work
// follows the few nonzero coefficients a block holds. `out` starts zeroed.
inline void requantize(const ComponentFeed& f, PackedBlock in, JCOEF* out) {
  const JCOEF* v = in.values;
  if (f.wholeFactors) {
    for (std::uint64_t m = in.mask; m != 0; m &= m - 1) {
      const size_t d = f.destination[static_cast<size_t>(std::countr_zero(m))];
      const std::int32_t q = std::int32_t{*v++} * f.multiplier[d];
      out[d] = static_cast<JCOEF>(std::min(std::max(q, kLowest[d]), 1023));
    }
    return;
  }
  for (std::uint64_t m = in.mask; m != 0; m &= m - 1) {
    const size_t d = f.destination[static_cast<size_t>(std::countr_zero(m))];
    const float x = static_cast<float>(*v++) * f.factor[d];
    const int q = static_cast<int>(x + std::copysign(0.5f, x));
    out[d] = static_cast<JCOEF>(std::min(std::max(q, kLowest[d]), 1023));
  }
}

// How many blocks ahead a turn asks for index entries and for values.
constexpr int kIndexAhead = 16, kValuesAhead = 8;

JBLOCKARRAY CoefficientFeed::rows(int ci, JDIMENSION start, JDIMENSION count) {
  ComponentFeed& f = components[static_cast<size_t>(ci)];
  // The encoder reads whole MCUs: round the row up to the widest it may touch.
  const size_t width = static_cast<size_t>(f.outWidth) + 4;
  if (f.strip.size() < width * count * DCTSIZE2) f.strip.resize(width * count * DCTSIZE2);
  f.stripRows.resize(count);
  const Placement p = placement;
  for (JDIMENSION i = 0; i < count; ++i) {
    JCOEF* first = f.strip.data() + width * i * DCTSIZE2;
    std::fill(first, first + width * DCTSIZE2, JCOEF{0});
    JBLOCKROW out = reinterpret_cast<JBLOCKROW>(first);
    f.stripRows[i] = out;
    const int oy = static_cast<int>(start + i);
    if (oy >= f.outHeight) continue;  // below the picture: the encoder's padding rows
    const int ty = p.flipY ? f.outHeight - 1 - oy : oy;
    for (int ox = 0; ox < f.outWidth; ++ox) {
      const int tx = p.flipX ? f.outWidth - 1 - ox : ox;
      const auto row = static_cast<JDIMENSION>(p.swap ? tx : ty), column = static_cast<JDIMENSION>(p.swap ? ty : tx);
      if (p.swap) {  // down a column of the source: one row of blocks apart each time
        const int step = p.flipX ? -1 : 1;
        f.source.prefetchIndex(static_cast<JDIMENSION>(tx + kIndexAhead * step), column);
        f.source.prefetchValues(static_cast<JDIMENSION>(tx + kValuesAhead * step), column);
      }
      requantize(f, f.source.block(row, column, f.scratch.data()), out[ox]);
    }
  }
  return f.stripRows.data();
}

JBLOCKARRAY feedAccess(j_common_ptr cinfo, jvirt_barray_ptr array, JDIMENSION start, JDIMENSION count,
                       boolean writable) {
  auto& feed = *static_cast<CoefficientFeed*>(cinfo->client_data);
  for (int ci = 0; ci < 3; ++ci)
    if (array == feed.token(ci)) return feed.rows(ci, start, count);
  return feed.libraryAccess(cinfo, array, start, count, writable);
}

bool yccFile(const jpeg_decompress_struct& info) {
  return info.jpeg_color_space == JCS_YCbCr && info.num_components == 3;
}

// Coefficient memory the source holds once read: two bytes a sample.
std::uint64_t coefficientBytes(const jpeg_decompress_struct& info) {
  std::uint64_t blocks = 0;
  for (int ci = 0; ci < info.num_components; ++ci)
    blocks += static_cast<std::uint64_t>(info.comp_info[ci].width_in_blocks) * info.comp_info[ci].height_in_blocks;
  return blocks * sizeof(JBLOCK);
}

bool wholeMcus(const jpeg_decompress_struct& info) {
  return info.image_width % (info.max_h_samp_factor * DCTSIZE) == 0 &&
         info.image_height % (info.max_v_samp_factor * DCTSIZE) == 0;
}

// Each function below holds its own setjmp frame with only trivial locals.

bool openSource(JpegDecompression& d, std::span<const std::uint8_t> jpeg) {
  if (setjmp(d.errors.jump)) return false;
  d.open(jpeg);
  return true;
}

bool readCoefficients(JpegDecompression& d, jvirt_barray_ptr*& arrays) {
  if (setjmp(d.errors.jump)) return false;
  arrays = jpeg_read_coefficients(&d.info);
  return arrays != nullptr;
}

bool configureOutput(JpegCompression& c, int width, int height, const JpegReencodeRequest& r, size_t expected) {
  if (setjmp(c.errors.jump)) return false;
  c.open(expected, r.sink);
  c.info.image_width = static_cast<JDIMENSION>(width);
  c.info.image_height = static_cast<JDIMENSION>(height);
  c.info.input_components = 3;
  c.info.in_color_space = JCS_YCbCr;
  JpegEncoder::configure(c.info, r.quality, !r.exifApp1.empty());
  c.info.optimize_coding = TRUE;
  return true;
}

bool writeOutput(JpegCompression& c, CoefficientFeed& feed, jvirt_barray_ptr* tokens, const JpegReencodeRequest& r) {
  if (setjmp(c.errors.jump)) return false;
  c.info.client_data = &feed;
  feed.libraryAccess = c.info.mem->access_virt_barray;
  c.info.mem->access_virt_barray = feedAccess;
  jpeg_write_coefficients(&c.info, tokens);
  JpegEncoder::writeMarkers(c.info, r.exifApp1, r.iccProfile.get());
  jpeg_finish_compress(&c.info);
  return true;
}

bool sameSampling(const jpeg_decompress_struct& source, const jpeg_compress_struct& target) {
  for (int ci = 0; ci < 3; ++ci)
    if (source.comp_info[ci].h_samp_factor != target.comp_info[ci].h_samp_factor ||
        source.comp_info[ci].v_samp_factor != target.comp_info[ci].v_samp_factor)
      return false;
  return true;
}

// Requantizing to a finer step that the source's step is no multiple of moves
// every value off the grid a decode would see, and loses up to 0.6 dB
// against a full decode and encode; a coarser or dividing step loses nothing.
bool requantizesCleanly(const JQUANT_TBL& source, const JQUANT_TBL& target) {
  for (int k = 0; k < DCTSIZE2; ++k)
    if (target.quantval[k] < source.quantval[k] && source.quantval[k] % target.quantval[k] != 0) return false;
  return true;
}

// The frequencies and factors of one component; false when the source never
// gave it a table (a damaged progressive file).
bool prepare(ComponentFeed& f, const jpeg_component_info& source, const JQUANT_TBL* target, Placement p) {
  if (!source.quant_table || !target) return false;
  f.wholeFactors = true;
  for (int v = 0; v < DCTSIZE; ++v)
    for (int u = 0; u < DCTSIZE; ++u) {
      const int k = v * DCTSIZE + u;
      const int from = p.swap ? u * DCTSIZE + v : k;
      f.destination[static_cast<size_t>(from)] = static_cast<std::uint8_t>(k);
      const float sign = ((p.flipX && (u & 1)) != (p.flipY && (v & 1))) ? -1.0f : 1.0f;
      f.factor[static_cast<size_t>(k)] =
          sign * static_cast<float>(source.quant_table->quantval[from]) / static_cast<float>(target->quantval[k]);
      const int oldStep = source.quant_table->quantval[from], newStep = target->quantval[k];
      if (newStep == 0 || oldStep % newStep != 0) f.wholeFactors = false;
      else f.multiplier[static_cast<size_t>(k)] = static_cast<std::int32_t>(sign) * (oldStep / newStep);
    }
  return true;
}

}  // namespace

StatusOr<Bytes> JpegCoefficientPath::reencode(std::span<const std::uint8_t> jpeg, const JpegReencodeRequest& r,
                                              const DecodeLimits& limits) {
  auto d = std::make_unique<JpegDecompression>();
  if (!openSource(*d, jpeg)) return Status::dataLoss("cannot decode JPEG: " + d->errors.text());
  const Placement p = placementOf(r.transform);
  if (!yccFile(d->info)) return Status::failedPrecondition("coefficients are re-encoded from YCbCr files only");
  if (r.transform != Dihedral::identity && !wholeMcus(d->info))
    return Status::failedPrecondition("a permuted picture must be whole MCUs");
  if (coefficientBytes(d->info) > limits.maxBytes)
    return Status::failedPrecondition("the coefficients exceed the memory budget");
  const int outW = static_cast<int>(p.swap ? d->info.image_height : d->info.image_width);
  const int outH = static_cast<int>(p.swap ? d->info.image_width : d->info.image_height);
  auto c = std::make_unique<JpegCompression>();
  if (!configureOutput(*c, outW, outH, r, JpegEncoder::expectedBytes(jpeg.size(), r.quality)))
    return Status::internal("cannot encode JPEG: " + c->errors.text());
  if (!sameSampling(d->info, c->info))
    return Status::failedPrecondition("the target quality samples chroma differently from the source");

  // The header's tables decide before the whole file is read; the tables each
  // component was actually coded with are checked again below.
  for (int ci = 0; ci < 3; ++ci) {
    const JQUANT_TBL* declared = d->info.quant_tbl_ptrs[d->info.comp_info[ci].quant_tbl_no];
    const JQUANT_TBL* target = c->info.quant_tbl_ptrs[c->info.comp_info[ci].quant_tbl_no];
    if (declared && target && !requantizesCleanly(*declared, *target))
      return Status::failedPrecondition("the target steps are finer than the source's and not its divisors");
  }
  // The coefficients live in huge pages of their own for as long as the encoder reads them.
  auto store = std::make_unique<CoefficientStore>();
  store->attach(*d);
  jvirt_barray_ptr* arrays = nullptr;
  if (!readCoefficients(*d, arrays) || !store->seal()) {
    if (store->outgrown()) return Status::failedPrecondition("the file rewrites its coefficients beyond their store");
    return Status::dataLoss("cannot decode JPEG: " + d->errors.text());
  }
  auto feed = std::make_unique<CoefficientFeed>();
  feed->placement = p;
  std::array<jvirt_barray_ptr, 3> tokens{};
  for (int ci = 0; ci < 3; ++ci) {
    const jpeg_component_info& in = d->info.comp_info[ci];
    ComponentFeed& f = feed->components[static_cast<size_t>(ci)];
    f.outWidth = static_cast<int>(p.swap ? in.height_in_blocks : in.width_in_blocks);
    f.outHeight = static_cast<int>(p.swap ? in.width_in_blocks : in.height_in_blocks);
    if (!store->holds(arrays[ci])) return Status::failedPrecondition("a component's coefficients are not in the store");
    f.source = store->reader(arrays[ci]);
    const JQUANT_TBL* target = c->info.quant_tbl_ptrs[c->info.comp_info[ci].quant_tbl_no];
    if (!prepare(f, in, target, p)) return Status::failedPrecondition("a component has no quantization table");
    if (!requantizesCleanly(*in.quant_table, *target))
      return Status::failedPrecondition("the target steps are finer than the source's and not its divisors");
    tokens[static_cast<size_t>(ci)] = feed->token(ci);
  }
  if (!writeOutput(*c, *feed, tokens.data(), r)) return Status::internal("cannot encode JPEG: " + c->errors.text());
  if (c->sinkRefused) return Status::unavailable("cannot write the JPEG: its bytes were not kept");
  return std::move(c->out);
}

}  // namespace velqor
