#pragma once

#include <optional>
#include <string>

#include "host/Value.h"

namespace velqor {

class ImagePickerController;

// What a picker on the simulated screen lets its user hand over, by the way it
// was set up, as the phone's picker only offers what its set-up allows: a
// camera picker takes a new photo in photo mode or records a movie in video
// mode and picks nothing from the library; a library picker only picks; a
// photo needs "public.image" among the media types and a movie
// "public.movie" or "public.video"; a crop needs editing on.
//
// Threads: any; pure.
class SimPickerRules {
 public:
  // Why the picker refuses to hand over `info`, in one sentence for the user;
  // none when it accepts it. An info without a media type is not judged.
  static std::optional<std::string> refusal(const ImagePickerController& picker, const Dictionary& info);
  // What the capture used, for the event log: "rear"/"front" and "photo"/"video".
  static std::string deviceName(std::int64_t cameraDevice);
  static std::string captureModeName(std::int64_t captureMode);
};

}  // namespace velqor
