#include "platform/linux/DefaultPlatform.h"

#include <thread>

#include "host/ThreadPool.h"
#include "platform/linux/LazyMediaExport.h"
#include "imaging/codecs/LinuxImageCodec.h"
#include "platform/linux/SqlitePhotoLibrary.h"
#include "platform/sim/SimDevice.h"
#include "platform/sim/SimLocationService.h"

namespace velqor {

std::shared_ptr<ManualExecutor> DefaultPlatform::mainQueue() {
  static auto queue = std::make_shared<ManualExecutor>("main");
  return queue;
}

PlatformServices DefaultPlatform::services() {
  // Process-wide, like the phone's own services: made once, shared by every
  // plug-in this process creates.
  static const PlatformServices shared = [] {
    auto pool = std::make_shared<ThreadPool>(std::max(2u, std::thread::hardware_concurrency()), "workers");
    auto platformQueue = std::make_shared<ThreadPool>(1, "platform");
    auto events = std::make_shared<SimEventLog>();
    PlatformServices s;
    s.mainQueue = mainQueue();
    s.workerPool = pool;
    s.clock = std::make_shared<SystemClock>();
    s.locale = UserLocale::fromEnvironment();
    if (auto dir = TemporaryDirectory::open(TemporaryDirectory::defaultPath()); dir.ok())
      s.temporaryDirectory = std::make_shared<const TemporaryDirectory>(*dir);
    auto device = std::make_shared<SimDevice>(SimDeviceState{}, s.mainQueue, platformQueue, events);
    device->installInto(s);
    s.imageCodec = std::make_shared<LinuxImageCodec>();
    s.locationService = std::make_shared<SimLocationService>(std::vector<LocationFix>{}, platformQueue, events);
    s.photoLibrary = SqlitePhotoLibrary::openLazily(SqlitePhotoLibrary::defaultPath());
    s.mediaExport = std::make_shared<LazyMediaExport>();
    return s;
  }();
  return shared;
}

}  // namespace velqor
