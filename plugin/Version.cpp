#include "plugin/Version.h"

namespace velqor {

const char VelqorCameraVersionString[] = "@(#)PROGRAM:VelqorCamera  PROJECT:VelqorCamera-9.2.1.0";
const double VelqorCameraVersionNumber = 0;

}  // namespace velqor
