#include "imaging/codecs/HeifCodec.h"

#include <atomic>
#include <cstring>
#include <string>

namespace velqor {
namespace {

std::atomic<HeifBackendLoader> installedLoader{nullptr};

StatusOr<HeifBackend*> backend() {
  HeifBackendLoader loader = installedLoader.load(std::memory_order_acquire);
  if (!loader) return Status::unavailable("HEIF needs the media module, which this program does not wire");
  return loader();
}

}  // namespace

void HeifCodec::installBackend(HeifBackendLoader loader) { installedLoader.store(loader, std::memory_order_release); }

bool HeifCodec::looksLike(std::span<const std::uint8_t> b) {
  if (b.size() < 12 || std::memcmp(b.data() + 4, "ftyp", 4) != 0) return false;
  const std::string brand(reinterpret_cast<const char*>(b.data() + 8), 4);
  return brand == "heic" || brand == "heix" || brand == "hevc" || brand == "heim" || brand == "heis" ||
         brand == "mif1" || brand == "msf1" || brand == "avif";
}

StatusOr<std::shared_ptr<const ImageSource>> HeifCodec::source(std::shared_ptr<const Bytes> bytes,
                                                                const DecodeLimits& limits) {
  if (!bytes || !looksLike(*bytes)) return Status::invalidArgument("cannot decode: not a HEIF file");
  ASSIGN_OR_RETURN(HeifBackend * stack, backend());
  return stack->heifSource(std::move(bytes), limits);
}

StatusOr<Bytes> HeifCodec::encode(const Bitmap& bitmap, int quality) {
  ASSIGN_OR_RETURN(HeifBackend * stack, backend());
  return stack->heifEncode(bitmap, quality);
}

}  // namespace velqor
