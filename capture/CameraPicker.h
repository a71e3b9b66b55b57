#pragma once

#include <memory>
#include <string>

#include "capture/PictureOptions.h"
#include "platform/ImagePickerController.h"
#include "platform/PickerSources.h"

namespace velqor {

// The picker the plug-in presents: the platform picker plus the options of its
// capture, which the picker callbacks and the deferred delivery read back.
//
// Threads: created, set up and presented on the main queue.
class CameraPicker final : public ImagePickerController {
 public:
  CameraPicker(std::shared_ptr<Screen> screen, std::shared_ptr<PickerSources> sources)
      : ImagePickerController(std::move(screen)), sources_(std::move(sources)) {}

  std::string postUrl;
  bool cropToSize = false;
  std::shared_ptr<ViewController> webView;

  std::shared_ptr<PictureOptions> pictureOptions() const;

  // Configures source, editing, media types and camera from the options and
  // writes one "cameraDirection <device>" line to standard output.
  void setup(std::shared_ptr<PictureOptions> options);

  void viewWillAppear(bool animated) override;

 private:
  std::shared_ptr<PickerSources> sources_;
  mutable std::mutex optionsMutex_;
  std::shared_ptr<PictureOptions> pictureOptions_;
};

}  // namespace velqor
