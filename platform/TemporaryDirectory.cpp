#include "platform/TemporaryDirectory.h"

#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace velqor {
namespace fs = std::filesystem;

namespace {

fs::path normalized(const std::string& path) {
  std::error_code ec;
  fs::path p = fs::absolute(path, ec);
  if (ec) p = path;
  p = p.lexically_normal();
  std::string s = p.string();
  while (s.size() > 1 && s.back() == '/') s.pop_back();
  return s;
}

bool sameFile(const fs::path& a, const fs::path& b) {
  std::error_code ec;
  if (fs::exists(a, ec) && fs::exists(b, ec)) return fs::equivalent(a, b, ec);
  return normalized(a.string()) == normalized(b.string());
}

}  // namespace

std::string TemporaryDirectory::defaultPath() {
  const char* state = std::getenv("XDG_STATE_HOME");
  if (state && *state == '/') return std::string(state) + "/velqor-camera/tmp";
  const char* home = std::getenv("HOME");
  std::string base = (home && *home) ? home : "/root";
  return base + "/.local/state/velqor-camera/tmp";
}

Status TemporaryDirectory::validate(const std::string& path) {
  if (path.empty()) return Status::invalidArgument("the temporary directory is empty");
  fs::path p = normalized(path);
  static const char* kShared[] = {"/", "/tmp", "/var/tmp", "/dev/shm", "/var", "/usr", "/etc",
                                  "/bin", "/sbin", "/lib", "/lib64", "/boot", "/dev", "/proc",
                                  "/sys", "/run", "/opt", "/srv", "/home", "/root", "/mnt",
                                  "/media"};
  for (const char* shared : kShared) {
    if (sameFile(p, shared))
      return Status::invalidArgument("refusing temporary directory " + p.string() +
                                     ": it is a shared system directory and cleanup deletes "
                                     "every entry in it");
  }
  const char* home = std::getenv("HOME");
  if (home && *home && sameFile(p, home))
    return Status::invalidArgument("refusing temporary directory " + p.string() +
                                   ": it is the home directory and cleanup deletes every entry in it");
  return Status::okStatus();
}

StatusOr<TemporaryDirectory> TemporaryDirectory::open(const std::string& path) {
  RETURN_IF_ERROR(validate(path));
  fs::path p = normalized(path);
  std::error_code ec;
  if (!fs::exists(p, ec)) {
    fs::create_directories(p, ec);
    if (ec) return Status::unavailable("cannot create temporary directory " + p.string() + ": " + ec.message());
  }
  std::string s = p.string();
  if (s.back() != '/') s.push_back('/');
  return TemporaryDirectory(s);
}

}  // namespace velqor
