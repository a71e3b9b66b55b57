#include "session/ShippedData.h"

#include <dlfcn.h>

#include <cstdlib>
#include <filesystem>

namespace velqor {
namespace fs = std::filesystem;

namespace {

// The file of the module (program or shared library) this code was linked into.
fs::path thisModule() {
  Dl_info info{};
  if (::dladdr(reinterpret_cast<void*>(&ShippedData::searchPath), &info) != 0 && info.dli_fname &&
      fs::path(info.dli_fname).is_absolute())
    return info.dli_fname;
  std::error_code ec;
  auto exe = fs::read_symlink("/proc/self/exe", ec);
  return ec ? fs::path() : exe;
}

fs::path executableFolder() {
  std::error_code ec;
  auto exe = fs::read_symlink("/proc/self/exe", ec);
  return ec ? fs::path() : exe.parent_path();
}

}  // namespace

std::vector<std::string> ShippedData::searchPath() {
  std::vector<std::string> folders;
  if (const char* env = std::getenv(kEnvironmentVariable); env && *env) folders.emplace_back(env);
  if (fs::path module = thisModule(); !module.empty()) {
    folders.push_back((module.parent_path() / VELQOR_DATADIR_FROM_BINDIR).lexically_normal().string());
    folders.push_back((module.parent_path() / VELQOR_DATADIR_FROM_LIBDIR).lexically_normal().string());
  }
  folders.emplace_back(VELQOR_INSTALL_DATADIR);
  if (fs::path exe = executableFolder(); !exe.empty()) folders.push_back(exe.string());
  return folders;
}

std::optional<std::string> ShippedData::find(const std::string& entry) {
  for (const auto& folder : searchPath()) {
    std::error_code ec;
    fs::path candidate = fs::path(folder) / entry;
    if (fs::is_directory(candidate, ec)) return candidate.string();
  }
  return std::nullopt;
}

}  // namespace velqor
