#include "host/Base64.h"
#include "imaging/metadata/ImageMetadata.h"
#include "tests/MediaHarness.h"

namespace velqor {
namespace {

using testing::MediaHarness;

// A camera photo that asks for its location, answered as a data URL (which
// carries the fix in its GPS metadata).
constexpr const char* kPhotoWithLocation = "[50, 0, 1, null, null, 0, 0, false, false, false, null, false, true]";

class LocationManagerProperty : public MediaHarness {
 protected:
  void SetUp() override {
    fixes_ = {LocationFix{-33.5, 151.2, 25, std::chrono::system_clock::now()}};
    build(SimDeviceState{});
  }
  Value hostReads() { return ops_.at("locationManager")(HostCall{}); }
  Value hostWrites(Value v) { return ops_.at("setLocationManager:")(HostCall{nullptr, std::move(v)}); }

  // Starts a camera photo that waits for its fix; the fix is queued, not delivered.
  void photoWaitingForItsFix() {
    SimPickerChoice choice;
    choice.file = writeCameraJpeg();
    userChooses(choice);
    takePicture(kPhotoWithLocation);
    runAll();
    ASSERT_TRUE(answersFor().empty());
    ASSERT_TRUE(core()._locationManager.load());
  }

  bool answeredWithGps() {
    if (answersFor().size() != 1 || answersFor()[0].status != CommandStatus::OK) return false;
    const Bytes* text = find(payloadOf(answersFor()[0]), "callbackURI")->asBytes();
    auto jpeg = text ? base64Decode(std::string(text->begin(), text->end())) : std::nullopt;
    if (!jpeg) return false;
    auto metadata = ImageMetadata::read(Bytes(jpeg->begin(), jpeg->end()));
    return metadata.ok() && find(*metadata, "{GPS}");
  }
};

TEST_F(LocationManagerProperty, HostReadsTheManagerThePluginUses) {
  Value first = hostReads();
  auto manager = first.asObject<LocationManager>();
  ASSERT_TRUE(manager);
  EXPECT_EQ(manager->kindName(), "locationManager");
  EXPECT_EQ(hostReads().asObject<LocationManager>(), manager) << "made once, then kept";
  photoWaitingForItsFix();
  EXPECT_EQ(core()._locationManager.load(), manager) << "the capture started the manager the host read";
  locationQueue_->runUntilIdle();
  runAllMedia();
  EXPECT_TRUE(answeredWithGps());
}

struct HostWrite {
  const char* name;
  enum What { none, sameManager, otherManager, text, number } what;
  bool stored;    // what the write answers
  bool answered;  // the waiting photo is answered when its fix arrives
};
void PrintTo(const HostWrite& c, std::ostream* os) { *os << c.name; }

class LocationManagerWrites : public LocationManagerProperty, public ::testing::WithParamInterface<HostWrite> {};

TEST_P(LocationManagerWrites, DecideWhetherTheWaitingPhotoHearsItsFix) {
  const auto& c = GetParam();
  photoWaitingForItsFix();
  std::weak_ptr<LocationManager> started = core()._locationManager.load();
  Value value;
  if (c.what == HostWrite::sameManager) value = hostReads();
  if (c.what == HostWrite::otherManager) value = Value(std::shared_ptr<PlatformObject>(location_->makeManager()));
  if (c.what == HostWrite::text) value = Value("gps");
  if (c.what == HostWrite::number) value = Value(3);

  EXPECT_EQ(hostWrites(value), Value(c.stored));
  EXPECT_EQ(log_->errors().empty(), c.stored);
  value = Value();
  locationQueue_->runUntilIdle();
  runAllMedia();

  if (c.answered) {
    EXPECT_TRUE(answeredWithGps());
    return;
  }
  EXPECT_TRUE(answersFor().empty()) << "the fix arrived and did nothing";
  EXPECT_TRUE(started.expired()) << "the pending request's manager was let go, so it heard nothing";
  EXPECT_TRUE(core().pickerController.load()) << "the capture is left where the phone leaves it";
  EXPECT_TRUE(core().data.load());
  auto fresh = hostReads().asObject<LocationManager>();
  ASSERT_TRUE(fresh) << "a later read makes a new manager";
  EXPECT_EQ(location_->startedManagers(), 1) << "and starts nothing";
}

INSTANTIATE_TEST_SUITE_P(Values, LocationManagerWrites,
                         ::testing::Values(HostWrite{"none", HostWrite::none, true, false},
                                           HostWrite{"sameManager", HostWrite::sameManager, true, true},
                                           HostWrite{"otherManager", HostWrite::otherManager, true, false},
                                           HostWrite{"text", HostWrite::text, false, true},
                                           HostWrite{"number", HostWrite::number, false, true}),
                         [](const auto& info) { return std::string(info.param.name); });

// A fix sent the moment the phone shows that the location service started
// (as the web host's test kit does) reaches the photo waiting for it.
class FixSentWhenTheStartShows : public LocationManagerProperty {
 protected:
  void SetUp() override { build(SimDeviceState{}); }
};

TEST_F(FixSentWhenTheStartShows, ReachesTheWaitingPhoto) {
  events_->setListener([this](const nlohmann::ordered_json& e) {
    if (e["event"] == "locationStarted") location_->deliverNow({48.85837, 2.294481, 35, std::chrono::system_clock::now()});
  });
  photoWaitingForItsFix();
  events_->setListener(nullptr);
  locationQueue_->runUntilIdle();
  runAllMedia();
  EXPECT_TRUE(answeredWithGps());
}

}  // namespace
}  // namespace velqor
