#include <cstdio>

#include "tests/MediaHarness.h"
#include "tests/MovieProbe.h"

namespace velqor {
namespace {

using testing::MediaHarness;
using testing::ProbedMovie;

constexpr const char* kQuickTimeLocation = "com.apple.quicktime.location.ISO6709";

// Latitude and longitude of an ISO 6709 text such as "+48.8584+002.2945+035.000/".
std::pair<double, double> coordinates(const std::string& iso6709) {
  double lat = NAN, lon = NAN;
  std::sscanf(iso6709.c_str(), "%lf%lf", &lat, &lon);
  return {lat, lon};
}

// No language and "und" both say the language is not known.
std::string undetermined(const std::string& language) { return language.empty() ? "und" : language; }

struct MovieCase {
  const char* name;
  MovieSpec shape;
  int rotation;     // the clockwise turn a player gives the exported video
  const char* tag;  // the exported video's sample entry
};
void PrintTo(const MovieCase& c, std::ostream* os) { *os << c.name; }

// A movie recorded the way a phone records it goes through the whole capture
// and comes out as an MP4 that plays the same: same packets at the same
// times, same turn, same date, place and names.
class MovieExport : public MediaHarness, public ::testing::WithParamInterface<MovieCase> {
 protected:
  // The MP4 the plug-in answers for a recording of `shape`, and the recording.
  std::pair<std::optional<ProbedMovie>, std::optional<ProbedMovie>> exportRecording(const MovieSpec& shape) {
    const std::string recorded = dir_.path(std::string("recorded.") + shape.container);
    const Status made = SampleMovies::make(recorded, shape);
    EXPECT_TRUE(made.ok()) << made;
    userChoosesMovie(recorded);
    takePicture("[50, 1, 1, null, null, 0, 1]");
    runAllMedia();
    auto answers = answersFor();
    if (answers.size() != 1 || answers[0].status != CommandStatus::OK) {
      ADD_FAILURE() << (answers.empty() ? std::string("no answer") : answers[0].toJsonLine());
      return {};
    }
    const std::string uri = *find(payloadOf(answers[0]), "callbackURI")->asString();
    return {ProbedMovie::read(Url::fromString(uri)->path()), ProbedMovie::read(recorded)};
  }
};

TEST_P(MovieExport, KeepsPacketsTurnDatePlaceAndNames) {
  const auto& c = GetParam();
  auto [exported, source] = exportRecording(c.shape);
  ASSERT_TRUE(exported && source);
  const auto* video = exported->first("video");
  ASSERT_TRUE(video);
  ASSERT_EQ(source->first("video")->rotation, c.rotation) << "the recording itself carries the turn";
  EXPECT_EQ(video->rotation, c.rotation);
  EXPECT_EQ(video->tag, c.tag);

  EXPECT_EQ(exported->value("creation_time"), c.shape.creationTime);
  if (!c.shape.location.empty()) {
    EXPECT_EQ(exported->value(kQuickTimeLocation), c.shape.location);
    const auto [lat, lon] = coordinates(exported->value("location"));  // the 3GPP form keeps 16.16 fixed point
    EXPECT_NEAR(lat, coordinates(c.shape.location).first, 1e-4);
    EXPECT_NEAR(lon, coordinates(c.shape.location).second, 1e-4);
  }
  for (const auto& [key, value] : c.shape.metadata) EXPECT_EQ(exported->value(key), value) << key;
  EXPECT_EQ(exported->chapters, source->chapters);

  ASSERT_EQ(exported->tracks.size(), source->tracks.size());
  for (size_t i = 0; i < source->tracks.size(); ++i) {
    const auto& in = source->tracks[i];
    const auto& out = exported->tracks[i];
    SCOPED_TRACE("track " + std::to_string(i) + " " + in.type + " " + in.codec);
    EXPECT_EQ(out.codec, in.codec);
    EXPECT_EQ(out.tag, in.tag);
    EXPECT_EQ(out.handler, in.handler);
    if (in.type != "data") {
      EXPECT_EQ(undetermined(out.language), undetermined(in.language));
    }
    EXPECT_EQ(out.packets, in.packets) << "every packet, its times and its bytes";
  }
  ASSERT_FALSE(video->packets.empty());
  if (c.shape.metadataTrack) {
    const auto* data = exported->first("data");
    ASSERT_TRUE(data);
    EXPECT_EQ(data->tag, "gpmd");
    EXPECT_FALSE(data->packets.empty());
  }
}

MovieSpec phone(int rotation) {
  MovieSpec s;
  s.seconds = 0.5;
  s.rotation = rotation;
  s.creationTime = "2024-03-05T14:07:31.000000Z";
  s.location = "+48.8584+002.2945+035.000/";
  s.metadata = {{"com.apple.quicktime.make", "Apple"}, {"com.apple.quicktime.model", "iPhone 15"},
                {"com.apple.quicktime.software", "17.4"}};
  s.language = "fra";
  s.videoHandler = "Core Media Video";
  s.audioHandler = "Core Media Audio";
  return s;
}

MovieSpec olderPhone() {
  MovieSpec s = phone(180);
  s.quickTimeKeys = false;  // the place as a ©xyz atom
  s.location = "-33.8568+151.2153/";
  s.metadata.clear();
  s.language = "ger";  // a QuickTime file stores languages by the Macintosh codes, which know "ger"
  return s;
}

MovieSpec hevc(const char* tag) {
  MovieSpec s = phone(90);
  s.videoCodec = "hevc";
  s.hevcTag = tag;
  return s;
}

MovieSpec mp4Recording() {
  MovieSpec s = phone(270);
  s.container = "mp4";
  return s;
}

MovieSpec withMetadataTrack() {
  MovieSpec s = phone(0);
  s.metadataTrack = true;
  return s;
}

MovieSpec withChapters() {
  MovieSpec s = phone(90);
  s.chapters = {{0, "Arrival"}, {0.25, "Tower"}};
  return s;
}

INSTANTIATE_TEST_SUITE_P(Recordings, MovieExport,
                         ::testing::Values(MovieCase{"portraitPhone", phone(90), 90, "avc1"},
                                           MovieCase{"upsideDownOlderPhone", olderPhone(), 180, "avc1"},
                                           MovieCase{"hevcHvc1StaysHvc1", hevc("hvc1"), 90, "hvc1"},
                                           MovieCase{"hevcHev1KeepsItsTag", hevc("hev1"), 90, "hev1"},
                                           MovieCase{"mp4Recording", mp4Recording(), 270, "avc1"},
                                           MovieCase{"timedMetadataTrack", withMetadataTrack(), 0, "avc1"},
                                           MovieCase{"chapters", withChapters(), 90, "avc1"}),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace velqor
