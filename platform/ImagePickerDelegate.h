#pragma once

#include <memory>

#include "host/Value.h"

namespace velqor {

class ImagePickerController;

// Receives the picker's outcome: exactly one of the two calls per picker.
//
// Threads: the platform calls these on the main queue; implementations may
// not assume it and hand their work to the main queue themselves.
class ImagePickerDelegate {
 public:
  virtual ~ImagePickerDelegate() = default;
  virtual void imagePickerControllerDidFinishPickingMediaWithInfo(
      const std::shared_ptr<ImagePickerController>& picker, const Dictionary& info) = 0;
  virtual void imagePickerControllerDidCancel(const std::shared_ptr<ImagePickerController>& picker) = 0;
};

}  // namespace velqor
