#include <filesystem>

#include "platform/ImagePickerController.h"
#include "tests/MediaHarness.h"

namespace velqor {
namespace {

using ::testing::HasSubstr;
using testing::MediaHarness;

struct SetUpCase {
  const char* name;
  const char* args;
  enum Choice { photo, movie, pickPhoto, pickMovie } choice;
  bool crop;
  const char* refusal;  // part of the reason the picker gives; null: it hands the choice over
  const char* device;   // for a camera capture: the camera and mode it used
  const char* mode;
};
void PrintTo(const SetUpCase& c, std::ostream* os) { *os << c.name; }

// The picker only hands over what its set-up offers; anything else leaves it
// on the screen with the command open, as the phone's picker would be.
class PickerSetUp : public MediaHarness, public ::testing::WithParamInterface<SetUpCase> {
 protected:
  SimPickerChoice choiceFor(const SetUpCase& c) {
    const std::string movie = dir_.path("movie.mov");
    MovieSpec shape;
    shape.seconds = 0.2;
    shape.audio = false;
    EXPECT_TRUE(SampleMovies::make(movie, shape).ok());
    const std::string photo = writeCameraJpeg();
    SimPickerChoice choice;
    choice.kind = c.choice == SetUpCase::photo ? SimPickerChoice::Kind::photo
                  : c.choice == SetUpCase::movie ? SimPickerChoice::Kind::video
                                                 : SimPickerChoice::Kind::pick;
    choice.file = c.choice == SetUpCase::photo ? photo : movie;
    if (choice.kind == SimPickerChoice::Kind::pick)
      choice.asset = library_->importFile(c.choice == SetUpCase::pickPhoto ? photo : movie)->localIdentifier;
    if (c.crop) choice.edit = std::array<double, 4>{0, 0, 16, 16};
    return choice;
  }

  std::optional<nlohmann::ordered_json> lastEvent(const std::string& name) const {
    std::optional<nlohmann::ordered_json> found;
    for (const auto& e : events_->events())
      if (e["event"] == name) found = e;
    return found;
  }

  bool pickerOnScreen() const {
    for (const auto& vc : device_->onScreen())
      if (std::dynamic_pointer_cast<ImagePickerController>(vc)) return true;
    return false;
  }

  size_t filesWithExtension(const std::string& extension) const {
    size_t n = 0;
    for (const auto& e : std::filesystem::directory_iterator(dir_.path("tmp"))) n += e.path().extension() == extension;
    return n;
  }
};

TEST_P(PickerSetUp, HandsOverOnlyWhatItOffers) {
  const auto& c = GetParam();
  userChooses(choiceFor(c));
  takePicture(c.args);
  runAllMedia();

  if (c.refusal) {
    EXPECT_TRUE(answersFor().empty()) << answersFor()[0].toJsonLine();
    auto refused = lastEvent("pickerRefused");
    ASSERT_TRUE(refused);
    EXPECT_THAT((*refused)["reason"].get<std::string>(), HasSubstr(c.refusal));
    EXPECT_FALSE(lastEvent("pickerFinished"));
    EXPECT_TRUE(pickerOnScreen());
    EXPECT_EQ(filesWithExtension(".mp4"), 0u) << "nothing was exported";
    EXPECT_EQ(filesWithExtension(".MOV"), 0u) << "the picker kept no copy of a refused movie";
    ASSERT_EQ(device_->waitingFor().size(), 1u);
    EXPECT_THAT(device_->waitingFor()[0], HasSubstr(c.refusal));
    // The picker is still live: the user can still leave it.
    ASSERT_TRUE(device_->cancelPicker());
    runAllMedia();
    ASSERT_EQ(answersFor().size(), 1u);
    EXPECT_EQ(answersFor()[0].status, CommandStatus::NO_PERMISSION);
    return;
  }
  ASSERT_EQ(answersFor().size(), 1u);
  EXPECT_EQ(answersFor()[0].status, CommandStatus::OK) << answersFor()[0].toJsonLine();
  auto finished = lastEvent("pickerFinished");
  ASSERT_TRUE(finished);
  EXPECT_FALSE(lastEvent("pickerRefused"));
  const bool movie = c.choice == SetUpCase::movie || c.choice == SetUpCase::pickMovie;
  EXPECT_EQ((*finished)["mediaType"], movie ? "public.movie" : "public.image");
  EXPECT_EQ(filesWithExtension(".mp4"), movie ? 1u : 0u);
  if (c.device) {
    EXPECT_EQ((*finished)["cameraDevice"], c.device);
    EXPECT_EQ((*finished)["captureMode"], c.mode);
  } else {
    EXPECT_FALSE(finished->contains("cameraDevice"));
  }
}

INSTANTIATE_TEST_SUITE_P(
    Choices, PickerSetUp,
    ::testing::Values(
        SetUpCase{"movieToPictureCamera", "[50, 1, 1, null, null, 0, 0]", SetUpCase::movie, false,
                  "set up for pictures only", nullptr, nullptr},
        SetUpCase{"photoToMovieCamera", "[50, 1, 1, null, null, 0, 1]", SetUpCase::photo, false,
                  "set up for movies only", nullptr, nullptr},
        SetUpCase{"rearCameraPhotoByDefault", "[50, 1, 1]", SetUpCase::photo, false, nullptr, "rear", "photo"},
        SetUpCase{"frontCameraPhoto", "[50, 1, 1, null, null, 0, 0, false, false, false, null, true]", SetUpCase::photo, false,
                  nullptr, "front", "photo"},
        SetUpCase{"movieRecordsWithTheDefaultCamera", "[50, 1, 1, null, null, 0, 1, false, false, false, null, true]",
                  SetUpCase::movie, false, nullptr, "rear", "video"},
        SetUpCase{"libraryPickOnCamera", "[50, 1, 1]", SetUpCase::pickPhoto, false, "picks nothing from the library", nullptr, nullptr},
        SetUpCase{"cameraPhotoOnLibraryPicker", "[50, 1, 0]", SetUpCase::photo, false, "takes no new photo or movie", nullptr, nullptr},
        SetUpCase{"movieFromPictureLibrary", "[50, 1, 0]", SetUpCase::pickMovie, false, "set up for pictures only", nullptr, nullptr},
        SetUpCase{"movieFromAlbumVideoPicker", "[50, 1, 2, null, null, 0, 1]", SetUpCase::pickMovie, false, nullptr, nullptr, nullptr},
        SetUpCase{"anyMediaFromLibrary", "[50, 1, 0, null, null, 0, 2]", SetUpCase::pickMovie, false, nullptr, nullptr, nullptr},
        SetUpCase{"cropWithoutEditing", "[50, 1, 0]", SetUpCase::pickPhoto, true, "without editing", nullptr, nullptr},
        SetUpCase{"cropWithEditing", "[50, 1, 0, null, null, 0, 0, true]", SetUpCase::pickPhoto, true, nullptr, nullptr, nullptr}),
    [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace velqor
