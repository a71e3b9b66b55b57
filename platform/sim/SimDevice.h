#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "host/Executor.h"
#include "platform/Application.h"
#include "platform/DeviceAccess.h"
#include "platform/PickerSources.h"
#include "platform/PlatformServices.h"
#include "platform/ResourceBundles.h"
#include "platform/Screen.h"
#include "platform/ViewController.h"
#include "platform/sim/OpenReason.h"
#include "platform/sim/SimDeviceState.h"
#include "platform/sim/SimEvent.h"

namespace velqor {

// The simulated phone: its display, picker sources, access prompts, settings
// page and resource bundles, and the scripted user who acts on what appears.
// Presentations and dismissals complete on the main queue; permission answers
// arrive on the platform executor, never the main one.
//
// Threads: every operation may be called from any thread; user-interface work
// runs on the main queue.
class SimDevice final : public Screen,
                        public PickerSources,
                        public CameraAuthorization,
                        public Application,
                        public ResourceBundles,
                        public std::enable_shared_from_this<SimDevice> {
 public:
  SimDevice(SimDeviceState state, std::shared_ptr<Executor> mainQueue,
            std::shared_ptr<Executor> platformQueue, std::shared_ptr<SimEventLog> events);

  // The host's root view controller on this device.
  std::shared_ptr<ViewController> makeRootViewController();

  // Screen
  void present(const std::shared_ptr<ViewController>& presenter, const std::shared_ptr<ViewController>& presented,
               bool animated, UniqueFunction<void()> completion) override;
  void dismiss(const std::shared_ptr<ViewController>& presenter, const std::shared_ptr<ViewController>& presented,
               bool animated, UniqueFunction<void()> completion) override;
  // PickerSources
  bool isSourceTypeAvailable(std::int64_t source) override;
  std::optional<std::vector<std::string>> availableMediaTypesForSourceType(std::int64_t source) override;
  // CameraAuthorization / PhotoLibraryAuthorization
  std::int64_t authorizationStatus() override { return cameraStatus(); }
  std::int64_t cameraStatus();
  std::int64_t libraryStatus();
  void requestAccess(UniqueFunction<void(bool)> completion) override;
  void requestAuthorization(UniqueFunction<void(std::int64_t)> handler);
  // Application
  std::string openSettingsURLString() override;
  void openURL(const Url& url) override;
  // ResourceBundles
  std::optional<std::string> pathForResource(const std::string& name, const std::string& type) override;

  // The user taps an alert's button (by title, or "settings"/"cancel" for the
  // first/second button). False when no alert is on the screen or no such button.
  bool tapAlertButton(const std::string& which);
  // The user finishes or cancels the picker on the screen. False when none is,
  // when the user's choice cannot be made, or when the picker's set-up refuses
  // it (SimPickerRules): then the picker stays on the screen, the refusal is
  // logged as a "pickerRefused" event and kept in `pickerRefusal`.
  bool finishPicker();
  bool cancelPicker();

  // Why the picker on the screen refused the user's last choice; none when
  // that choice was not refused.
  std::optional<std::string> pickerRefusal() const;

  // A screen as the user sees it: a picker's configuration or an alert's
  // title, message, buttons and their action styles ("buttonStyles":
  // "default"/"cancel", one per button), under an "event" key naming it.
  static nlohmann::ordered_json describe(const ViewController& vc);

  // What is on the screen now, topmost last.
  std::vector<std::shared_ptr<ViewController>> onScreen() const;
  // What on the screen waits for the user (an alert's tap, the picker); empty
  // when nothing does.
  std::vector<OpenReason> waitingOn() const;
  // The same, one command-line line each.
  std::vector<std::string> waitingFor() const;

  // Makes this device the services' screen, picker sources, access prompts,
  // settings page and resource bundles.
  void installInto(PlatformServices& services);

  SimDeviceState state() const;
  void setState(SimDeviceState state);
  const std::shared_ptr<SimEventLog>& events() const { return events_; }

 private:
  void userActs(const std::shared_ptr<ViewController>& appeared);
  static nlohmann::ordered_json finishedEvent(const ImagePickerController& picker, const Dictionary& info);
  static void discardPickerMovie(const Dictionary& info);

  mutable std::mutex mutex_;
  SimDeviceState state_;
  std::shared_ptr<Executor> main_;
  std::shared_ptr<Executor> platform_;
  std::shared_ptr<SimEventLog> events_;
  // What is on the screen, root first. Held weakly: the host owns its root
  // view controller and each presenter its presented one, and every view
  // controller holds this device as its screen, so a strong link here would
  // keep the whole screen alive forever.
  std::vector<std::weak_ptr<ViewController>> stack_;
  std::optional<std::string> pickerRefusal_;
};

}  // namespace velqor
