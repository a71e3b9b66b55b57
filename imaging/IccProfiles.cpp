#include "imaging/IccProfiles.h"

#include <cstring>

namespace velqor {
namespace {

constexpr std::size_t kHeaderSize = 128;

std::uint32_t bigEndian32(std::span<const std::uint8_t> b, std::size_t at) {
  return (std::uint32_t{b[at]} << 24) | (std::uint32_t{b[at + 1]} << 16) | (std::uint32_t{b[at + 2]} << 8) | b[at + 3];
}

bool hasSignature(std::span<const std::uint8_t> b, std::size_t at, const char* four) {
  return std::memcmp(b.data() + at, four, 4) == 0;
}

}  // namespace

std::shared_ptr<const Bytes> IccProfiles::rgbProfile(std::span<const std::uint8_t> b) {
  if (b.size() < kHeaderSize + 4) return nullptr;
  // Some writers pad a profile; the declared size must fit in what is there.
  const std::uint32_t declared = bigEndian32(b, 0);
  if (declared < kHeaderSize + 4 || declared > b.size()) return nullptr;
  if (!hasSignature(b, 36, "acsp") || !hasSignature(b, 16, "RGB ")) return nullptr;
  return std::make_shared<const Bytes>(b.begin(), b.end());
}

}  // namespace velqor
