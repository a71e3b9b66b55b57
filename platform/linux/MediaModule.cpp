#include "platform/linux/MediaModule.h"

#include <dlfcn.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <mutex>
#include <vector>

#include "imaging/codecs/HeifCodec.h"

namespace velqor {
namespace {

std::atomic<bool> gLoaded{false};

// The directory of the program or shared library this function was linked into.
std::filesystem::path ownDirectory() {
  Dl_info info{};
  std::error_code ec;
  if (dladdr(reinterpret_cast<void*>(&ownDirectory), &info) != 0 && info.dli_fname &&
      std::filesystem::path(info.dli_fname).is_absolute()) {
    auto file = std::filesystem::canonical(info.dli_fname, ec);
    if (!ec) return file.parent_path();
  }
  auto exe = std::filesystem::read_symlink("/proc/self/exe", ec);
  return ec ? std::filesystem::path{} : exe.parent_path();
}

// Where the module may lie, in order: beside the library or program that
// loads it (an installed libvelqor_camera.so, or a program in the build
// tree), the library folder of an installed program's prefix, the prefix
// this build installs into, and the build tree.
std::vector<std::filesystem::path> searchPath() {
  std::vector<std::filesystem::path> dirs;
  if (auto own = ownDirectory(); !own.empty()) {
    dirs.push_back(own);
    dirs.push_back((own / VELQOR_LIBDIR_FROM_BINDIR).lexically_normal());
  }
  dirs.emplace_back(VELQOR_INSTALL_LIBDIR);
  dirs.emplace_back(VELQOR_MEDIA_MODULE_DIR);
  return dirs;
}

StatusOr<MediaStack*> load() {
  std::string tried;
  std::vector<std::filesystem::path> seen;
  for (const std::filesystem::path& dir : searchPath()) {
    if (std::find(seen.begin(), seen.end(), dir) != seen.end()) continue;
    seen.push_back(dir);
    const auto path = dir / MediaModule::kFileName;
    std::error_code ec;
    if (!std::filesystem::exists(path, ec)) {
      tried += (tried.empty() ? "" : ", ") + path.string();
      continue;
    }
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

namespace {

StatusOr<HeifBackend*> heifBackend() {
  ASSIGN_OR_RETURN(MediaStack * stack, MediaModule::stack());
  return stack;
}

// The image engine's HEIF codec reaches libheif through this module; it is
// installed when the program starts, before anything can decode.
[[maybe_unused]] const bool heifWired = (HeifCodec::installBackend(&heifBackend), true);

}  // namespace

}  // namespace velqor
