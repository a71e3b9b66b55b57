#include "tests/MediaHarness.h"

#include "capture/CameraPicker.h"
#include "host/Base64.h"
#include "imaging/metadata/ImageMetadata.h"
#include "imaging/codecs/JpegCodec.h"
#include "tests/TestImages.h"
#include "results/Geolocation.h"

namespace velqor {
namespace {

using testing::MediaHarness;

std::chrono::system_clock::time_point at(int y, int mo, int d, int h, int mi, int s, int ms) {
  return testing::FixedClock::utc(y, mo, d, h, mi, s, ms);
}

struct FixCase {
  const char* name;
  std::optional<LocationFix> fix;
  Dictionary expected;
};
void PrintTo(const FixCase& c, std::ostream* os) { *os << c.name; }

class GpsDictionary : public ::testing::TestWithParam<FixCase> {};

TEST_P(GpsDictionary, HoldsTheFixInTheImagePropertyVocabulary) {
  EXPECT_EQ(Geolocation::gpsDictionary(GetParam().fix), GetParam().expected);
}

Dictionary gps(const char* latRef, double lat, const char* lonRef, double lon, const char* altRef, double alt,
               const char* time, const char* date) {
  Dictionary d{{"LatitudeRef", Value(latRef)}, {"Latitude", Value(lat)},       {"LongitudeRef", Value(lonRef)},
               {"Longitude", Value(lon)},      {"TimeStamp", Value(time)},     {"DateStamp", Value(date)}};
  if (altRef) {
    d["AltitudeRef"] = Value(altRef);
    d["Altitude"] = Value(alt);
  }
  return d;
}

INSTANTIATE_TEST_SUITE_P(
    Fixes, GpsDictionary,
    ::testing::Values(
        FixCase{"southEast", LocationFix{-33.5, 151.2, 25, at(2024, 3, 5, 23, 59, 59, 250)},
                gps("S", 33.5, "E", 151.2, "0", 25, "23:59:59.250000", "2024:03:05")},
        FixCase{"zeroIsNorth", LocationFix{0, -0.1, 0, at(2024, 1, 1, 0, 0, 0, 0)},
                gps("N", 0, "W", 0.1, "0", 0, "00:00:00.000000", "2024:01:01")},
        FixCase{"belowSeaLevel", LocationFix{31.5, 35.4, -12.3, at(2023, 12, 31, 12, 0, 0, 1)},
                gps("N", 31.5, "E", 35.4, "1", 12.3, "12:00:00.001000", "2023:12:31")},
        FixCase{"unknownAltitude", LocationFix{48.8584, 2.2945, std::nan(""), at(2025, 6, 21, 8, 15, 30, 123)},
                gps("N", 48.8584, "E", 2.2945, nullptr, 0, "08:15:30.123000", "2025:06:21")},
        FixCase{"noFixAtAll", std::nullopt, gps("N", 0, "E", 0, "0", 0, "00:00:00.000000", "1970:01:01")}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(GpsStamps, AreUtcWhateverTheDevicesZone) {
  ::setenv("TZ", "Pacific/Kiritimati", 1);  // UTC+14: already the next day there
  ::tzset();
  auto d = Geolocation::gpsDictionary(LocationFix{1, 1, 1, at(2024, 3, 5, 23, 59, 59, 250)});
  ::unsetenv("TZ");
  ::tzset();
  EXPECT_EQ(*find(d, "TimeStamp")->asString(), "23:59:59.250000");
  EXPECT_EQ(*find(d, "DateStamp")->asString(), "2024:03:05");
}

class LocationHandler : public MediaHarness {
 protected:
  std::shared_ptr<LocationManager> startManager() {
    auto manager = core().ops().locationManager();
    manager->startUpdatingLocation();
    return manager;
  }
};

TEST_F(LocationHandler, ActsOnceMergesGpsAndKeepsTheExif) {
  fixes_ = {LocationFix{-33.5, 151.2, 25, at(2024, 3, 5, 23, 59, 59, 250)}, LocationFix{1, 2, 3, at(2024, 3, 6, 0, 0, 0, 0)}};
  build(SimDeviceState{});
  core().metadata.store(Dictionary{{"{Exif}", Value(Dictionary{{"FNumber", Value(1.8)}})},
                                   {"{GPS}", Value(Dictionary{{"Latitude", Value(99.0)}})}});
  core().pickerController.store(std::make_shared<CameraPicker>(device_, device_));
  auto first = core().ops().locationManager();
  EXPECT_EQ(core().ops().locationManager(), first);  // made once, then kept
  startManager();
  locationQueue_->runOne();  // the first fix
  EXPECT_EQ(core()._locationManager.load(), nullptr);
  // The deferred delivery ran (no options: it answered nothing) and cleared the state.
  EXPECT_EQ(core().pickerController.load(), nullptr);
  EXPECT_FALSE(core().metadata.load());
  locationQueue_->runUntilIdle();  // the second fix finds no manager: nothing at all
  EXPECT_TRUE(answers_->answers().empty());
}

TEST_F(LocationHandler, ReplacesAnEarlierGpsDictionaryAndKeepsTheExif) {
  fixes_ = {LocationFix{-10, 20, 30, at(2024, 1, 1, 0, 0, 0, 0)}};
  build(SimDeviceState{});
  auto picker = std::make_shared<CameraPicker>(device_, device_);
  auto options = std::make_shared<PictureOptions>();
  options->destinationType = DestinationType::destinationTypeDataUrl;
  picker->setup(options);
  core().pickerController.store(picker);
  core().currentCallBack.store(command("[]"));
  core().data.store(std::make_shared<const Bytes>(*JpegCodec::encode(testing::quadrants(16, 16, 3), 0.9)));
  core().metadata.store(Dictionary{{"{Exif}", Value(Dictionary{{"FNumber", Value(1.8)}})},
                                   {"{GPS}", Value(Dictionary{{"Latitude", Value(89.0)}, {"LatitudeRef", Value("N")}})}});
  startManager();
  locationQueue_->runUntilIdle();
  auto answers = answersFor();
  ASSERT_EQ(answers.size(), 1u);
  const Bytes* text = find(payloadOf(answers[0]), "callbackURI")->asBytes();
  ASSERT_TRUE(text);
  auto jpeg = base64Decode(std::string(text->begin(), text->end()));
  auto metadata = ImageMetadata::read(Bytes(jpeg->begin(), jpeg->end()));
  ASSERT_TRUE(metadata.ok());
  const Dictionary& gps = *find(*metadata, "{GPS}")->asDictionary();
  EXPECT_EQ(*find(gps, "LatitudeRef")->asString(), "S");
  EXPECT_NEAR(*find(gps, "Latitude")->asFloat(), 10, 1e-9);
  EXPECT_NEAR(*find(*find(*metadata, "{Exif}")->asDictionary(), "FNumber")->asFloat(), 1.8, 1e-9);
  EXPECT_FALSE(core().data.load());
}

TEST_F(LocationHandler, WithoutMetadataTheDeliveryStillRuns) {
  fixes_ = {LocationFix{1, 1, 1, std::chrono::system_clock::now()}};
  build(SimDeviceState{});
  auto picker = std::make_shared<CameraPicker>(device_, device_);
  auto options = std::make_shared<PictureOptions>();
  options->destinationType = DestinationType::destinationTypeDataUrl;
  picker->setup(options);
  core().pickerController.store(picker);
  takePicture("[50, 0, 1, null, null, 0, 0, false, false, false, null, false, true]");
  runAll();
  core().pickerController.store(picker);  // the capture waiting for its fix
  startManager();
  locationQueue_->runUntilIdle();
  auto answers = answersFor();
  ASSERT_EQ(answers.size(), 1u);
  EXPECT_EQ(answers[0].toJson()["payload"], nlohmann::json::object());  // no data: an empty success
}

}  // namespace
}  // namespace velqor
