#include "prompts/PermissionPrompts.h"

#include "capture/CameraPicker.h"
#include "platform/AlertController.h"

namespace velqor {
namespace {

constexpr const char* kCameraRefused = "Not have permission to use the camera.";
constexpr const char* kLibraryRefused = "has no access to PhotoLibrary.";

struct PromptTexts {
  std::string message, settings, cancel;
};

PromptTexts lookUp(PluginCore& core, const char* messageKey) {
  // Looked up every time, in this order: nothing is cached.
  PromptTexts t;
  t.message = core.ops().getLocalizingString(messageKey);
  t.settings = core.ops().getLocalizingString("SETTINGS");
  t.cancel = core.ops().getLocalizingString("CANCEL");
  return t;
}

std::optional<Url> settingsUrl(Application* application) {
  if (!application) return std::nullopt;
  return Url::fromString(application->openSettingsURLString());
}

void answerNoPermission(const std::weak_ptr<PluginCore>& weak, const char* message) {
  if (auto core = weak.lock())
    if (auto cb = core->currentCallBack.load()) cb->error(CommandStatus::NO_PERMISSION, message, false);
}

}  // namespace

void PermissionPrompts::showDenyCameraPermission(const std::shared_ptr<PluginCore>& core) {
  PromptTexts t = lookUp(*core, "CAMERA_PERMISSION_REJECT_CONFIRM");
  auto alert = std::make_shared<AlertController>(core->services.screen, "", t.message, AlertController::styleAlert);
  std::weak_ptr<AlertController> weakAlert = alert;  // the alert owns its actions
  auto application = core->services.application;
  alert->addAction({t.settings, AlertController::actionStyleDefault, [weakAlert, application] {
                      if (auto a = weakAlert.lock()) a->dismissViewControllerAnimated(true, nullptr);
                      if (auto url = settingsUrl(application.get())) application->openURL(*url);
                    }});
  std::weak_ptr<PluginCore> weakCore = core;
  alert->addAction({t.cancel, AlertController::actionStyleDefault, [weakAlert, weakCore] {
                      if (auto a = weakAlert.lock()) a->dismissViewControllerAnimated(true, nullptr);
                      answerNoPermission(weakCore, kCameraRefused);
                      if (auto c = weakCore.lock()) {
                        c->_hasPendingOperation.store(false);
                        c->pickerController.store(nullptr);
                      }
                    }});
  // Read on the calling thread, before the presentation is queued.
  auto vc = core->viewController();
  if (!vc) return;
  core->services.mainQueue->post([vc, alert] { vc->presentViewController(alert, true, nullptr); });
}

void PermissionPrompts::retryPermission(const std::shared_ptr<PluginCore>& core) {
  PromptTexts t = lookUp(*core, "PHOTOLIBRARY_PERMISSION_REJECT_CONFIRM");
  auto alert = std::make_shared<AlertController>(core->services.screen, "", t.message, AlertController::styleAlert);
  std::weak_ptr<AlertController> weakAlert = alert;
  std::weak_ptr<PluginCore> weakCore = core;
  auto application = core->services.application;
  alert->addAction({t.settings, AlertController::actionStyleDefault, [weakAlert, weakCore, application] {
                      if (auto a = weakAlert.lock()) a->dismissViewControllerAnimated(true, nullptr);
                      auto url = settingsUrl(application.get());
                      if (!url) return;
                      application->openURL(*url);
                      answerNoPermission(weakCore, kLibraryRefused);
                    }});
  alert->addAction({t.cancel, AlertController::actionStyleDefault, [weakAlert, weakCore] {
                      if (auto a = weakAlert.lock()) a->dismissViewControllerAnimated(true, nullptr);
                      answerNoPermission(weakCore, kLibraryRefused);
                    }});
  // The view controller is read inside the queued block.
  core->services.mainQueue->post([core, alert] {
    if (auto vc = core->viewController()) vc->presentViewController(alert, true, nullptr);
  });
}

}  // namespace velqor
