#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/HostRuntime.h"
#include "host/ManualExecutor.h"
#include "host/StatusOr.h"
#include "host/ThreadPool.h"
#include "host/Watchdog.h"
#include "imaging/EncodeNotes.h"
#include "platform/linux/LazyMediaExport.h"
#include "platform/linux/GpsdLocationService.h"
#include "platform/linux/SqlitePhotoLibrary.h"
#include "platform/sim/OpenReason.h"
#include "platform/sim/SimDevice.h"
#include "platform/sim/SimLocationService.h"
#include "platform/sim/SimPickerMedia.h"
#include "plugin/VelqorCameraPlugin.h"

namespace velqor {

// How to set up the simulated device and the host around the plug-in.
struct DeviceConfig {
  SimDeviceState device;
  bool viewController = true;
  // Empty: the default private directory.
  std::string temporaryDirectory;
  // The user's preferred languages, "sv:fr" (colons or commas between them);
  // empty: from the locale variables.
  std::string language;
  std::optional<std::string> fileUrlPrefix;
  // Empty: the default library beside the temporary directory.
  std::string libraryDirectory;
  // What the user does in the picker, besides waiting or cancelling.
  std::optional<SimPickerChoice> pickerChoice;
  // The fixes the location service delivers, in order.
  std::vector<LocationFix> locationFixes;
  // "HOST:PORT" of a gpsd daemon to take real fixes from instead.
  std::optional<std::string> gpsd;
  // Tools that take folder names from a user (the CLI, the web host) set
  // this: the temporary and library folders then go through FolderPolicy,
  // with the record of the folders this tool made at its default place.
  bool checkFolders = false;
  // Accept an existing, non-empty folder this tool did not make.
  bool forceFolders = false;
};

// One host process's worth of runtime: the main queue, the worker pool, a
// platform thread, the simulated device, the plug-in and the host that calls
// it. The CLI, the scenario runner and end-to-end tests all drive one.
//
// Threads: created and driven on one thread, which runs the main queue.
class DeviceSession {
 public:
  static StatusOr<std::unique_ptr<DeviceSession>> create(DeviceConfig config);
  ~DeviceSession();

  HostRuntime& host() { return *host_; }
  SqlitePhotoLibrary& library() { return *library_; }
  Watchdog& watchdog() { return *watchdog_; }
  SimLocationService& location() { return *location_; }
  SimDevice& device() { return *device_; }
  VelqorCameraPlugin& plugin() { return *plugin_; }
  const PlatformServices& services() const { return services_; }
  // Why a picture could not be encoded, for the people running the device:
  // noteForAnswer(i) is the reason behind answer i of the host's answer log
  // (an image answered with an empty result), none when there is none.
  const EncodeNotes& encodeNotes() const { return *encodeNotes_; }
  std::optional<std::string> noteForAnswer(size_t index) const { return encodeNotes_->stamped(index); }

  // What the picker hands over when the user finishes it with `choice`.
  std::function<StatusOr<Dictionary>(const ImagePickerController&)> pickerInfoFor(SimPickerChoice choice) const;

  // Why the current command is still open and what would move it on; never
  // empty. Only events from index `eventsFrom` on count, so a host that runs
  // many commands passes the event count at the command's start.
  std::vector<OpenReason> openReasons(size_t eventsFrom = 0) const;
  // The same, one line each with the command-line options that act.
  std::vector<std::string> whyOpen() const;

  // Gives the plug-in a view controller to present on, or takes it away, as a
  // host can at any time; commands started afterwards see the change.
  // Main queue only.
  void setHasViewController(bool has);
  bool hasViewController() const { return config_.viewController; }
  // The user changes their preferred languages (empty: back to the ones the
  // session started with); prompts shown afterwards use them. Any thread.
  void setLanguages(std::vector<std::string> languages);
  std::vector<std::string> languages() const;

  // The strings bundle installed with the program (see ShippedData), if any.
  static std::optional<std::string> shippedBundle();

 private:
  DeviceSession() = default;

  DeviceConfig config_;
  std::shared_ptr<ManualExecutor> main_;
  std::shared_ptr<ThreadPool> pool_;
  std::shared_ptr<ThreadPool> platform_;
  std::shared_ptr<SimDevice> device_;
  std::shared_ptr<ThreadPool> locationQueue_;
  std::shared_ptr<SimLocationService> location_;
  std::shared_ptr<GpsdLocationService> gpsd_;
  std::shared_ptr<SqlitePhotoLibrary> library_;
  std::shared_ptr<LazyMediaExport> export_;
  std::shared_ptr<EncodeNotes> encodeNotes_;
  std::shared_ptr<Watchdog> watchdog_ = std::make_shared<Watchdog>();
  std::shared_ptr<LanguageSetting> languages_ = std::make_shared<LanguageSetting>();
  PlatformServices services_;
  std::unique_ptr<VelqorCameraPlugin> plugin_;
  std::unique_ptr<HostRuntime> host_;
};

}  // namespace velqor
