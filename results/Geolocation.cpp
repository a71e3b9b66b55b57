#include "results/Geolocation.h"

#include <unicode/smpdtfmt.h>
#include <unicode/timezone.h>

#include <cmath>

namespace velqor {
namespace {

std::string formatInUtc(std::chrono::system_clock::time_point when, const char* pattern) {
  UErrorCode status = U_ZERO_ERROR;
  // A fixed POSIX locale: no locale is chosen for these stamps, and the digits
  // must stay ASCII.
  icu::SimpleDateFormat formatter(icu::UnicodeString(pattern), icu::Locale("en_US_POSIX"), status);
  if (U_FAILURE(status)) return {};
  if (icu::TimeZone* utc = icu::TimeZone::createTimeZone("UTC"); utc && *utc != icu::TimeZone::getUnknown())
    formatter.adoptTimeZone(utc);
  const auto millis = std::chrono::duration_cast<std::chrono::milliseconds>(when.time_since_epoch()).count();
  icu::UnicodeString text;
  formatter.format(static_cast<UDate>(millis), text);
  std::string out;
  text.toUTF8String(out);
  return out;
}

}  // namespace

std::shared_ptr<LocationManager> Geolocation::locationManager(PluginCore& core,
                                                              const std::shared_ptr<LocationManagerDelegate>& delegate) {
  if (auto existing = core._locationManager.load()) return existing;
  if (!core.services.locationService) return nullptr;
  auto manager = core.services.locationService->makeManager();
  core._locationManager.store(manager);
  manager->setDesiredAccuracy(LocationManager::kAccuracyNearestTenMeters);
  manager->setDelegate(delegate);
  return manager;
}

void Geolocation::setLocationManager(PluginCore& core, std::shared_ptr<LocationManager> manager) {
  core._locationManager.store(std::move(manager));
}

Dictionary Geolocation::gpsDictionary(const std::optional<LocationFix>& fix) {
  Dictionary gps;
  double latitude = fix ? fix->latitude : 0;
  double longitude = fix ? fix->longitude : 0;
  gps["LatitudeRef"] = Value(latitude < 0 ? "S" : "N");
  gps["Latitude"] = Value(std::abs(latitude));
  gps["LongitudeRef"] = Value(longitude < 0 ? "W" : "E");
  gps["Longitude"] = Value(std::abs(longitude));
  const double altitude = fix ? fix->altitude : 0;
  if (!std::isnan(altitude)) {
    gps["AltitudeRef"] = Value(altitude < 0 ? "1" : "0");
    gps["Altitude"] = Value(std::abs(altitude));
  }
  // Without a fix the stamps fall back to the epoch rather than failing.
  const auto when = fix ? fix->timestamp : std::chrono::system_clock::time_point{};
  gps["TimeStamp"] = Value(formatInUtc(when, "HH:mm:ss.SSSSSS"));
  gps["DateStamp"] = Value(formatInUtc(when, "yyyy:MM:dd"));
  return gps;
}

void Geolocation::didUpdateLocations(PluginCore& core, const std::shared_ptr<LocationManager>& manager) {
  // Emptying the field first makes the handler act once per start.
  auto held = core._locationManager.exchange(nullptr);
  if (!held) return;
  held->stopUpdatingLocation();
  Dictionary gps = gpsDictionary(manager->location());
  if (auto metadata = core.metadata.load()) {
    (*metadata)["{GPS}"] = Value(std::move(gps));
    core.metadata.store(std::move(metadata));
  }
  core.ops().imagePickerControllerReturnImageResult();
}

}  // namespace velqor
