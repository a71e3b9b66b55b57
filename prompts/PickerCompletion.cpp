#include "prompts/PickerCompletion.h"

#include "capture/CameraPicker.h"
#include "host/Task.h"
#include "platform/DeviceAccess.h"
#include "platform/PickerInfoKeys.h"

namespace velqor {
namespace {

void answer(PluginCore& core, const ResultPair& pair) {
  if (auto cb = core.currentCallBack.load()) pair.sendTo(*cb);
}

void endCapture(PluginCore& core) {
  core._hasPendingOperation.store(false);
  core.pickerController.store(nullptr);
}

bool isStillImage(const Dictionary& info) {
  const Value* type = find(info, PickerInfoKey::mediaType);
  const std::string* text = type ? type->asString() : nullptr;
  return text && *text == kUTTypeImage;
}

// The finish task, bound to the main queue: it awaits a result builder (which
// leaves for the worker pool) and comes back to the main queue to answer.
Task<void> finishOnMain(std::weak_ptr<PluginCore> weak, std::shared_ptr<CameraPicker> picker, Dictionary info) {
  auto core = weak.lock();
  if (!core) co_return;
  auto options = picker->pictureOptions();
  if (isStillImage(info) && options) {
    // Operands are built outside the co_await expression: g++ 12 may destroy
    // non-trivial temporaries of such an expression twice.
    auto building = core->ops().resultForImage(options, info);
    ResultPair pair = co_await std::move(building);
    co_await resumeOnMain(*core->services.mainQueue);
    // A camera photograph with location requested is answered by the deferred
    // delivery once a fix arrives: the pair is dropped unread, success or
    // failure alike, and the capture state stays for that delivery.
    if (PictureOptions::useLocationService.load() && picker->sourceType() == SourceType::camera)
      co_return;
    answer(*core, pair);
  } else {
    auto building = core->ops().resultForVideo(options, info);
    ResultPair pair = co_await std::move(building);
    co_await resumeOnMain(*core->services.mainQueue);
    answer(*core, pair);
  }
  endCapture(*core);
}

}  // namespace

std::string PickerCompletion::cancelMessage(PluginCore& core, std::int64_t source) {
  if (source == SourceType::camera) {
    if (core.services.cameraAuthorization->authorizationStatus() != AccessState::authorized)
      return "has no access to camera";
  } else if (core.services.photoLibraryAuthorization->authorizationStatus() != AccessState::authorized) {
    return "has no access to assets";
  }
  return "no image selected";
}

void PickerCompletion::imagePickerControllerDidFinishPickingMediaWithInfo(
    const std::shared_ptr<ImagePickerController>& picker, const Dictionary& info) {
  auto core = core_.lock();
  if (!core) return;
  core->services.mainQueue->post([core, picker, info] {
    auto cameraPicker = std::dynamic_pointer_cast<CameraPicker>(picker);
    if (!cameraPicker) return;
    auto presenting = picker->presentingViewController();
    if (!presenting) return;
    std::weak_ptr<PluginCore> weak = core;
    presenting->dismissViewControllerAnimated(true, [weak, info, cameraPicker] {
      auto self = weak.lock();
      if (!self) return;
      startDetached(*self->services.mainQueue, finishOnMain(weak, cameraPicker, info));
    });
  });
}

void PickerCompletion::imagePickerControllerDidCancel(const std::shared_ptr<ImagePickerController>& picker) {
  auto core = core_.lock();
  if (!core) return;
  core->services.mainQueue->post([core, picker] {
    auto presenting = picker->presentingViewController();
    if (!presenting) return;
    presenting->dismissViewControllerAnimated(true, [core, picker] {
      std::string message = cancelMessage(*core, picker->sourceType());
      if (auto cb = core->currentCallBack.load())
        cb->error(CommandStatus::NO_PERMISSION, Dictionary{{"errorMsg", Value(message)}}, false);
      endCapture(*core);
    });
  });
}

}  // namespace velqor
