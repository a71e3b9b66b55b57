#include "imaging/Dihedral.h"

#include <cstring>

namespace velqor {
namespace {

template <int C>
void permute(const Bitmap& s, Bitmap& d, Dihedral t) {
  const int W = s.width, H = s.height;
  const size_t dstride = d.stride();
  for (int j = 0; j < H; ++j) {
    const std::uint8_t* src = s.row(j);
    DihedralPoint m0 = dihedralLanding(t, 0, j, W, H);
    DihedralPoint m1 = dihedralLanding(t, 1 < W ? 1 : 0, j, W, H);
    const long dx = (W > 1) ? (m1.x - m0.x) : 0, dy = (W > 1) ? (m1.y - m0.y) : 0;
    std::uint8_t* dst = d.pixels.data() + dstride * m0.y + static_cast<size_t>(m0.x) * C;
    const long step = dy * static_cast<long>(dstride) + dx * C;
    for (int i = 0; i < W; ++i) {
      for (int c = 0; c < C; ++c) dst[c] = src[c];
      src += C;
      dst += step;
    }
  }
}

}  // namespace

bool Bitmap::hasTransparency() const {
  if (channels != 4) return false;
  for (size_t k = 3; k < pixels.size(); k += 4)
    if (pixels[k] != 255) return true;
  return false;
}

bool swapsAxes(Dihedral t) {
  return t == Dihedral::rotate90 || t == Dihedral::rotate270 || t == Dihedral::transpose ||
         t == Dihedral::transverse;
}

Dihedral compose(Dihedral first, Dihedral second) {
  // Compose by tracking where two probe pixels of a 3 x 2 bitmap land.
  const int W = 3, H = 2;
  DihedralPoint a = dihedralLanding(first, 0, 0, W, H), b = dihedralLanding(first, 1, 0, W, H);
  int W1 = swapsAxes(first) ? H : W, H1 = swapsAxes(first) ? W : H;
  DihedralPoint a2 = dihedralLanding(second, a.x, a.y, W1, H1), b2 = dihedralLanding(second, b.x, b.y, W1, H1);
  for (Dihedral t : {Dihedral::identity, Dihedral::rotate90, Dihedral::rotate180, Dihedral::rotate270,
                     Dihedral::flipHorizontal, Dihedral::flipVertical, Dihedral::transpose, Dihedral::transverse}) {
    DihedralPoint ta = dihedralLanding(t, 0, 0, W, H), tb = dihedralLanding(t, 1, 0, W, H);
    if (ta.x == a2.x && ta.y == a2.y && tb.x == b2.x && tb.y == b2.y) return t;
  }
  return Dihedral::identity;
}

Bitmap applyDihedral(const Bitmap& s, Dihedral t) {
  if (t == Dihedral::identity) return s;
  const bool swap = swapsAxes(t);
  Bitmap d(swap ? s.height : s.width, swap ? s.width : s.height, s.channels);
  if (s.empty()) return d;
  if (s.channels == 4) {
    permute<4>(s, d, t);
  } else if (s.channels == 3) {
    permute<3>(s, d, t);
  } else {
    permute<1>(s, d, t);
  }
  return d;
}

Dihedral displayTransform(int o) {
  switch (o) {
    case 1: return Dihedral::rotate180;       // down
    case 2: return Dihedral::rotate270;       // left
    case 3: return Dihedral::rotate90;        // right
    case 4: return Dihedral::flipHorizontal;  // upMirrored
    case 5: return Dihedral::flipVertical;    // downMirrored
    case 6: return Dihedral::transpose;       // leftMirrored
    case 7: return Dihedral::transverse;      // rightMirrored
    default: return Dihedral::identity;
  }
}

}  // namespace velqor
