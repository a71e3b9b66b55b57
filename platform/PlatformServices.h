#pragma once

#include <memory>

#include "host/CompletionMonitor.h"
#include "host/Executor.h"
#include "platform/Application.h"
#include "platform/Clock.h"
#include "platform/DeviceAccess.h"
#include "platform/ExportSession.h"
#include "imaging/ImageCodec.h"
#include "platform/LocationManager.h"
#include "platform/PhotoLibrary.h"
#include "platform/PickerSources.h"
#include "platform/ResourceBundles.h"
#include "platform/Screen.h"
#include "platform/TemporaryDirectory.h"
#include "platform/UserLocale.h"

namespace velqor {

// Every platform service the plug-in reaches, injected as one bundle. The
// default platform and the simulated device each fill it; tests fill it with
// manual executors and doubles.
//
// Threads: the bundle is immutable after the plug-in is created.
struct PlatformServices {
  // The main dispatch queue: every user-interface step and every answer of the
  // picker callbacks runs here.
  std::shared_ptr<Executor> mainQueue;
  // The asynchronous runtime's worker threads: result builders run here.
  std::shared_ptr<Executor> workerPool;
  // Told about completions called twice or never.
  std::shared_ptr<CompletionMonitor> completionMonitor;
  std::shared_ptr<const Clock> clock;
  UserLocale locale;
  // Absent only in a platform that never writes result files.
  std::shared_ptr<const TemporaryDirectory> temporaryDirectory;

  // The device: its display, picker sources, access states and prompts,
  // settings page and resource bundles.
  std::shared_ptr<Screen> screen;
  std::shared_ptr<PickerSources> pickerSources;
  std::shared_ptr<CameraAuthorization> cameraAuthorization;
  std::shared_ptr<PhotoLibraryAuthorization> photoLibraryAuthorization;
  std::shared_ptr<Application> application;
  std::shared_ptr<ResourceBundles> resourceBundles;

  // Image decoding, encoding and metadata.
  std::shared_ptr<ImageCodec> imageCodec;

  // Position fixes.
  std::shared_ptr<LocationService> locationService;

  // The photo library; absent when none could be opened.
  std::shared_ptr<PhotoLibrary> photoLibrary;

  // Movie export.
  std::shared_ptr<MediaExport> mediaExport;
};

}  // namespace velqor
