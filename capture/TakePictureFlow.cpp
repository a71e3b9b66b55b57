#include "capture/TakePictureFlow.h"

#include "capture/CameraPicker.h"
#include "host/VLog.h"
#include "platform/DeviceAccess.h"

namespace velqor {
namespace {

constexpr int kSourceCheckLogLine = 118;
constexpr const char* kSourceUnavailable = "Camera disabled device";
constexpr const char* kLibraryRefused = "has no access to PhotoLibrary";
constexpr const char* kMediaTypeUnsupported = "Not supported mediaType";

}  // namespace

void TakePictureFlow::takePicture(const std::shared_ptr<PluginCore>& core, std::shared_ptr<CallBackManager> cb) {
  core->services.mainQueue->post([core, cb = std::move(cb)] { onMain(core, cb); });
}

void TakePictureFlow::onMain(const std::shared_ptr<PluginCore>& core, const std::shared_ptr<CallBackManager>& cb) {
  core->_hasPendingOperation.store(true);
  core->currentCallBack.store(cb);  // the previous command is left unanswered
  auto options = PictureOptions::createFromTakePictureArguments(*cb);
  options->cropToSize = false;

  const std::int64_t source = options->sourceType.value_or(SourceType::camera);
  if (!core->services.pickerSources || !core->services.pickerSources->isSourceTypeAvailable(source)) {
    VLog::error("", "Camera.getPicture: source type " + sourceTypeText(source) + " not available.",
                kPluginSourceFile, kSourceCheckLogLine, "takePicture(_:)");
    cb->error(CommandStatus::OBJECT_REFERENCE_FAILED, kSourceUnavailable, false);
    return;
  }

  if (!options->sourceType || *options->sourceType == SourceType::camera) {
    checkCameraAccess(core, std::move(options));
  } else if (*options->sourceType == SourceType::photoLibrary ||
             *options->sourceType == SourceType::savedPhotosAlbum) {
    checkLibraryAccess(core, std::move(options), cb);
  }
  // Any other available source: nothing more happens.
}

void TakePictureFlow::checkCameraAccess(const std::shared_ptr<PluginCore>& core,
                                        std::shared_ptr<PictureOptions> options) {
  auto& access = *core->services.cameraAuthorization;
  switch (access.authorizationStatus()) {
    case AccessState::restricted:
    case AccessState::denied:
      core->ops().showDenyCameraPermission();
      return;
    case AccessState::notDetermined: {
      std::weak_ptr<PluginCore> weak = core;
      access.requestAccess([weak, options](bool granted) {
        auto self = weak.lock();
        if (!self) return;
        if (granted) {
          self->ops().addCameraVC(options);
        } else {
          self->ops().showDenyCameraPermission();
        }
      });
      return;
    }
    case AccessState::authorized:
      core->ops().addCameraVC(std::move(options));
      return;
    default:
      return;
  }
}

void TakePictureFlow::checkLibraryAccess(const std::shared_ptr<PluginCore>& core,
                                         std::shared_ptr<PictureOptions> options,
                                         std::shared_ptr<CallBackManager> cb) {
  switch (core->services.photoLibraryAuthorization->authorizationStatus()) {
    case AccessState::restricted:
    case AccessState::denied:
      // No permission delegate is ever set, so the user is prompted.
      core->ops().retryPermission();
      return;
    case AccessState::authorized:
      core->ops().addCameraVC(std::move(options));
      return;
    case AccessState::notDetermined:
      core->services.mainQueue->post([core, options, cb] {
        std::weak_ptr<PluginCore> weak = core;
        core->services.photoLibraryAuthorization->requestAuthorization(
            [weak, options, cb](std::int64_t status) {
              if (status == AccessState::restricted || status == AccessState::denied) {
                VLog::debug("PHAuthorization denied or restricted");
                cb->error(CommandStatus::NO_PERMISSION, kLibraryRefused, false);
              } else if (status == AccessState::authorized) {
                VLog::debug("PHAuthorization Authorized");
                if (auto self = weak.lock()) self->ops().addCameraVC(options);
              }
            });
      });
      return;
    default:
      // Limited access or an unknown state: the command stays open.
      return;
  }
}

void TakePictureFlow::addCameraVC(const std::shared_ptr<PluginCore>& core, std::shared_ptr<PictureOptions> options) {
  if (options->sourceType == SourceType::camera && options->mediaType == MediaType::mediaTypeAll) {
    if (auto cb = core->currentCallBack.load()) cb->error(CommandStatus::INVALID_PARAM, kMediaTypeUnsupported, false);
    return;
  }
  core->services.mainQueue->post([core, options] {
    auto picker = std::make_shared<CameraPicker>(core->services.screen, core->services.pickerSources);
    picker->setup(options);
    picker->setDelegate(core->ops().pickerDelegate());
    picker->setModalPresentationStyle(0);  // full screen
    core->pickerController.store(picker);
    auto vc = core->viewController();
    if (!vc) return;
    vc->presentViewController(picker, true, [core] { core->_hasPendingOperation.store(false); });
  });
}

}  // namespace velqor
