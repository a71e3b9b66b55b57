#pragma once

#include "imaging/Bitmap.h"

namespace velqor {

// Resizes a bitmap to any size with a separable filter: a triangle kernel
// widened by the reduction factor when shrinking (so every source pixel
// contributes, like an area average with soft edges) and bilinear
// interpolation when enlarging. Never nearest-neighbour. Width and height are
// scaled independently, so a stretch is just another size.
class Resampler {
 public:
  static Bitmap resize(const Bitmap& source, int width, int height);
};

}  // namespace velqor
