#include "imaging/jpeg/JpegProfileReader.h"

#include <cstdlib>
#include <memory>

#include "imaging/IccProfiles.h"
#include "imaging/jpeg/LibjpegErrors.h"

namespace velqor {
namespace {

// Owned outside the setjmp frame so the jump back skips no destructor.
struct HeaderRead {
  jpeg_decompress_struct info{};
  LibjpegErrors errors;
  JOCTET* profile = nullptr;
  unsigned int size = 0;
  bool created = false;
  ~HeaderRead() {
    if (created) jpeg_destroy_decompress(&info);
    std::free(profile);
  }
};

bool readProfile(HeaderRead& r, std::span<const std::uint8_t> bytes) {
  r.errors.attach(reinterpret_cast<j_common_ptr>(&r.info));
  if (setjmp(r.errors.jump)) return false;
  jpeg_create_decompress(&r.info);
  r.created = true;
  jpeg_mem_src(&r.info, bytes.data(), static_cast<unsigned long>(bytes.size()));
  jpeg_save_markers(&r.info, JPEG_APP0 + 2, 0xFFFF);
  jpeg_read_header(&r.info, TRUE);
  return jpeg_read_icc_profile(&r.info, &r.profile, &r.size) != FALSE;
}

}  // namespace

std::shared_ptr<const Bytes> JpegProfileReader::read(std::span<const std::uint8_t> bytes) {
  if (bytes.empty()) return nullptr;
  auto r = std::make_unique<HeaderRead>();
  if (!readProfile(*r, bytes) || !r->profile) return nullptr;
  return IccProfiles::rgbProfile(std::span<const std::uint8_t>(r->profile, r->size));
}

}  // namespace velqor
