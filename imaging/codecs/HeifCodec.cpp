#include "platform/linux/HeifCodec.h"

#include <cstring>
#include <string>

#include "platform/linux/MediaModule.h"

namespace velqor {

bool HeifCodec::looksLike(std::span<const std::uint8_t> b) {
  if (b.size() < 12 || std::memcmp(b.data() + 4, "ftyp", 4) != 0) return false;
  const std::string brand(reinterpret_cast<const char*>(b.data() + 8), 4);
  return brand == "heic" || brand == "heix" || brand == "hevc" || brand == "heim" || brand == "heis" ||
         brand == "mif1" || brand == "msf1" || brand == "avif";
}

StatusOr<std::shared_ptr<const ImageSource>> HeifCodec::source(std::shared_ptr<const Bytes> bytes,
                                                                const DecodeLimits& limits) {
  if (!bytes || !looksLike(*bytes)) return Status::invalidArgument("cannot decode: not a HEIF file");
  ASSIGN_OR_RETURN(MediaStack * stack, MediaModule::stack());
  return stack->heifSource(std::move(bytes), limits);
}

StatusOr<Bytes> HeifCodec::encode(const Bitmap& bitmap, int quality) {
  ASSIGN_OR_RETURN(MediaStack * stack, MediaModule::stack());
  return stack->heifEncode(bitmap, quality);
}

}  // namespace velqor
