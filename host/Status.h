#pragma once

// The public header is the one definition; this path stays for the code inside the project.
#include "velqor/Status.h"
