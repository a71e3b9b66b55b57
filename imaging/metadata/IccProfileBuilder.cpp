#include "imaging/metadata/IccProfileBuilder.h"

#include <lcms2.h>

#include <memory>

namespace velqor {
namespace {

struct ProfileDeleter {
  void operator()(void* p) const noexcept { cmsCloseProfile(p); }
};
using Profile = std::unique_ptr<void, ProfileDeleter>;
struct CurveDeleter {
  void operator()(cmsToneCurve* c) const noexcept { cmsFreeToneCurve(c); }
};
using Curve = std::unique_ptr<cmsToneCurve, CurveDeleter>;
struct MluDeleter {
  void operator()(cmsMLU* m) const noexcept { cmsMLUfree(m); }
};
using Mlu = std::unique_ptr<cmsMLU, MluDeleter>;

Curve curveFor(const RgbColourSpace& s) {
  switch (s.transfer) {
    case RgbColourSpace::Transfer::srgb: {
      // Y = ((X + 0.055) / 1.055)^2.4 above 0.04045, X / 12.92 below.
      const cmsFloat64Number p[5] = {2.4, 1 / 1.055, 0.055 / 1.055, 1 / 12.92, 0.04045};
      return Curve(cmsBuildParametricToneCurve(nullptr, 4, p));
    }
    case RgbColourSpace::Transfer::bt709: {
      // The inverse of the BT.709 camera curve: exponent 1/0.45, linear below 0.081.
      const cmsFloat64Number p[5] = {1 / 0.45, 1 / 1.099, 0.099 / 1.099, 1 / 4.5, 0.081};
      return Curve(cmsBuildParametricToneCurve(nullptr, 4, p));
    }
    case RgbColourSpace::Transfer::gamma: return Curve(cmsBuildGamma(nullptr, s.gamma));
  }
  return nullptr;
}

// Little CMS stamps the current time into the header; a fixed date keeps the
// bytes of a profile the same from run to run (2024-01-01 00:00:00).
void fixCreationDate(Bytes& profile) {
  static const std::uint8_t kDate[12] = {0x07, 0xE8, 0, 1, 0, 1, 0, 0, 0, 0, 0, 0};
  if (profile.size() >= 36) std::copy(kDate, kDate + 12, profile.begin() + 24);
}

}  // namespace

StatusOr<Bytes> IccProfileBuilder::rgb(const RgbColourSpace& s) {
  Curve curve = curveFor(s);
  if (!curve) return Status::internal("cannot build the transfer curve of " + s.description);
  const cmsCIExyY white{s.whiteX, s.whiteY, 1.0};
  const cmsCIExyYTRIPLE primaries{{s.redX, s.redY, 1.0}, {s.greenX, s.greenY, 1.0}, {s.blueX, s.blueY, 1.0}};
  cmsToneCurve* curves[3] = {curve.get(), curve.get(), curve.get()};
  Profile profile(cmsCreateRGBProfile(&white, &primaries, curves));
  if (!profile) return Status::invalidArgument("cannot build a profile for " + s.description);
  Mlu text(cmsMLUalloc(nullptr, 1));
  if (!text || !cmsMLUsetASCII(text.get(), "en", "US", s.description.c_str()) ||
      !cmsWriteTag(profile.get(), cmsSigProfileDescriptionTag, text.get()))
    return Status::internal("cannot describe the profile of " + s.description);
  cmsUInt32Number size = 0;
  if (!cmsSaveProfileToMem(profile.get(), nullptr, &size) || size == 0)
    return Status::internal("cannot write the profile of " + s.description);
  Bytes out(size);
  if (!cmsSaveProfileToMem(profile.get(), out.data(), &size))
    return Status::internal("cannot write the profile of " + s.description);
  out.resize(size);
  fixCreationDate(out);
  return out;
}

std::string IccProfileBuilder::description(std::span<const std::uint8_t> bytes) {
  if (bytes.empty()) return {};
  Profile profile(cmsOpenProfileFromMem(bytes.data(), static_cast<cmsUInt32Number>(bytes.size())));
  if (!profile) return {};
  char text[256] = {};
  if (cmsGetProfileInfoASCII(profile.get(), cmsInfoDescription, "en", "US", text, sizeof text) == 0) return {};
  return text;
}

}  // namespace velqor
