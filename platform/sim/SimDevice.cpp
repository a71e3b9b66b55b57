#include "platform/sim/SimDevice.h"

#include <algorithm>
#include <filesystem>

#include "platform/PickerInfoKeys.h"

#include "platform/AlertController.h"
#include "platform/ImagePickerController.h"
#include "platform/sim/SimLibraryAccess.h"
#include "platform/sim/SimPickerRules.h"

namespace velqor {

nlohmann::ordered_json SimDevice::describe(const ViewController& vc) {
  nlohmann::ordered_json e;
  if (auto* picker = dynamic_cast<const ImagePickerController*>(&vc)) {
    e["event"] = "pickerPresented";
    e["source"] = picker->sourceType();
    e["mediaTypes"] = picker->mediaTypes();
    e["captureMode"] = picker->cameraCaptureMode();
    e["cameraDevice"] = picker->cameraDevice();
    e["allowsEditing"] = picker->allowsEditing();
    e["presentationStyle"] = picker->modalPresentationStyle();
  } else if (auto* alert = dynamic_cast<const AlertController*>(&vc)) {
    e["event"] = "alertShown";
    e["title"] = alert->title();
    e["message"] = alert->message();
    e["style"] = alert->preferredStyle();
    auto buttons = nlohmann::ordered_json::array();
    auto styles = nlohmann::ordered_json::array();
    for (const auto& a : alert->actions()) {
      buttons.push_back(a.title);
      styles.push_back(AlertController::actionStyleName(a.style));
    }
    e["buttons"] = buttons;
    e["buttonStyles"] = styles;  // one per button, in the same order
  } else {
    e["event"] = "presented";
    e["kind"] = vc.kindName();
  }
  return e;
}

SimDevice::SimDevice(SimDeviceState state, std::shared_ptr<Executor> mainQueue,
                     std::shared_ptr<Executor> platformQueue, std::shared_ptr<SimEventLog> events)
    : state_(std::move(state)),
      main_(std::move(mainQueue)),
      platform_(std::move(platformQueue)),
      events_(events ? std::move(events) : std::make_shared<SimEventLog>()) {}

std::shared_ptr<ViewController> SimDevice::makeRootViewController() {
  auto root = std::make_shared<ViewController>(shared_from_this());
  std::lock_guard lock(mutex_);
  stack_.insert(stack_.begin(), root);
  return root;
}

void SimDevice::installInto(PlatformServices& s) {
  auto self = shared_from_this();
  s.screen = self;
  s.pickerSources = self;
  s.cameraAuthorization = self;
  s.photoLibraryAuthorization = std::make_shared<SimLibraryAccess>(self);
  s.application = self;
  s.resourceBundles = self;
}

SimDeviceState SimDevice::state() const {
  std::lock_guard lock(mutex_);
  return state_;
}

void SimDevice::setState(SimDeviceState state) {
  std::lock_guard lock(mutex_);
  state_ = std::move(state);
}

void SimDevice::present(const std::shared_ptr<ViewController>& presenter,
                        const std::shared_ptr<ViewController>& presented, bool animated,
                        UniqueFunction<void()> completion) {
  // The transition ends on a later turn of the main queue, as an animation would.
  main_->post([self = shared_from_this(), presenter, presented, animated,
               completion = std::move(completion)]() mutable {
    if (presenter->presentedViewController()) {
      // A controller that already presents another cannot present a second one.
      self->events_->record({{"event", "presentationRefused"}, {"kind", presented->kindName()}});
      return;
    }
    presenter->setPresented(presented);
    presented->setPresenting(presenter);
    {
      std::lock_guard lock(self->mutex_);
      self->stack_.push_back(presented);
      if (std::dynamic_pointer_cast<ImagePickerController>(presented)) self->pickerRefusal_.reset();
    }
    presented->viewWillAppear(animated);
    self->events_->record(describe(*presented));
    if (completion) completion();
    self->main_->post([self, presented] { self->userActs(presented); });
  });
}

void SimDevice::dismiss(const std::shared_ptr<ViewController>& presenter,
                        const std::shared_ptr<ViewController>& presented, bool,
                        UniqueFunction<void()> completion) {
  main_->post([self = shared_from_this(), presenter, presented, completion = std::move(completion)]() mutable {
    if (presenter->presentedViewController() == presented) presenter->setPresented(nullptr);
    presented->setPresenting(nullptr);
    {
      std::lock_guard lock(self->mutex_);
      std::erase_if(self->stack_, [&](const std::weak_ptr<ViewController>& vc) {
        auto alive = vc.lock();
        return !alive || alive == presented;
      });
    }
    self->events_->record({{"event", presented->kindName() + "Dismissed"}});
    if (completion) completion();
  });
}

void SimDevice::userActs(const std::shared_ptr<ViewController>& appeared) {
  auto s = state();
  if (std::dynamic_pointer_cast<AlertController>(appeared)) {
    if (s.alertTap) tapAlertButton(*s.alertTap);
  } else if (std::dynamic_pointer_cast<ImagePickerController>(appeared)) {
    if (s.pickerChoice == SimDeviceState::PickerChoice::cancel) cancelPicker();
    if (s.pickerChoice == SimDeviceState::PickerChoice::finish) finishPicker();
  }
}

std::vector<std::shared_ptr<ViewController>> SimDevice::onScreen() const {
  std::lock_guard lock(mutex_);
  std::vector<std::shared_ptr<ViewController>> shown;
  for (size_t i = 1; i < stack_.size(); ++i)
    if (auto vc = stack_[i].lock()) shown.push_back(std::move(vc));
  return shown;
}

bool SimDevice::tapAlertButton(const std::string& which) {
  std::shared_ptr<AlertController> alert;
  for (auto& vc : onScreen())
    if (auto a = std::dynamic_pointer_cast<AlertController>(vc)) alert = a;
  if (!alert) return false;
  const auto& actions = alert->actions();
  const AlertController::Action* chosen = nullptr;
  for (const auto& a : actions)
    if (a.title == which) chosen = &a;
  if (!chosen && which == "settings" && !actions.empty()) chosen = &actions[0];
  if (!chosen && which == "cancel" && actions.size() > 1) chosen = &actions[1];
  if (!chosen) return false;
  events_->record({{"event", "alertTapped"}, {"button", chosen->title}});
  // Alert actions are delivered on the main queue.
  main_->post([handler = chosen->handler] {
    if (handler) handler();
  });
  return true;
}

bool SimDevice::finishPicker() {
  std::shared_ptr<ImagePickerController> picker;
  for (auto& vc : onScreen())
    if (auto p = std::dynamic_pointer_cast<ImagePickerController>(vc)) picker = p;
  if (!picker) return false;
  {
    std::lock_guard lock(mutex_);
    pickerRefusal_.reset();
  }
  auto s = state();
  if (!s.makePickerInfo) return false;
  auto info = s.makePickerInfo(*picker);
  if (!info.ok()) {
    events_->record({{"event", "pickerFailed"}, {"error", info.status().message()}});
    return false;
  }
  if (auto why = SimPickerRules::refusal(*picker, *info)) {
    // The phone's picker would not have offered this: it stays on the screen.
    {
      std::lock_guard lock(mutex_);
      pickerRefusal_ = *why;
    }
    events_->record({{"event", "pickerRefused"}, {"reason", *why}});
    discardPickerMovie(*info);
    return false;
  }
  events_->record(finishedEvent(*picker, *info));
  if (auto delegate = picker->delegate()) delegate->imagePickerControllerDidFinishPickingMediaWithInfo(picker, *info);
  return true;
}

nlohmann::ordered_json SimDevice::finishedEvent(const ImagePickerController& picker, const Dictionary& info) {
  nlohmann::ordered_json e{{"event", "pickerFinished"}};
  const Value* type = find(info, PickerInfoKey::mediaType);
  if (type && type->asString()) e["mediaType"] = *type->asString();
  if (picker.sourceType() == SourceType::camera) {
    e["cameraDevice"] = SimPickerRules::deviceName(picker.cameraDevice());
    e["captureMode"] = SimPickerRules::captureModeName(picker.cameraCaptureMode());
  }
  return e;
}

void SimDevice::discardPickerMovie(const Dictionary& info) {
  // The movie copy made for the hand-over is the picker's own file; a refused
  // hand-over leaves nothing behind in the temporary directory.
  const Value* media = find(info, PickerInfoKey::mediaURL);
  if (const Url* url = media ? media->asUrl() : nullptr; url && url->isFileUrl()) {
    std::error_code ec;
    std::filesystem::remove(url->path(), ec);
  }
}

std::optional<std::string> SimDevice::pickerRefusal() const {
  std::lock_guard lock(mutex_);
  return pickerRefusal_;
}

bool SimDevice::cancelPicker() {
  std::shared_ptr<ImagePickerController> picker;
  for (auto& vc : onScreen())
    if (auto p = std::dynamic_pointer_cast<ImagePickerController>(vc)) picker = p;
  if (!picker) return false;
  events_->record({{"event", "pickerCancelled"}});
  if (auto delegate = picker->delegate()) delegate->imagePickerControllerDidCancel(picker);
  return true;
}

bool SimDevice::isSourceTypeAvailable(std::int64_t source) {
  std::lock_guard lock(mutex_);
  return state_.availableSources.count(source) > 0;
}

std::optional<std::vector<std::string>> SimDevice::availableMediaTypesForSourceType(std::int64_t source) {
  if (!isSourceTypeAvailable(source)) return std::nullopt;
  if (source == SourceType::camera) return std::vector<std::string>{kUTTypeImage, kUTTypeMovie};
  return std::vector<std::string>{kUTTypeImage, kUTTypeMovie};
}

std::int64_t SimDevice::cameraStatus() {
  std::lock_guard lock(mutex_);
  return state_.cameraAccess;
}

std::int64_t SimDevice::libraryStatus() {
  std::lock_guard lock(mutex_);
  return state_.libraryAccess;
}

void SimDevice::requestAccess(UniqueFunction<void(bool)> completion) {
  events_->record({{"event", "permissionRequested"}, {"kind", "camera"}});
  platform_->post([self = shared_from_this(), completion = std::move(completion)]() mutable {
    bool granted;
    {
      std::lock_guard lock(self->mutex_);
      granted = self->state_.cameraRequestGranted;
      self->state_.cameraAccess = granted ? AccessState::authorized : AccessState::denied;
    }
    self->events_->record({{"event", "permissionAnswered"}, {"kind", "camera"}, {"granted", granted}});
    completion(granted);
  });
}

void SimDevice::requestAuthorization(UniqueFunction<void(std::int64_t)> handler) {
  events_->record({{"event", "permissionRequested"}, {"kind", "photoLibrary"}});
  platform_->post([self = shared_from_this(), handler = std::move(handler)]() mutable {
    std::int64_t answer;
    {
      std::lock_guard lock(self->mutex_);
      answer = self->state_.libraryRequestAnswer;
      self->state_.libraryAccess = answer;
    }
    self->events_->record({{"event", "permissionAnswered"}, {"kind", "photoLibrary"}, {"status", answer}});
    handler(answer);
  });
}

std::string SimDevice::openSettingsURLString() {
  std::lock_guard lock(mutex_);
  // A string that does not form a URL stands for a device without a settings page.
  return state_.settingsUrlAvailable ? "app-settings:" : "app settings";
}

void SimDevice::openURL(const Url& url) {
  events_->record({{"event", "settingsOpened"}, {"url", url.absoluteString()}});
}

std::optional<std::string> SimDevice::pathForResource(const std::string& name, const std::string& type) {
  std::lock_guard lock(mutex_);
  if (name != "Velqor" || type != "bundle") return std::nullopt;
  return state_.bundlePath;
}

std::vector<OpenReason> SimDevice::waitingOn() const {
  std::vector<OpenReason> out;
  for (const auto& vc : onScreen()) {
    if (auto alert = std::dynamic_pointer_cast<AlertController>(vc)) {
      out.push_back({"an alert is on the screen waiting for a tap (message: \"" + alert->message() + "\")",
                     OpenReason::NextStep::tapAlert});
    } else if (std::dynamic_pointer_cast<ImagePickerController>(vc)) {
      // The picker keeps what it cannot or will not hand over, as the phone's does.
      std::string failed;
      for (const auto& e : events_->events())
        if (e["event"] == "pickerFailed") failed = e.value("error", "");
      std::string why = "the picker is on the screen waiting for the user";
      if (auto refused = pickerRefusal())
        why = "the picker refused what the user chose (" + *refused + ") and is still on the screen";
      else if (!failed.empty())
        why = "the picker could not take the user's choice (" + failed + ") and is still on the screen";
      out.push_back({why, OpenReason::NextStep::finishPicker});
    }
  }
  return out;
}

std::vector<std::string> SimDevice::waitingFor() const {
  std::vector<std::string> out;
  for (const auto& reason : waitingOn()) out.push_back(reason.forCommandLine());
  return out;
}

}  // namespace velqor
