#pragma once

/// @file
/// Everything an embedding program needs: the session, the plug-in object,
/// the scenario player, the host's statuses and logger, and the version.

#include "velqor/CameraPlugin.h"
#include "velqor/CameraSession.h"
#include "velqor/CommandAnswer.h"
#include "velqor/CommandStatus.h"
#include "velqor/DeviceSetup.h"
#include "velqor/ScenarioPlayer.h"
#include "velqor/Status.h"
#include "velqor/StatusOr.h"
#include "velqor/VLog.h"
#include "velqor/Version.h"
