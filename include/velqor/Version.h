#pragma once

namespace velqor {

// The library's exported version data.
extern const char VelqorCameraVersionString[];
extern const double VelqorCameraVersionNumber;

}  // namespace velqor
