#include "session/DeviceSession.h"

#include <unistd.h>

#include <filesystem>

#include "files/FolderPolicy.h"
#include "host/FileUrlPrefix.h"
#include "imaging/codecs/LinuxImageCodec.h"
#include "session/ShippedData.h"

namespace velqor {

std::optional<std::string> DeviceSession::shippedBundle() { return ShippedData::find("Velqor.bundle"); }

StatusOr<std::unique_ptr<DeviceSession>> DeviceSession::create(DeviceConfig config) {
  std::unique_ptr<DeviceSession> s(new DeviceSession());
  std::string tmpPath = config.temporaryDirectory.empty() ? TemporaryDirectory::defaultPath()
                                                          : config.temporaryDirectory;
  std::string libraryPath =
      config.libraryDirectory.empty() ? SqlitePhotoLibrary::defaultPath() : config.libraryDirectory;
  if (config.checkFolders) {
    const FolderOwnership owned = FolderOwnership::atDefaultPlace();
    ASSIGN_OR_RETURN(ResolvedFolder checkedTmp, FolderPolicy::temporaryFolder(tmpPath, owned, config.forceFolders));
    ASSIGN_OR_RETURN(ResolvedFolder checkedLibrary,
                     FolderPolicy::libraryFolder(libraryPath, checkedTmp, owned, config.forceFolders));
    tmpPath = checkedTmp.path;
    libraryPath = checkedLibrary.path;
  }
  ASSIGN_OR_RETURN(TemporaryDirectory tmp, TemporaryDirectory::open(tmpPath));
  // Opened when first used: a capture that neither picks from nor saves to
  // the library never touches it.
  s->library_ = SqlitePhotoLibrary::openLazily(libraryPath);
  s->export_ = std::make_shared<LazyMediaExport>();
  s->main_ = std::make_shared<ManualExecutor>("main");
  s->pool_ = std::make_shared<ThreadPool>(2, "workers");
  s->platform_ = std::make_shared<ThreadPool>(1, "platform");
  auto codec = std::make_shared<LinuxImageCodec>();
  // A note belongs to the answer that comes next: stamped with the answers so far.
  DeviceSession* self = s.get();
  s->encodeNotes_ = std::make_shared<EncodeNotes>([self] { return self->host_ ? self->host_->answers()->size() : 0; });
  codec->setNotes(s->encodeNotes_);
  if (config.pickerChoice && config.pickerChoice->kind == SimPickerChoice::Kind::pick &&
      !s->library_->asset(config.pickerChoice->asset).ok() &&
      std::filesystem::is_regular_file(config.pickerChoice->asset)) {
    // An asset of the library is picked as it is; otherwise a file given as
    // the asset to pick is imported into the library first.
    ASSIGN_OR_RETURN(AssetRecord imported, s->library_->importFile(config.pickerChoice->asset));
    config.pickerChoice->asset = imported.localIdentifier;
  }
  s->services_.imageCodec = codec;
  s->services_.temporaryDirectory = std::make_shared<const TemporaryDirectory>(tmp);
  if (config.pickerChoice) {
    config.device.pickerChoice = SimDeviceState::PickerChoice::finish;
    config.device.makePickerInfo = s->pickerInfoFor(*config.pickerChoice);
  }
  auto events = std::make_shared<SimEventLog>();
  s->device_ = std::make_shared<SimDevice>(config.device, s->main_, s->platform_, events);
  s->locationQueue_ = std::make_shared<ThreadPool>(1, "location");
  s->location_ = std::make_shared<SimLocationService>(config.locationFixes, s->locationQueue_, events);

  PlatformServices& p = s->services_;
  p.mainQueue = s->main_;
  p.workerPool = s->pool_;
  p.completionMonitor = s->watchdog_;
  p.clock = std::make_shared<SystemClock>();
  p.locale = UserLocale::fromEnvironment();
  if (!config.language.empty()) p.locale.preferredLanguages = UserLocale::languageList(config.language);
  p.locale.changeable = s->languages_;
  s->device_->installInto(p);
  p.locationService = s->location_;
  if (config.gpsd) {
    const auto colon = config.gpsd->rfind(':');
    s->gpsd_ = std::make_shared<GpsdLocationService>(config.gpsd->substr(0, colon),
                                                     colon == std::string::npos ? "2947" : config.gpsd->substr(colon + 1));
    p.locationService = s->gpsd_;
  }
  p.photoLibrary = s->library_;
  p.mediaExport = s->export_;

  s->plugin_ = std::make_unique<VelqorCameraPlugin>(p);
  if (config.viewController) s->plugin_->setViewController(s->device_->makeRootViewController());

  std::shared_ptr<const CommandDelegate> delegate;
  if (config.fileUrlPrefix)
    delegate = std::make_shared<CommandDelegate>(FileUrlPrefix::transformer(*config.fileUrlPrefix));
  else
    delegate = std::make_shared<CommandDelegate>();
  s->host_ = std::make_unique<HostRuntime>(s->plugin_->operations(), s->main_, delegate);
  auto pool = s->pool_;
  auto platform = s->platform_;
  s->host_->addActivitySource({"worker pool", [pool] { return pool->idle(); }});
  s->host_->addActivitySource({"platform queue", [platform] { return platform->idle(); }});
  auto locationQueue = s->locationQueue_;
  s->host_->addActivitySource({"location service", [locationQueue] { return locationQueue->idle(); }});
  if (auto gpsd = s->gpsd_) s->host_->addActivitySource({"gpsd", [gpsd] { return gpsd->idle(); }});
  auto library = s->library_;
  s->host_->addActivitySource({"photo library", [library] { return library->idle(); }});
  auto exporter = s->export_;
  s->host_->addActivitySource({"media export", [exporter] { return exporter->idle(); }});
  s->config_ = std::move(config);
  return s;
}

DeviceSession::~DeviceSession() {
  // Work still queued holds the core; let the threads finish before the
  // executors they post to go away.
  if (pool_) pool_->waitIdle();
  if (platform_) platform_->waitIdle();
  if (locationQueue_) locationQueue_->waitIdle();
  if (library_) library_->drain();
  host_.reset();
  plugin_.reset();
}

std::function<StatusOr<Dictionary>(const ImagePickerController&)> DeviceSession::pickerInfoFor(
    SimPickerChoice choice) const {
  return [choice = std::move(choice), codec = services_.imageCodec, library = library_,
          dir = services_.temporaryDirectory->path()](const ImagePickerController&) {
    return SimPickerMedia::info(choice, *codec, library.get(), dir);
  };
}

void DeviceSession::setLanguages(std::vector<std::string> languages) { languages_->set(std::move(languages)); }

std::vector<std::string> DeviceSession::languages() const { return services_.locale.languages(); }

void DeviceSession::setHasViewController(bool has) {
  if (has == config_.viewController) return;
  plugin_->setViewController(has ? device_->makeRootViewController() : nullptr);
  config_.viewController = has;
}

std::vector<OpenReason> DeviceSession::openReasons(size_t eventsFrom) const {
  using Step = OpenReason::NextStep;
  std::vector<OpenReason> reasons = device_->waitingOn();
  const auto& core = plugin_->core();
  if (!config_.viewController) {
    if (core->pickerController.load())
      reasons.push_back({"no view controller: the picker was created but never shown"});
    else
      reasons.push_back({"no view controller: nothing could be shown to the user"});
  }
  for (const auto& e : device_->events()->eventsFrom(eventsFrom)) {
    if (e["event"] == "settingsOpened")
      reasons.push_back({"the settings page was opened from the permission alert; the command stays open"});
    if (e["event"] == "permissionAnswered" && e.contains("status") &&
        e["status"] != AccessState::authorized && e["status"] != AccessState::denied &&
        e["status"] != AccessState::restricted)
      reasons.push_back({"the photo-library request was answered with state " + e["status"].dump() +
                         ", which the plug-in leaves unanswered"});
  }
  if (reasons.empty() && device_->state().libraryAccess == AccessState::limited)
    reasons.push_back({"photo-library access is limited: the plug-in leaves the command open"});
  std::string why = gpsd_ ? gpsd_->waitingReason() : location_->waitingReason();
  if (!why.empty() && core->pickerController.load()) reasons.push_back({why, Step::deliverFix});
  if (reasons.empty()) {
    const auto busy = host_->busySources();
    if (!busy.empty()) {
      std::string names;
      for (const auto& b : busy) names += (names.empty() ? "" : ", ") + b;
      reasons.push_back({"the plug-in is still working on it (" + names + ")"});
    }
  }
  if (reasons.empty()) reasons.push_back({"the plug-in sent no answer and nothing is left to happen"});
  return reasons;
}

std::vector<std::string> DeviceSession::whyOpen() const {
  std::vector<std::string> lines;
  for (const auto& reason : openReasons()) lines.push_back(reason.forCommandLine());
  return lines;
}

}  // namespace velqor
