#include "imaging/metadata/ImageMetadata.h"

#include <exiv2/exiv2.hpp>

#include <cmath>
#include <cstdio>
#include <map>
#include <sstream>

#include "imaging/metadata/Exiv2Support.h"

namespace velqor {
namespace {

// Names where the platform's vocabulary differs from Exiv2's tag names.
const std::map<std::string, std::string>& exivToPlatform() {
  static const std::map<std::string, std::string> m{
      {"SubSecTime", "SubsecTime"},
      {"SubSecTimeOriginal", "SubsecTimeOriginal"},
      {"SubSecTimeDigitized", "SubsecTimeDigitized"},
      {"FocalLengthIn35mmFilm", "FocalLenIn35mmFilm"},
      {"ISOSpeedRatings", "ISOSpeedRatings"},
  };
  return m;
}

std::string platformName(const std::string& exivName) {
  auto it = exivToPlatform().find(exivName);
  return it == exivToPlatform().end() ? exivName : it->second;
}

std::string exivName(const std::string& platform) {
  for (const auto& [exiv, plat] : exivToPlatform())
    if (plat == platform) return exiv;
  return platform;
}

double rationalValue(const Exiv2::Rational& r) { return r.second == 0 ? 0.0 : static_cast<double>(r.first) / r.second; }

bool isRational(Exiv2::TypeId t) { return t == Exiv2::unsignedRational || t == Exiv2::signedRational; }
bool isInteger(Exiv2::TypeId t) {
  return t == Exiv2::unsignedByte || t == Exiv2::unsignedShort || t == Exiv2::unsignedLong ||
         t == Exiv2::signedByte || t == Exiv2::signedShort || t == Exiv2::signedLong || t == Exiv2::undefined;
}

Value datumValue(const Exiv2::Exifdatum& d) {
  const auto type = d.typeId();
  const long n = d.count();
  if (type == Exiv2::asciiString || type == Exiv2::comment) {
    std::string s = d.toString();
    while (!s.empty() && s.back() == '\0') s.pop_back();
    return Value(s);
  }
  auto one = [&](long i) -> Value {
    if (isRational(type)) return Value(rationalValue(d.toRational(i)));
    if (isInteger(type)) return Value(static_cast<std::int64_t>(d.toLong(i)));
    if (type == Exiv2::tiffFloat || type == Exiv2::tiffDouble) return Value(static_cast<double>(d.toFloat(i)));
    return Value(d.toString(i));
  };
  if (n == 1) return one(0);
  Array a;
  for (long i = 0; i < n && i < 4096; ++i) a.push_back(one(i));
  return Value(std::move(a));
}

// Continued-fraction approximation with numerator and denominator in 32 bits.
std::pair<std::int64_t, std::int64_t> toRational(double x, bool isSigned) {
  if (!std::isfinite(x)) return {0, 1};
  const bool negative = x < 0;
  double v = std::abs(x);
  const double limit = isSigned ? 2147483647.0 : 4294967295.0;
  if (v > limit) return {static_cast<std::int64_t>(negative ? -limit : limit), 1};
  std::int64_t h0 = 0, h1 = 1, k0 = 1, k1 = 0;
  double f = v;
  for (int i = 0; i < 40; ++i) {
    double a = std::floor(f);
    double h2 = a * h1 + h0, k2 = a * k1 + k0;
    if (h2 > limit || k2 > 1'000'000) break;
    h0 = h1;
    h1 = static_cast<std::int64_t>(h2);
    k0 = k1;
    k1 = static_cast<std::int64_t>(k2);
    if (std::abs(v - static_cast<double>(h1) / k1) < 1e-12 || f - a < 1e-12) break;
    f = 1.0 / (f - a);
  }
  if (k1 == 0) return {0, 1};
  return {negative ? -h1 : h1, k1};
}

std::string numberText(const Value& v, Exiv2::TypeId type) {
  auto f = v.asFloat();
  if (!f) {
    if (auto b = v.asBool()) f = *b ? 1.0 : 0.0;
  }
  if (!f) {
    // Numbers written as strings ("1", "0.5") still count.
    if (auto* s = v.asString()) {
      char* end = nullptr;
      double parsed = std::strtod(s->c_str(), &end);
      if (end && *end == '\0' && !s->empty()) f = parsed;
    }
  }
  if (!f) return {};
  if (isRational(type)) {
    auto [n, d] = toRational(*f, type == Exiv2::signedRational);
    return std::to_string(n) + "/" + std::to_string(d);
  }
  if (type == Exiv2::tiffFloat || type == Exiv2::tiffDouble) {
    std::ostringstream os;
    os.precision(17);
    os << *f;
    return os.str();
  }
  return std::to_string(static_cast<std::int64_t>(std::llround(*f)));
}

// The text Exiv2's Value::read takes for this type; empty when it does not fit.
std::string valueText(const Value& v, Exiv2::TypeId type) {
  if (type == Exiv2::asciiString) {
    if (auto* s = v.asString()) return *s;
    if (auto f = v.asFloat()) return numberText(v, Exiv2::tiffDouble);
    return {};
  }
  if (type == Exiv2::comment) {
    if (auto* s = v.asString()) return "charset=Ascii " + *s;
    return {};
  }
  if (auto* a = v.asArray()) {
    std::string out;
    for (const auto& e : *a) {
      std::string t = numberText(e, type);
      if (t.empty()) return {};
      out += (out.empty() ? "" : " ") + t;
    }
    return out;
  }
  if (type == Exiv2::undefined) {
    if (auto* s = v.asString()) {
      std::string out;
      for (unsigned char c : *s) out += (out.empty() ? "" : " ") + std::to_string(c);
      return out;
    }
  }
  return numberText(v, type);
}

bool setDatum(Exiv2::ExifData& exif, const std::string& key, const Value& v) {
  try {
    Exiv2::ExifKey k(key);
    Exiv2::TypeId type = k.defaultTypeId();
    if (type == Exiv2::invalidTypeId || type == Exiv2::unsignedByte) {
      // Bytes (GPSAltitudeRef, version ids) read from numbers.
      type = Exiv2::unsignedByte;
    }
    std::string text = valueText(v, type);
    if (text.empty() && type != Exiv2::asciiString) return false;
    auto value = Exiv2::Value::create(type);
    if (value->read(text) != 0) return false;
    exif.add(k, value.get());
    return true;
  } catch (...) {
    return false;  // a name Exiv2 has no tag for
  }
}

std::string twoDigits(int v) {
  char buf[8];
  std::snprintf(buf, sizeof buf, "%02d", v);
  return buf;
}

void readGps(const Exiv2::ExifData& exif, Dictionary& gps) {
  for (const auto& d : exif) {
    if (d.groupName() != "GPSInfo") continue;
    std::string name = d.tagName();
    if (name.rfind("GPS", 0) == 0) name = name.substr(3);
    if ((name == "Latitude" || name == "Longitude" || name == "DestLatitude" || name == "DestLongitude") &&
        d.count() == 3) {
      gps[name] = Value(rationalValue(d.toRational(0)) + rationalValue(d.toRational(1)) / 60.0 +
                        rationalValue(d.toRational(2)) / 3600.0);
    } else if (name == "TimeStamp" && d.count() == 3) {
      const double seconds = rationalValue(d.toRational(2));
      char buf[32];
      std::snprintf(buf, sizeof buf, "%s:%s:%09.6f", twoDigits(static_cast<int>(rationalValue(d.toRational(0)))).c_str(),
                    twoDigits(static_cast<int>(rationalValue(d.toRational(1)))).c_str(), seconds);
      gps[name] = Value(std::string(buf));
    } else if (name == "VersionID" || name == "AltitudeRef") {
      gps[name] = datumValue(d);
    } else {
      gps[name] = datumValue(d);
    }
  }
}

void writeGps(Exiv2::ExifData& exif, const Dictionary& gps) {
  bool any = false;
  for (const auto& [name, v] : gps) {
    const std::string key = "Exif.GPSInfo.GPS" + name;
    if ((name == "Latitude" || name == "Longitude" || name == "DestLatitude" || name == "DestLongitude")) {
      if (auto deg = v.asFloat()) {
        auto value = Exiv2::Value::create(Exiv2::unsignedRational);
        value->read(ImageMetadata::degreesToRationals(std::abs(*deg)));
        exif.add(Exiv2::ExifKey(key), value.get());
        any = true;
      }
    } else if (name == "TimeStamp") {
      const std::string* s = v.asString();
      int h = 0, m = 0;
      double sec = 0;
      if (s && std::sscanf(s->c_str(), "%d:%d:%lf", &h, &m, &sec) == 3) {
        auto [n, d] = toRational(sec, false);
        auto value = Exiv2::Value::create(Exiv2::unsignedRational);
        value->read(std::to_string(h) + "/1 " + std::to_string(m) + "/1 " + std::to_string(n) + "/" + std::to_string(d));
        exif.add(Exiv2::ExifKey(key), value.get());
        any = true;
      }
    } else {
      any = setDatum(exif, key, v) || any;
    }
  }
  if (any && exif.findKey(Exiv2::ExifKey("Exif.GPSInfo.GPSVersionID")) == exif.end())
    setDatum(exif, "Exif.GPSInfo.GPSVersionID", Value(Array{2, 2, 0, 0}));
}

}  // namespace

std::string ImageMetadata::degreesToRationals(double degrees) {
  if (!std::isfinite(degrees)) degrees = 0;
  degrees = std::abs(degrees);
  const int d = static_cast<int>(std::floor(degrees));
  const double minutesTotal = (degrees - d) * 60.0;
  const int m = static_cast<int>(std::floor(minutesTotal));
  const double s = (minutesTotal - m) * 60.0;
  const long long micro = std::llround(s * 1'000'000.0);
  return std::to_string(d) + "/1 " + std::to_string(m) + "/1 " + std::to_string(micro) + "/1000000";
}

StatusOr<Dictionary> ImageMetadata::read(std::span<const std::uint8_t> encoded) {
  Exiv2Support::ensureInitialized();
  try {
    auto image = Exiv2::ImageFactory::open(encoded.data(), static_cast<long>(encoded.size()));
    if (image.get() == nullptr) return Status::invalidArgument("not an image Exiv2 reads");
    image->readMetadata();
    Dictionary out, tiff, exifDict, gps;
    const auto& exif = image->exifData();
    for (const auto& d : exif) {
      const std::string group = d.groupName();
      const std::string tag = d.tagName();
      // Offsets to other directories and maker notes are the file's plumbing.
      if (tag == "ExifTag" || tag == "GPSTag" || tag == "InteroperabilityTag" || tag == "MakerNote") continue;
      if (group == "Image") tiff[platformName(tag)] = datumValue(d);
      if (group == "Photo") {
        Value v = datumValue(d);
        // ISO speeds are a list even when there is one.
        if (tag == "ISOSpeedRatings" && !v.asArray()) v = Value(Array{v});
        exifDict[platformName(tag)] = v;
      }
    }
    readGps(exif, gps);
    if (image->pixelWidth() > 0) out["PixelWidth"] = Value(static_cast<std::int64_t>(image->pixelWidth()));
    if (image->pixelHeight() > 0) out["PixelHeight"] = Value(static_cast<std::int64_t>(image->pixelHeight()));
    if (const Value* o = find(tiff, "Orientation")) out["Orientation"] = *o;
    if (!tiff.empty()) out["{TIFF}"] = Value(std::move(tiff));
    if (!exifDict.empty()) out["{Exif}"] = Value(std::move(exifDict));
    if (!gps.empty()) out["{GPS}"] = Value(std::move(gps));
    return out;
  } catch (const std::exception& e) {
    return Status::dataLoss(std::string("cannot read metadata: ") + e.what());
  } catch (...) {
    return Status::dataLoss("cannot read metadata");
  }
}

StatusOr<Bytes> ImageMetadata::write(std::span<const std::uint8_t> encoded, const Dictionary& properties) {
  Exiv2Support::ensureInitialized();
  try {
    // Exiv2 keeps the pointer it is given and, when the new metadata fits
    // where the old stood (a TIFF's values, for one), rewrites those bytes in
    // place. The caller's bytes are const and may be shared: Exiv2 gets a copy.
    Bytes editable(encoded.begin(), encoded.end());
    auto image = Exiv2::ImageFactory::open(editable.data(), static_cast<long>(editable.size()));
    if (image.get() == nullptr) return Status::invalidArgument("not an image Exiv2 writes");
    image->readMetadata();
    Exiv2::ExifData exif;
    if (const Value* t = find(properties, "{TIFF}"))
      if (auto* d = t->asDictionary())
        for (const auto& [name, v] : *d) setDatum(exif, "Exif.Image." + exivName(name), v);
    if (const Value* o = find(properties, "Orientation")) {
      auto existing = exif.findKey(Exiv2::ExifKey("Exif.Image.Orientation"));
      if (existing != exif.end()) exif.erase(existing);
      setDatum(exif, "Exif.Image.Orientation", *o);
    }
    if (const Value* e = find(properties, "{Exif}"))
      if (auto* d = e->asDictionary())
        for (const auto& [name, v] : *d) setDatum(exif, "Exif.Photo." + exivName(name), v);
    if (const Value* g = find(properties, "{GPS}"))
      if (auto* d = g->asDictionary()) writeGps(exif, *d);
    image->setExifData(exif);
    image->writeMetadata();
    Exiv2::BasicIo& io = image->io();
    io.seek(0, Exiv2::BasicIo::beg);
    Exiv2::DataBuf buf = io.read(static_cast<long>(io.size()));
    return Bytes(buf.pData_, buf.pData_ + buf.size_);
  } catch (const std::exception& e) {
    return Status::dataLoss(std::string("cannot write metadata: ") + e.what());
  } catch (...) {
    return Status::dataLoss("cannot write metadata");
  }
}

}  // namespace velqor
