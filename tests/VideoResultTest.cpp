extern "C" {
#include <libavformat/avformat.h>
}

#include <fstream>

#include "host/Base64.h"
#include "host/FileBytes.h"
#include "imaging/codecs/PngCodec.h"
#include "platform/ExportAdapter.h"
#include "platform/PickerInfoKeys.h"
#include "tests/MediaHarness.h"

namespace velqor {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;
using testing::MediaHarness;

// Packets per stream, by codec, of a movie; empty when it does not open.
std::map<std::string, int> packetsByCodec(const std::string& path) {
  std::map<std::string, int> out;
  AVFormatContext* ctx = nullptr;
  if (avformat_open_input(&ctx, path.c_str(), nullptr, nullptr) < 0) return out;
  avformat_find_stream_info(ctx, nullptr);
  AVPacket* pkt = av_packet_alloc();
  while (av_read_frame(ctx, pkt) >= 0) {
    out[avcodec_get_name(ctx->streams[pkt->stream_index]->codecpar->codec_id)]++;
    av_packet_unref(pkt);
  }
  av_packet_free(&pkt);
  avformat_close_input(&ctx);
  return out;
}

// The order of an MP4's top-level boxes.
std::vector<std::string> topLevelBoxes(const Bytes& mp4) {
  std::vector<std::string> out;
  for (size_t pos = 0; pos + 8 <= mp4.size();) {
    std::uint64_t size = (std::uint64_t(mp4[pos]) << 24) | (mp4[pos + 1] << 16) | (mp4[pos + 2] << 8) | mp4[pos + 3];
    out.emplace_back(reinterpret_cast<const char*>(&mp4[pos + 4]), 4);
    if (size == 1 && pos + 16 <= mp4.size()) {
      size = 0;
      for (int i = 0; i < 8; ++i) size = (size << 8) | mp4[pos + 8 + i];
    }
    if (size < 8) break;
    pos += size;
  }
  return out;
}

struct MovieCase {
  const char* name;
  MovieSpec shape;
  const char* args;
  bool save;
};
void PrintTo(const MovieCase& c, std::ostream* os) { *os << c.name; }

class MovieHarness : public MediaHarness {
 protected:
  std::string recordMovie(const MovieSpec& shape) {
    std::string path = dir_.path("recorded.mov");
    EXPECT_TRUE(SampleMovies::make(path, shape).ok());
    return path;
  }
  std::vector<std::string> pickerMoviesLeft() {
    std::vector<std::string> out;
    for (auto& e : std::filesystem::directory_iterator(dir_.path("tmp")))
      if (e.path().filename().string().rfind("trim.", 0) == 0) out.push_back(e.path());
    return out;
  }
};

class VideoCapture : public MovieHarness, public ::testing::WithParamInterface<MovieCase> {};

TEST_P(VideoCapture, RemuxesEveryPacketIntoAFaststartMp4) {
  const auto& c = GetParam();
  std::string movie = recordMovie(c.shape);
  const auto before = FileBytes::read(movie);
  userChoosesMovie(movie);
  takePicture(c.args);
  runAllMedia();
  auto answers = answersFor();
  ASSERT_EQ(answers.size(), 1u);
  ASSERT_EQ(answers[0].status, CommandStatus::OK) << answers[0].toJsonLine();
  const std::string uri = *find(payloadOf(answers[0]), "callbackURI")->asString();
  ASSERT_THAT(uri, StartsWith("file://" + dir_.path("tmp/velqor_photo_")));
  const std::string output = Url::fromString(uri)->path();
  EXPECT_EQ(packetsByCodec(output), packetsByCodec(movie));
  auto boxes = topLevelBoxes(*FileBytes::read(output));
  auto moov = std::find(boxes.begin(), boxes.end(), "moov"), mdat = std::find(boxes.begin(), boxes.end(), "mdat");
  ASSERT_NE(moov, boxes.end());
  EXPECT_LT(moov, mdat) << "the index is at the front";
  EXPECT_TRUE(pickerMoviesLeft().empty()) << "the picker's movie is deleted";
  EXPECT_EQ(*FileBytes::read(movie), *before) << "the user's file is untouched";
  size_t videos = 0;
  auto rows = *library_->list();
  for (const auto& row : rows) videos += row.video;
  EXPECT_EQ(videos, c.save ? 1u : 0u);
}

MovieSpec movieShape(bool video, bool audio) {
  MovieSpec s;
  s.video = video;
  s.audio = audio;
  s.seconds = 0.5;
  return s;
}

INSTANTIATE_TEST_SUITE_P(Movies, VideoCapture,
                         ::testing::Values(MovieCase{"videoAndAudio", movieShape(true, true), "[50, 1, 1, null, null, 0, 1]", false},
                                           MovieCase{"videoOnly", movieShape(true, false), "[50, 1, 1, null, null, 0, 1]", false},
                                           MovieCase{"audioOnly", movieShape(false, true), "[50, 1, 1, null, null, 0, 1]", false},
                                           MovieCase{"savedToAlbum", movieShape(true, true),
                                                     "[50, 1, 1, null, null, 0, 1, false, false, true]", true}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(MovieHarness, DataUrlDecodesToTheMp4AndNativeUriFailsAfterExporting) {
  MovieSpec s = movieShape(true, true);
  userChoosesMovie(recordMovie(s));
  takePicture("[50, 0, 1, null, null, 0, 1]", "data");
  runAllMedia();
  auto data = answersFor("data");
  ASSERT_EQ(data.size(), 1u);
  std::string uri = *find(payloadOf(data[0]), "callbackURI")->asString();
  ASSERT_THAT(uri, StartsWith("data:video/mp4;base64,"));
  auto decoded = base64Decode(uri.substr(22));
  ASSERT_TRUE(decoded);
  std::vector<std::string> outputs;
  for (auto& e : std::filesystem::directory_iterator(dir_.path("tmp")))
    if (e.path().extension() == ".mp4") outputs.push_back(e.path());
  ASSERT_EQ(outputs.size(), 1u);
  auto file = FileBytes::read(outputs[0]);
  ASSERT_TRUE(file.ok());
  EXPECT_EQ(*decoded, std::string(file->begin(), file->end())) << "the payload is the whole MPEG-4 file";

  takePicture("[50, 2, 1, null, null, 0, 1]", "native");
  runAllMedia();
  auto native = answersFor("native");
  ASSERT_EQ(native.size(), 1u);
  EXPECT_EQ(native[0].status, CommandStatus::UNABLE_FILE_WRITE);
  EXPECT_EQ(native[0].messageText(), "Fail take picture");
  size_t mp4s = 0;
  for (auto& e : std::filesystem::directory_iterator(dir_.path("tmp"))) mp4s += e.path().extension() == ".mp4";
  EXPECT_EQ(mp4s, 2u);  // the native road's output stays
}

// A picker that keeps its movie outside the temporary directory: the movie is
// still the picker's, so it is deleted there and the capture succeeds.
TEST_F(MovieHarness, APickerMovieOutsideTheTemporaryDirectoryIsDeletedWhereItLies) {
  const std::string elsewhere = dir_.path("picker-cache");
  std::filesystem::create_directories(elsewhere);
  std::string movie;
  SimPickerChoice choice;
  choice.kind = SimPickerChoice::Kind::video;
  choice.file = recordMovie(movieShape(true, true));
  auto s = device_->state();
  s.pickerChoice = SimDeviceState::PickerChoice::finish;
  s.makePickerInfo = [&, choice](const ImagePickerController&) -> StatusOr<Dictionary> {
    auto info = SimPickerMedia::info(choice, *codec_, library_.get(), elsewhere);
    if (info.ok()) movie = find(*info, PickerInfoKey::mediaURL)->asUrl()->path();
    return info;
  };
  device_->setState(s);
  takePicture("[50, 1, 1, null, null, 0, 1]");
  runAllMedia();
  auto answers = answersFor();
  ASSERT_EQ(answers.size(), 1u);
  ASSERT_EQ(answers[0].status, CommandStatus::OK) << answers[0].toJsonLine();
  ASSERT_THAT(movie, StartsWith(elsewhere + "/"));
  EXPECT_FALSE(std::filesystem::exists(movie)) << "the picker's movie is deleted where the picker left it";
  const std::string output = Url::fromString(*find(payloadOf(answers[0]), "callbackURI")->asString())->path();
  EXPECT_EQ(packetsByCodec(output), packetsByCodec(choice.file));
  EXPECT_TRUE(std::filesystem::exists(choice.file)) << "the user's own file stays";
}

struct HostileMovie {
  const char* name;
  std::function<Bytes()> bytes;
  const char* messagePart;
};
void PrintTo(const HostileMovie& c, std::ostream* os) { *os << c.name; }

class HostileMovies : public MediaHarness, public ::testing::WithParamInterface<HostileMovie> {};

TEST_P(HostileMovies, FailTheCaptureWithADescriptionAndWriteNothing) {
  const std::string path = dir_.path("hostile.mov");
  Bytes bytes = GetParam().bytes();
  std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(bytes.data()), bytes.size());
  userChoosesMovie(path);
  takePicture("[50, 1, 1, null, null, 0, 1]");
  runAllMedia();
  auto answers = answersFor();
  ASSERT_EQ(answers.size(), 1u);
  EXPECT_EQ(answers[0].status, CommandStatus::FAIL_TAKE_PICTURE);
  EXPECT_THAT(answers[0].messageText(), HasSubstr(GetParam().messagePart));
  for (auto& e : std::filesystem::directory_iterator(dir_.path("tmp")))
    EXPECT_NE(e.path().extension(), ".mp4") << "nothing at the output URL";
}

Bytes truncatedMovie() {
  testing::TestDirectory d;
  MovieSpec s = movieShape(true, true);
  SampleMovies::make(d.path("m.mov"), s);
  Bytes b = *FileBytes::read(d.path("m.mov"));
  b.resize(b.size() / 3);
  return b;
}

Bytes pcmMovie() {
  testing::TestDirectory d;
  MovieSpec s = movieShape(true, true);
  s.pcmAudio = true;
  EXPECT_TRUE(SampleMovies::make(d.path("m.mov"), s).ok());
  return *FileBytes::read(d.path("m.mov"));
}

Bytes timecodeMovie() {
  testing::TestDirectory d;
  MovieSpec s = movieShape(true, true);
  s.timecode = "01:00:00:00";
  EXPECT_TRUE(SampleMovies::make(d.path("m.mov"), s).ok());
  return *FileBytes::read(d.path("m.mov"));
}

INSTANTIATE_TEST_SUITE_P(
    Inputs, HostileMovies,
    ::testing::Values(HostileMovie{"zeroBytes", [] { return Bytes{}; }, "could not be opened"},
                      HostileMovie{"pngNamedMov", [] { return *PngCodec::encode(SampleImages::scene(8, 8)); },
                                   "could not be opened"},
                      HostileMovie{"playlistNamedMov", [] {
                                     std::string m3u = "#EXTM3U\n#EXT-X-TARGETDURATION:1\n#EXTINF:1,\n/etc/passwd\n";
                                     return Bytes(m3u.begin(), m3u.end());
                                   }, "could not be opened"},
                      HostileMovie{"truncated", truncatedMovie, "movie"},
                      HostileMovie{"pcmAudioTrack", pcmMovie, "a pcm_f32le audio track, which an MPEG-4 file cannot carry"},
                      HostileMovie{"timecodeTrack", timecodeMovie, "a timecode track (tmcd), which an MPEG-4 file cannot carry"}),
    [](const auto& info) { return std::string(info.param.name); });

class FakeSession final : public ExportSession {
 public:
  FakeSession(std::int64_t final, std::optional<PlatformError> own) : final_(final), own_(std::move(own)) {}
  void setOutputFileType(const std::string&) override {}
  void setOutputURL(const Url&) override {}
  void setTimeRange(double, double) override {}
  void setShouldOptimizeForNetworkUse(bool) override {}
  void exportAsynchronously(UniqueFunction<void()> completion) override {
    status_ = final_;
    completion();
  }
  void cancelExport() override {}
  std::int64_t status() const override { return status_; }
  std::optional<PlatformError> error() const override { return own_; }

 private:
  std::int64_t final_, status_ = unknown;
  std::optional<PlatformError> own_;
};

// An export that ends as the session says, without writing anything.
class ScriptedExport final : public MediaExport {
 public:
  explicit ScriptedExport(std::int64_t final) : final_(final) {}
  double assetDuration(const Url&) override { return 0.5; }
  std::shared_ptr<ExportSession> makeSession(const Url&, const std::string&) override {
    return std::make_shared<FakeSession>(final_, std::nullopt);
  }
  bool idle() const override { return true; }

 private:
  std::int64_t final_;
};

struct VideoFailure {
  const char* name;
  enum Media { none, pickerMovie, vanishedMovie } media;
  std::optional<std::int64_t> exportEnds;  // none: the real export
  const char* message;
  bool movieLeft;
};
void PrintTo(const VideoFailure& c, std::ostream* os) { *os << c.name; }

class VideoFailures : public MovieHarness, public ::testing::WithParamInterface<VideoFailure> {
 protected:
  void customize(PlatformServices& s) override {
    MovieHarness::customize(s);
    if (exportEnds_) s.mediaExport = std::make_shared<ScriptedExport>(*exportEnds_);
  }
  std::optional<std::int64_t> exportEnds_;
};

TEST_P(VideoFailures, AnswerFailTakePictureWithTheirText) {
  const auto& c = GetParam();
  exportEnds_ = c.exportEnds;
  build(SimDeviceState{});
  const std::string recorded = recordMovie(movieShape(true, true));
  std::string movie;
  auto s = device_->state();
  s.pickerChoice = SimDeviceState::PickerChoice::finish;
  if (c.media == VideoFailure::pickerMovie) {
    SimPickerChoice choice;
    choice.kind = SimPickerChoice::Kind::video;
    choice.file = recorded;
    s.makePickerInfo = [&, choice](const ImagePickerController&) -> StatusOr<Dictionary> {
      auto info = SimPickerMedia::info(choice, *codec_, library_.get(), dir_.path("tmp"));
      if (info.ok()) movie = find(*info, PickerInfoKey::mediaURL)->asUrl()->path();
      return info;
    };
  } else {
    // vanishedMovie: the picker names a movie that is gone by the time it is deleted.
    movie = c.media == VideoFailure::none ? recorded : dir_.path("picker/vanished.mov");
    const Dictionary info = c.media == VideoFailure::none
                                ? Dictionary{}
                                : Dictionary{{PickerInfoKey::mediaType, Value(kUTTypeMovie)},
                                             {PickerInfoKey::mediaURL, Value(Url::fileUrlWithPath(movie))}};
    s.makePickerInfo = [info](const ImagePickerController&) -> StatusOr<Dictionary> { return info; };
  }
  device_->setState(s);
  takePicture("[50, 1, 1, null, null, 0, 1]");
  runAllMedia();
  auto answers = answersFor();
  ASSERT_EQ(answers.size(), 1u);
  EXPECT_EQ(answers[0].status, CommandStatus::FAIL_TAKE_PICTURE);
  EXPECT_EQ(payloadOf(answers[0]), (Dictionary{{"errorMsg", Value(c.message)}}));
  EXPECT_EQ(std::filesystem::exists(movie), c.movieLeft);
}

INSTANTIATE_TEST_SUITE_P(
    Outcomes, VideoFailures,
    ::testing::Values(
        VideoFailure{"noMediaUrl", VideoFailure::none, std::nullopt, "Fail take picture", true},
        VideoFailure{"exportCancelled", VideoFailure::pickerMovie, ExportSession::cancelled, "Export cancelled", true},
        VideoFailure{"movieCannotBeDeleted", VideoFailure::vanishedMovie, ExportSession::completed,
                     "\u201Cvanished.mov\u201D couldn\u2019t be removed because it doesn\u2019t exist.", false},
        VideoFailure{"exportWroteNothing", VideoFailure::pickerMovie, ExportSession::completed, "Fail take picture",
                     false}),
    [](const auto& info) { return std::string(info.param.name); });

struct ExportOutcomeCase {
  const char* name;
  std::int64_t status;
  std::optional<PlatformError> own;
  std::optional<PlatformError> expected;
};
void PrintTo(const ExportOutcomeCase& c, std::ostream* os) { *os << c.name; }
class ExportOutcomes : public ::testing::TestWithParam<ExportOutcomeCase> {};

TEST_P(ExportOutcomes, MapTheFinalStatus) {
  const auto& c = GetParam();
  ManualExecutor exec;
  std::optional<Outcome<bool>> got;
  auto run = [&]() -> Task<void> {
    auto exporting = ExportAdapter::exportAsync(std::make_shared<FakeSession>(c.status, c.own), exec, nullptr);
    got.emplace(co_await std::move(exporting));
  };
  startDetached(exec, run());
  exec.runUntilIdle();
  ASSERT_TRUE(got);
  EXPECT_EQ(got->ok(), !c.expected);
  if (c.expected) {
    EXPECT_EQ(got->error(), *c.expected);
  }
}

const PlatformError kOwn{"AVFoundationErrorDomain", -11800, "The operation could not be completed"};
INSTANTIATE_TEST_SUITE_P(
    Statuses, ExportOutcomes,
    ::testing::Values(
        ExportOutcomeCase{"completed", 3, std::nullopt, std::nullopt},
        ExportOutcomeCase{"failedWithItsOwnError", 4, kOwn, kOwn},
        ExportOutcomeCase{"failedWithoutError", 4, std::nullopt, PlatformError{"AVAssetExportSessionError", 0, "Export failed"}},
        ExportOutcomeCase{"cancelled", 5, std::nullopt, PlatformError{"AVAssetExportSessionError", 1, "Export cancelled"}},
        ExportOutcomeCase{"stillExporting", 2, std::nullopt,
                          PlatformError{"AVAssetExportSessionError", 2, "Export ended with unexpected status"}},
        ExportOutcomeCase{"unknownValue", 42, std::nullopt,
                          PlatformError{"AVAssetExportSessionError", 2, "Export ended with unexpected status"}}),
    [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace velqor
