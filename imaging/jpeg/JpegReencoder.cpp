#include "imaging/jpeg/JpegReencoder.h"

#include "imaging/jpeg/JpegCoefficientPath.h"
#include "imaging/jpeg/JpegScanlinePath.h"

namespace velqor {

StatusOr<JpegReencoder::Reencoded> JpegReencoder::reencode(std::span<const std::uint8_t> jpeg,
                                                           const JpegReencodeRequest& request,
                                                           const DecodeLimits& limits) {
  auto coefficients = JpegCoefficientPath::reencode(jpeg, request, limits);
  if (coefficients.ok()) return Reencoded{std::move(*coefficients), Road::coefficients};
  auto scanlines = JpegScanlinePath::reencode(jpeg, request);
  if (scanlines.ok()) return Reencoded{std::move(*scanlines), Road::scanlines};
  return scanlines.status();
}

}  // namespace velqor
