#include "embed/SetupTranslation.h"

#include <cmath>

#include "platform/sim/AccessStateNames.h"

namespace velqor {
namespace {

StatusOr<std::int64_t> accessState(const std::string& name, bool allowLimited, const char* field) {
  auto it = accessStateNames().find(name);
  if (it == accessStateNames().end() || (!allowLimited && it->second == AccessState::limited))
    return Status::invalidArgument(std::string(field) + ": unknown access state \"" + name + "\"");
  return it->second;
}

StatusOr<std::int64_t> source(const std::string& name) {
  if (name == "library" || name == "0") return SourceType::photoLibrary;
  if (name == "camera" || name == "1") return SourceType::camera;
  if (name == "album" || name == "2") return SourceType::savedPhotosAlbum;
  return Status::invalidArgument("sources: unknown source \"" + name + "\" (library, camera or album)");
}

StatusOr<LocationFix> fix(const LocationReading& reading) {
  if (!(std::abs(reading.latitude) <= 90) || !(std::abs(reading.longitude) <= 180))
    return Status::invalidArgument("locationFixes: latitude or longitude out of range");
  LocationFix f;
  f.latitude = reading.latitude;
  f.longitude = reading.longitude;
  if (reading.altitude) f.altitude = *reading.altitude;
  f.timestamp = reading.timestamp.value_or(std::chrono::system_clock::now());
  return f;
}

StatusOr<std::optional<SimPickerChoice>> pickerChoice(const DeviceSetup& setup) {
  using Action = DeviceSetup::PickerAction;
  if (setup.edit && setup.pickerAction != Action::photo && setup.pickerAction != Action::pick)
    return Status::invalidArgument("edit: only a photo or a picked asset can be cropped");
  if (setup.pickerAction == Action::wait || setup.pickerAction == Action::cancel) {
    if (!setup.pickerFile.empty()) return Status::invalidArgument("pickerFile: the user neither takes nor picks anything");
    return std::optional<SimPickerChoice>();
  }
  if (setup.pickerFile.empty()) return Status::invalidArgument("pickerFile: name the photo, movie or asset");
  SimPickerChoice choice;
  choice.kind = setup.pickerAction == Action::photo   ? SimPickerChoice::Kind::photo
                : setup.pickerAction == Action::video ? SimPickerChoice::Kind::video
                                                      : SimPickerChoice::Kind::pick;
  (choice.kind == SimPickerChoice::Kind::pick ? choice.asset : choice.file) = setup.pickerFile;
  if (setup.edit && ((*setup.edit)[2] <= 0 || (*setup.edit)[3] <= 0))
    return Status::invalidArgument("edit: the width and height must be positive");
  choice.edit = setup.edit;
  return std::optional<SimPickerChoice>(choice);
}

}  // namespace

StatusOr<DeviceConfig> SetupTranslation::toConfig(const DeviceSetup& setup) {
  DeviceConfig c;
  c.device.availableSources.clear();
  for (const auto& name : setup.sources) {
    ASSIGN_OR_RETURN(std::int64_t s, source(name));
    c.device.availableSources.insert(s);
  }
  ASSIGN_OR_RETURN(c.device.cameraAccess, accessState(setup.cameraAccess, false, "cameraAccess"));
  ASSIGN_OR_RETURN(c.device.libraryAccess, accessState(setup.libraryAccess, true, "libraryAccess"));
  ASSIGN_OR_RETURN(c.device.libraryRequestAnswer,
                   accessState(setup.libraryRequestAnswer, true, "libraryRequestAnswer"));
  c.device.cameraRequestGranted = setup.cameraRequestGranted;
  c.device.settingsUrlAvailable = setup.settingsPage;
  c.device.alertTap = setup.alertTap;
  if (setup.withoutBundle && setup.bundleDirectory)
    return Status::invalidArgument("bundleDirectory: given together with withoutBundle");
  if (!setup.withoutBundle)
    c.device.bundlePath = setup.bundleDirectory ? setup.bundleDirectory : DeviceSession::shippedBundle();
  c.viewController = setup.viewController;
  c.temporaryDirectory = setup.temporaryDirectory;
  c.libraryDirectory = setup.libraryDirectory;
  c.language = setup.language;
  c.fileUrlPrefix = setup.fileUrlPrefix;
  ASSIGN_OR_RETURN(c.pickerChoice, pickerChoice(setup));
  if (setup.pickerAction == DeviceSetup::PickerAction::cancel)
    c.device.pickerChoice = SimDeviceState::PickerChoice::cancel;
  for (const auto& reading : setup.locationFixes) {
    ASSIGN_OR_RETURN(LocationFix f, fix(reading));
    c.locationFixes.push_back(f);
  }
  return c;
}

}  // namespace velqor
