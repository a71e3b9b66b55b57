#include "imaging/jpeg/JpegReencoder.h"

#include "imaging/PermutedRowStream.h"
#include "imaging/jpeg/JpegCoefficientPath.h"
#include "imaging/jpeg/JpegEncoder.h"
#include "imaging/jpeg/JpegRowEncoder.h"
#include "imaging/jpeg/JpegRowStream.h"
#include "imaging/jpeg/JpegScanlinePath.h"

namespace velqor {

StatusOr<JpegReencoder::Reencoded> JpegReencoder::reencode(std::span<const std::uint8_t> jpeg,
                                                           const JpegReencodeRequest& asked,
                                                           const DecodeLimits& limits) {
  // A road that failed after handing bytes to the sink leaves a file begun:
  // no other road can finish it, so that failure is the answer.
  size_t handedOver = 0;
  ByteSink counted;
  JpegReencodeRequest request = asked;
  if (asked.sink) {
    counted = [&handedOver, &asked](const std::uint8_t* data, size_t size) {
      handedOver += size;
      return (*asked.sink)(data, size);
    };
    request.sink = &counted;
  }
  auto coefficients = JpegCoefficientPath::reencode(jpeg, request, limits);
  if (coefficients.ok()) return Reencoded{std::move(*coefficients), Road::coefficients};
  if (handedOver > 0) return coefficients.status();
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
