#pragma once

#include <memory>

#include "platform/ImagePickerDelegate.h"
#include "core/PluginCore.h"

namespace velqor {

class CameraPicker;

// The plug-in as the picker's delegate: dismisses the picker, has the result
// built, answers the current command once the picker has left the screen, and
// ends the capture. A camera photograph taken while location is requested is
// left open for the deferred delivery.
//
// Threads: the callbacks may be entered on any thread; all their work runs on
// the main queue, and the finish task is bound to it (the result builders
// themselves run on the worker pool).
class PickerCompletion final : public ImagePickerDelegate {
 public:
  explicit PickerCompletion(std::weak_ptr<PluginCore> core) : core_(std::move(core)) {}

  void imagePickerControllerDidFinishPickingMediaWithInfo(const std::shared_ptr<ImagePickerController>& picker,
                                                          const Dictionary& info) override;
  void imagePickerControllerDidCancel(const std::shared_ptr<ImagePickerController>& picker) override;

  // The cancel message for a picker of that source, by the access state now.
  static std::string cancelMessage(PluginCore& core, std::int64_t source);

 private:
  std::weak_ptr<PluginCore> core_;
};

}  // namespace velqor
