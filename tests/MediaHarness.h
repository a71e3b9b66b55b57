#pragma once

#include "platform/linux/LazyMediaExport.h"
#include "imaging/codecs/LinuxImageCodec.h"
#include "platform/linux/SampleImages.h"
#include "platform/linux/SampleMovies.h"
#include "platform/linux/SqlitePhotoLibrary.h"
#include "platform/sim/SimLocationService.h"
#include "platform/sim/SimPickerMedia.h"
#include "tests/PluginHarness.h"

namespace velqor::testing {

// The plug-in harness with the real media services: image codec, a photo
// library in the test's directory, FFmpeg export, and scripted location fixes
// delivered on their own manual executor.
class MediaHarness : public PluginHarness {
 protected:
  void customize(PlatformServices& s) override {
    s.imageCodec = codec_;
    if (!library_) library_ = *SqlitePhotoLibrary::open(dir_.path("library"));
    s.photoLibrary = library_;
    location_ = std::make_shared<SimLocationService>(fixes_, locationQueue_, events_);
    s.locationService = location_;
    s.mediaExport = export_;
  }

  // Also waits for the library's queue and running exports.
  void runAllMedia() {
    for (int round = 0; round < 2000; ++round) {
      runAll();
      locationQueue_->runUntilIdle();
      if (library_->idle() && export_->idle() && !main_->hasPending() && !pool_->hasPending() &&
          !locationQueue_->hasPending())
        return;
      library_->drain();
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    ADD_FAILURE() << "media work never finished";
  }

  std::string writeCameraJpeg(int w = 64, int h = 48, int orientation = 6) {
    std::string path = dir_.path("camera.jpg");
    auto bytes = SampleImages::cameraJpeg(w, h, orientation, 90);
    std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(bytes->data()), bytes->size());
    return path;
  }

  // Makes the device's user finish the picker with this choice.
  void userChooses(const SimPickerChoice& choice) {
    auto s = device_->state();
    s.pickerChoice = SimDeviceState::PickerChoice::finish;
    s.makePickerInfo = [choice, codec = codec_, library = library_, tmp = dir_.path("tmp")](const ImagePickerController&) {
      return SimPickerMedia::info(choice, *codec, library.get(), tmp);
    };
    device_->setState(s);
  }

  // The user records (or picks) the movie at `path` in the picker.
  void userChoosesMovie(const std::string& path) {
    SimPickerChoice choice;
    choice.kind = SimPickerChoice::Kind::video;
    choice.file = path;
    userChooses(choice);
  }

  Dictionary payloadOf(const Answer& a) {
    auto* d = std::get_if<Dictionary>(&a.payload);
    return d ? *d : Dictionary{};
  }

  std::vector<LocationFix> fixes_;
  std::shared_ptr<LinuxImageCodec> codec_ = std::make_shared<LinuxImageCodec>();
  std::shared_ptr<SqlitePhotoLibrary> library_;
  std::shared_ptr<ManualExecutor> locationQueue_ = std::make_shared<ManualExecutor>("location");
  std::shared_ptr<SimLocationService> location_;
  std::shared_ptr<LazyMediaExport> export_ = std::make_shared<LazyMediaExport>();
};

}  // namespace velqor::testing
