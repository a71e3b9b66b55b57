#pragma once

#include <optional>
#include <string>

#include "host/Value.h"

namespace velqor {

class ImagePickerController;

// What a picker on the simulated screen lets its user hand over, by the way it
// was set up, as the phone's picker only offers what its set-up allows: a
// photo needs "public.image" among the media types and a movie
// "public.movie" or "public.video" (so a camera set up for pictures, in photo
// mode, records no movie, and one set up for movies, in video mode, takes no
// photo); a camera picker picks nothing from the library and a library picker
// takes no new photo or movie; a crop needs editing on.
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
