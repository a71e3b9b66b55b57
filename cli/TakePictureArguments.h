#pragma once

namespace velqor::cli {

// The thirteen positional takePicture arguments, as `take-picture --help` shows them.
inline constexpr const char* kTakePictureArguments =
    "takePicture arguments (--args, a JSON array by index; an argument that is missing\n"
    "or of another type takes the default):\n"
    "  index  name                type     default  values\n"
    "  0      quality             integer  50       JPEG quality, 0-100\n"
    "  1      destinationType     integer  2        0 data URL, 1 file URI, 2 library URI\n"
    "  2      sourceType          integer  1        0 photo library, 1 camera, 2 saved photos album\n"
    "  3      targetWidth         float    none     fit inside width x height (needs index 4)\n"
    "  4      targetHeight        float    none     read only when index 3 is a number\n"
    "  5      encodingType        integer  0        0 JPEG, 1 PNG\n"
    "  6      mediaType           integer  0        0 picture, 1 video, 2 all (refused for the camera)\n"
    "  7      allowsEditing       Boolean  false    the picker offers a crop\n"
    "  8      correctOrientation  Boolean  false    turn the pixels upright\n"
    "  9      saveToPhotoAlbum    Boolean  false    also save the result to the photo library\n"
    "  10     (not read)          -        -        -\n"
    "  11     cameraDirection     Boolean  false    false rear camera, true front camera\n"
    "  12     usesGeolocation     Boolean  false    write a location fix into a camera JPEG\n"
    "Example: --args '[80, 1, 1, 1024, 768, 0, 0, false, true, false, null, false, false]'";

}  // namespace velqor::cli
