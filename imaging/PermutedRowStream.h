#pragma once

#include <memory>
#include <vector>

#include "host/UniqueFd.h"
#include "imaging/Dihedral.h"
#include "imaging/RowStream.h"

namespace velqor {

// Another stream's rows permuted by a Dihedral transform, without holding the
// whole image: on the first read the source is taken in bands of rows, each
// band is permuted in memory and written in one piece to an unnamed scratch
// file in the system's temporary folder (gone when the stream is); the
// permuted rows are then gathered from the bands' pieces. The source is read
// on a thread of its own (RowPump) while bands are permuted, so memory holds
// five bands (about `bandBytes` each) and the rows asked for; the file holds
// the image.
//
// Threads: one thread at a time.
class PermutedRowStream final : public RowStream {
 public:
  PermutedRowStream(std::unique_ptr<RowStream> source, Dihedral transform, size_t bandBytes = 8u << 20);

  int width() const override { return width_; }
  int height() const override { return height_; }
  Layout layout() const override { return source_->layout(); }
  bool read(std::uint8_t* out, int rows) override;
  Status status() const override { return status_; }

 private:
  // A band's pixels in the permuted frame: a rectangle stored row by row at `offset`.
  struct Piece {
    int x, y, w, h;
    off_t offset;
  };
  template <int C>
  static void permuteTiles(const PermutedRowStream& self, const std::uint8_t* band, int firstRow, int rows,
                           std::uint8_t* out, const Piece& piece);
  bool spill();
  void permuteBand(const std::uint8_t* band, int firstRow, int rows, std::uint8_t* out, const Piece& piece) const;
  bool fail(Status why);

  std::unique_ptr<RowStream> source_;
  Dihedral transform_;
  size_t bandBytes_;
  int width_ = 0, height_ = 0;
  UniqueFd scratch_;
  std::vector<Piece> pieces_;
  std::vector<std::uint8_t> gather_;
  int nextRow_ = 0;
  bool spilled_ = false;
  Status status_;
};

}  // namespace velqor
