// embed_capture FILE: one camera capture of FILE on the simulated phone,
// through the installed VelqorCamera library: a photo answered as a data URL,
// or, for a .mov or .mp4 FILE, a movie recorded and answered as a file URL. Prints the answer line and
// exits 0 when the plug-in answered, 3 when the command stayed open, 2 on a
// usage or set-up error.
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <iostream>

#include <unistd.h>

#include <velqor/Velqor.h>

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: embed_capture PHOTO|MOVIE\n";
    return 2;
  }
  // A temporary directory and library of this run's own: `cleanup:` empties
  // the temporary directory, so it must never be a shared one.
  const auto work = std::filesystem::temp_directory_path() / ("embed_capture-" + std::to_string(::getpid()));
  const std::string extension = std::filesystem::path(argv[1]).extension().string();
  const bool movie = extension == ".mov" || extension == ".mp4";
  velqor::DeviceSetup setup;
  setup.pickerAction = movie ? velqor::DeviceSetup::PickerAction::video : velqor::DeviceSetup::PickerAction::photo;
  setup.pickerFile = argv[1];
  setup.temporaryDirectory = (work / "tmp").string();
  setup.libraryDirectory = (work / "library").string();

  auto session = velqor::CameraSession::open(setup);
  if (!session.ok()) {
    std::cerr << "embed_capture: " << session.status().message() << "\n";
    return 2;
  }
  velqor::CameraPlugin& plugin = (*session)->plugin();
  // A photo as a data URL: the result travels in the answer. A movie as a
  // file URL (mediaType 1): the file lies in this run's folder, removed below.
  auto id = plugin.callCommand("takePicture:", movie ? "[50, 1, 1, null, null, 0, 1]" : "[50, 0, 1, 640, 480]");
  if (!id.ok()) {
    std::cerr << "embed_capture: " << id.status().message() << "\n";
    return 2;
  }
  const auto outcome = plugin.runUntilAnswered(*id, std::chrono::seconds(60));
  for (const auto& answer : plugin.answersFor(*id)) std::cout << answer.jsonLine << "\n";
  if (outcome != velqor::CameraPlugin::RunOutcome::answered)
    for (const auto& reason : (*session)->whyOpen()) std::cerr << "embed_capture: still open: " << reason << "\n";
  session->reset();
  std::error_code ec;
  std::filesystem::remove_all(work, ec);
  return outcome == velqor::CameraPlugin::RunOutcome::answered ? 0 : 3;
}
