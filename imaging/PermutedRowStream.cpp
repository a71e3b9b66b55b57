#include "imaging/PermutedRowStream.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string>

#include "imaging/RowPump.h"

namespace velqor {
namespace {

constexpr int kTile = 64;  // the permutation walks tiles, so reads and writes stay in cache

bool writeAll(int fd, const std::uint8_t* data, size_t size, off_t offset) {
  while (size > 0) {
    const ssize_t n = ::pwrite(fd, data, size, offset);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    data += n, size -= static_cast<size_t>(n), offset += n;
  }
  return true;
}

bool readAll(int fd, std::uint8_t* data, size_t size, off_t offset) {
  while (size > 0) {
    const ssize_t n = ::pread(fd, data, size, offset);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    data += n, size -= static_cast<size_t>(n), offset += n;
  }
  return true;
}

UniqueFd scratchFile() {
  std::error_code ec;
  std::filesystem::path dir = std::filesystem::temp_directory_path(ec);
  if (ec) dir = "/tmp";
  // No name: nothing is left behind, whatever happens to the process.
  return UniqueFd(::open(dir.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600));
}

}  // namespace

// The landing is affine in (i, j): one step per column, one per row.
template <int C>
void PermutedRowStream::permuteTiles(const PermutedRowStream& self, const std::uint8_t* band, int firstRow, int rows,
                                     std::uint8_t* out, const Piece& p) {
  const int w = self.source_->width(), h = self.source_->height();
  const Dihedral t = self.transform_;
  const std::ptrdiff_t outStride = static_cast<std::ptrdiff_t>(p.w) * C;
  const DihedralPoint o = dihedralLanding(t, 0, firstRow, w, h), di = dihedralLanding(t, 1, firstRow, w, h),
                      dj = dihedralLanding(t, 0, firstRow + 1, w, h);
  const std::ptrdiff_t stepI = (di.y - o.y) * outStride + (di.x - o.x) * C;
  const std::ptrdiff_t stepJ = (dj.y - o.y) * outStride + (dj.x - o.x) * C;
  const std::ptrdiff_t origin = (o.y - p.y) * outStride + (o.x - p.x) * C;
  const size_t inStride = self.source_->stride();
  for (int tj = 0; tj < rows; tj += kTile)
    for (int ti = 0; ti < w; ti += kTile)
      for (int j = tj; j < std::min(rows, tj + kTile); ++j) {
        const std::uint8_t* in = band + inStride * static_cast<size_t>(j) + static_cast<size_t>(ti) * C;
        std::uint8_t* d = out + origin + stepJ * j + stepI * ti;
        for (int i = ti; i < std::min(w, ti + kTile); ++i, in += C, d += stepI) std::memcpy(d, in, C);
      }
}

PermutedRowStream::PermutedRowStream(std::unique_ptr<RowStream> source, Dihedral transform, size_t bandBytes)
    : source_(std::move(source)), transform_(transform), bandBytes_(bandBytes) {
  const bool swap = swapsAxes(transform_);
  width_ = swap ? source_->height() : source_->width();
  height_ = swap ? source_->width() : source_->height();
}

bool PermutedRowStream::fail(Status why) {
  status_ = std::move(why);
  return false;
}

void PermutedRowStream::permuteBand(const std::uint8_t* band, int firstRow, int rows, std::uint8_t* out,
                                    const Piece& p) const {
  switch (channels()) {
    case 1: return permuteTiles<1>(*this, band, firstRow, rows, out, p);
    case 4: return permuteTiles<4>(*this, band, firstRow, rows, out, p);
    default: return permuteTiles<3>(*this, band, firstRow, rows, out, p);
  }
}

bool PermutedRowStream::spill() {
  scratch_ = scratchFile();
  if (!scratch_.valid()) return fail(Status::unavailable(std::string("cannot make a scratch file: ") + std::strerror(errno)));
  const int w = source_->width(), h = source_->height();
  const int bandRows = static_cast<int>(std::clamp<size_t>(bandBytes_ / source_->stride(), 1, static_cast<size_t>(h)));
  std::vector<std::uint8_t> permuted(source_->stride() * static_cast<size_t>(bandRows));
  off_t offset = 0;
  int j0 = 0;
  // The source decodes the next band on the pump's thread while this one permutes and writes.
  Status wrote = Status::okStatus();
  Status pumped = RowPump::run(
      *source_, bandRows,
      [&](const std::uint8_t* band, int rows) {
        // The band's corners bound where its pixels land.
        const DihedralPoint a = dihedralLanding(transform_, 0, j0, w, h),
                            b = dihedralLanding(transform_, w - 1, j0 + rows - 1, w, h);
        Piece piece{std::min(a.x, b.x), std::min(a.y, b.y), std::abs(a.x - b.x) + 1, std::abs(a.y - b.y) + 1, offset};
        permuteBand(band, j0, rows, permuted.data(), piece);
        const size_t size = static_cast<size_t>(piece.w) * piece.h * channels();
        if (!writeAll(scratch_.get(), permuted.data(), size, offset)) {
          wrote = Status::unavailable(std::string("cannot write the scratch file: ") + std::strerror(errno));
          return false;
        }
        offset += static_cast<off_t>(size);
        pieces_.push_back(piece);
        j0 += rows;
        return true;
      },
      Status::cancelled("stopped"));
  if (!wrote.ok()) return fail(wrote);
  if (!pumped.ok()) return fail(pumped);
  spilled_ = true;
  return true;
}

bool PermutedRowStream::read(std::uint8_t* out, int rows) {
  if (!status_.ok()) return false;
  if (rows < 0 || rows > height_ - nextRow_) return fail(Status::invalidArgument("no more rows"));
  if (transform_ == Dihedral::identity) {
    if (!source_->read(out, rows)) return fail(source_->status());
    nextRow_ += rows;
    return true;
  }
  if (!spilled_ && !spill()) return false;
  const int c = channels();
  const size_t stride = this->stride();
  for (const Piece& p : pieces_) {
    const int top = std::max(nextRow_, p.y), bottom = std::min(nextRow_ + rows, p.y + p.h);
    if (top >= bottom) continue;
    const size_t pieceStride = static_cast<size_t>(p.w) * c;
    const off_t at = p.offset + static_cast<off_t>(pieceStride * static_cast<size_t>(top - p.y));
    const size_t size = pieceStride * static_cast<size_t>(bottom - top);
    std::uint8_t* target = out + stride * static_cast<size_t>(top - nextRow_);
    if (p.w == width_) {  // whole rows: straight into place
      if (!readAll(scratch_.get(), target, size, at)) return fail(Status::dataLoss("cannot read the scratch file"));
      continue;
    }
    gather_.resize(size);
    if (!readAll(scratch_.get(), gather_.data(), size, at)) return fail(Status::dataLoss("cannot read the scratch file"));
    for (int y = 0; y < bottom - top; ++y)
      std::memcpy(target + stride * static_cast<size_t>(y) + static_cast<size_t>(p.x) * c,
                  gather_.data() + pieceStride * static_cast<size_t>(y), pieceStride);
  }
  nextRow_ += rows;
  return true;
}

}  // namespace velqor
