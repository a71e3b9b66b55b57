#pragma once

#include "imaging/Bitmap.h"

namespace velqor {

// The eight exact pixel permutations of a rectangle. Composition and the
// mapping from image orientations are what the image operations need.
enum class Dihedral {
  identity,
  rotate90,   // clockwise: stored (i, j) lands at (H-1-j, i)
  rotate180,
  rotate270,  // counter-clockwise: stored (i, j) lands at (j, W-1-i)
  flipHorizontal,
  flipVertical,
  transpose,   // (i, j) lands at (j, i)
  transverse,  // (i, j) lands at (H-1-j, W-1-i)
};

// Where stored pixel (i, j) of a W x H image lands under `t`.
struct DihedralPoint {
  int x, y;
};
inline DihedralPoint dihedralLanding(Dihedral t, int i, int j, int W, int H) {
  switch (t) {
    case Dihedral::identity: return {i, j};
    case Dihedral::rotate90: return {H - 1 - j, i};
    case Dihedral::rotate180: return {W - 1 - i, H - 1 - j};
    case Dihedral::rotate270: return {j, W - 1 - i};
    case Dihedral::flipHorizontal: return {W - 1 - i, j};
    case Dihedral::flipVertical: return {i, H - 1 - j};
    case Dihedral::transpose: return {j, i};
    case Dihedral::transverse: return {H - 1 - j, W - 1 - i};
  }
  return {i, j};
}

// True when the transform swaps width and height.
bool swapsAxes(Dihedral t);
// `second` applied after `first`.
Dihedral compose(Dihedral first, Dihedral second);
// Applies the permutation; the result is a new bitmap.
Bitmap applyDihedral(const Bitmap& source, Dihedral t);

// How an image with this orientation is drawn upright (mirrors included).
Dihedral displayTransform(int imageOrientation);

}  // namespace velqor
