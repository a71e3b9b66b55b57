#include "platform/linux/MediaModule.h"

#include <dlfcn.h>

#include <atomic>
#include <filesystem>
#include <mutex>

namespace velqor {
namespace {

std::atomic<bool> gLoaded{false};

// The directory of the file this function was linked into.
std::filesystem::path ownDirectory() {
  Dl_info info{};
  if (dladdr(reinterpret_cast<void*>(&ownDirectory), &info) == 0 || !info.dli_fname) return {};
  std::error_code ec;
  auto file = std::filesystem::canonical(info.dli_fname, ec);
  if (ec) file = std::filesystem::read_symlink("/proc/self/exe", ec);
  return ec ? std::filesystem::path{} : file.parent_path();
}

StatusOr<MediaStack*> load() {
  std::string tried;
  for (const std::filesystem::path& dir : {ownDirectory(), std::filesystem::path(VELQOR_MEDIA_MODULE_DIR)}) {
    if (dir.empty()) continue;
    const auto path = dir / MediaModule::kFileName;
    // Local symbols: the module's copies of shared code never replace the process's.
    void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!handle) {
      const char* why = dlerror();
      tried += (tried.empty() ? "" : "; ") + (why ? std::string(why) : path.string());
      continue;
    }
    auto entry = reinterpret_cast<MediaStackEntry>(dlsym(handle, kMediaStackEntry));
    if (!entry) return Status::unavailable(path.string() + " has no " + kMediaStackEntry);
    gLoaded = true;
    return entry();
  }
  return Status::unavailable("the movie and HEIF libraries could not be loaded (" + tried + ")");
}

}  // namespace

StatusOr<MediaStack*> MediaModule::stack() {
  static const StatusOr<MediaStack*> loadedStack = load();
  return loadedStack;
}

bool MediaModule::loaded() { return gLoaded; }

}  // namespace velqor
