#include "platform/linux/DefaultPlatform.h"

#include <thread>

#include "host/ThreadPool.h"

namespace velqor {

std::shared_ptr<ManualExecutor> DefaultPlatform::mainQueue() {
  static auto queue = std::make_shared<ManualExecutor>("main");
  return queue;
}

PlatformServices DefaultPlatform::services() {
  static auto pool = std::make_shared<ThreadPool>(
      std::max(2u, std::thread::hardware_concurrency()), "workers");
  PlatformServices s;
  s.mainQueue = mainQueue();
  s.workerPool = pool;
  s.clock = std::make_shared<SystemClock>();
  s.locale = UserLocale::fromEnvironment();
  auto dir = TemporaryDirectory::open(TemporaryDirectory::defaultPath());
  if (dir.ok()) s.temporaryDirectory = std::make_shared<const TemporaryDirectory>(*dir);
  return s;
}

}  // namespace velqor
