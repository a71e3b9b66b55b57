#include "platform/SharedFolders.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <string>
#include <system_error>

namespace velqor {
namespace fs = std::filesystem;

namespace {

// Shared folders that are refused themselves; what lies below them is free.
constexpr std::array kSharedFolders{"/", "/tmp", "/var/tmp", "/dev/shm", "/home", "/mnt", "/media", "/root"};
// System trees: refused with everything below them, except the scratch folders.
constexpr std::array kSystemTrees{"/bin", "/boot", "/dev",  "/etc", "/lib",  "/lib32", "/lib64", "/libx32",
                                  "/opt", "/proc", "/run",  "/sbin", "/srv", "/sys",   "/usr",   "/var"};
constexpr std::array kScratchBelowSystem{"/var/tmp", "/dev/shm"};

fs::path absoluteOf(std::string_view path) {
  std::error_code ec;
  fs::path p = fs::absolute(fs::path(path), ec);
  return ec ? fs::path(path) : p;
}

Status refusedAs(const std::string& path, const std::string& why) {
  return Status::invalidArgument("refusing folder " + path + ": " + why);
}

Status checkOnePath(const std::string& p) {
  for (const char* shared : kSharedFolders)
    if (p == shared) return refusedAs(p, "it is a shared system folder");
  for (const char* tree : kSystemTrees) {
    if (!SharedFolders::atOrBelow(p, tree)) continue;
    const bool scratch = std::any_of(kScratchBelowSystem.begin(), kScratchBelowSystem.end(),
                                     [&](const char* s) { return SharedFolders::atOrBelow(p, s) && p != s; });
    if (!scratch) return refusedAs(p, std::string("it is in the system tree ") + tree);
  }
  const char* home = std::getenv("HOME");
  if (home && *home == '/') {
    const std::string h = SharedFolders::plain(SharedFolders::resolve(home));
    if (SharedFolders::atOrBelow(h, p)) return refusedAs(p, "it is the home folder or holds it");
  }
  return Status::okStatus();
}

}  // namespace

std::string SharedFolders::plain(const fs::path& p) {
  std::string s = p.lexically_normal().string();
  while (s.size() > 1 && s.back() == '/') s.pop_back();
  return s;
}

bool SharedFolders::atOrBelow(const std::string& path, const std::string& root) {
  if (root == "/") return true;
  return path.compare(0, root.size(), root) == 0 && (path.size() == root.size() || path[root.size()] == '/');
}

fs::path SharedFolders::resolve(std::string_view path) {
  std::error_code ec;
  fs::path abs = absoluteOf(path).lexically_normal();
  fs::path resolved = fs::weakly_canonical(abs, ec);
  return ec ? abs : resolved;
}

Status SharedFolders::refuse(std::string_view path) {
  if (path.empty()) return Status::invalidArgument("a folder name is empty");
  if (path.find('\0') != std::string_view::npos) return Status::invalidArgument("a folder name holds a NUL byte");
  RETURN_IF_ERROR(checkOnePath(plain(absoluteOf(path))));
  return checkOnePath(plain(resolve(path)));
}

}  // namespace velqor
