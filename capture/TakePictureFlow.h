#pragma once

#include <memory>

#include "capture/PictureOptions.h"
#include "host/CallBackManager.h"
#include "core/PluginCore.h"

namespace velqor {

// Carries a takePicture command from the host's call to the picker on the
// screen: current callback, options, source check, camera or photo-library
// permission (asking the first time, prompting when refused), the media-type
// check, then the picker's creation, set-up and presentation.
//
// Threads: `takePicture` from any thread (it moves to the main queue at once);
// `addCameraVC` from any thread (its media-type check runs on the caller's
// thread, its picker work on the main queue).
class TakePictureFlow {
 public:
  static void takePicture(const std::shared_ptr<PluginCore>& core, std::shared_ptr<CallBackManager> cb);
  static void addCameraVC(const std::shared_ptr<PluginCore>& core, std::shared_ptr<PictureOptions> options);

 private:
  static void onMain(const std::shared_ptr<PluginCore>& core, const std::shared_ptr<CallBackManager>& cb);
  static void checkCameraAccess(const std::shared_ptr<PluginCore>& core, std::shared_ptr<PictureOptions> options);
  static void checkLibraryAccess(const std::shared_ptr<PluginCore>& core, std::shared_ptr<PictureOptions> options,
                                 std::shared_ptr<CallBackManager> cb);
};

}  // namespace velqor
