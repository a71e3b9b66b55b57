#include "imaging/jpeg/JpegReencoder.h"

#include "imaging/PermutedRowStream.h"
#include "imaging/jpeg/JpegCoefficientPath.h"
#include "imaging/jpeg/JpegEncoder.h"
#include "imaging/jpeg/JpegRowEncoder.h"
#include "imaging/jpeg/JpegRowStream.h"
#include "imaging/jpeg/JpegScanlinePath.h"

namespace velqor {

StatusOr<JpegReencoder::Reencoded> JpegReencoder::reencode(std::span<const std::uint8_t> jpeg,
                                                           const JpegReencodeRequest& request,
                                                           const DecodeLimits& limits) {
  auto coefficients = JpegCoefficientPath::reencode(jpeg, request, limits);
  if (coefficients.ok()) return Reencoded{std::move(*coefficients), Road::coefficients};
  if (request.transform == Dihedral::identity) {
    auto scanlines = JpegScanlinePath::reencode(jpeg, request);
    if (scanlines.ok()) return Reencoded{std::move(*scanlines), Road::scanlines};
    return scanlines.status();
  }
  ASSIGN_OR_RETURN(auto rows, JpegRowStream::open(jpeg, /*keepYcbcr=*/true));
  if (rows->heldBytes() > limits.maxBytes)
    return Status::resourceExhausted("the progressive file's coefficients exceed the memory budget");
  PermutedRowStream permuted(std::move(rows), request.transform);
  ASSIGN_OR_RETURN(Bytes out, JpegRowEncoder::encode(permuted, request, JpegEncoder::expectedBytes(jpeg.size(), request.quality)));
  return Reencoded{std::move(out), Road::permutedScanlines};
}

}  // namespace velqor
