#pragma once

namespace velqor {

/// The library's exported version data: the version string
/// ("@(#)PROGRAM:VelqorCamera  PROJECT:VelqorCamera-9.2.1.0") and number.
///
/// Threads: constants, readable from any thread.
extern const char VelqorCameraVersionString[];
extern const double VelqorCameraVersionNumber;

}  // namespace velqor
