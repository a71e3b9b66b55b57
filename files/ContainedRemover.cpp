#include "files/ContainedRemover.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <sstream>
#include <vector>

#include "host/UniqueFd.h"

namespace velqor {
namespace {

int removeTree(int parentFd, const std::string& name) {
  UniqueFd fd(::openat(parentFd, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (!fd.valid()) return errno;
  std::vector<std::string> names;
  {
    int dupFd = ::dup(fd.get());
    if (dupFd < 0) return errno;
    DIR* dir = ::fdopendir(dupFd);
    if (!dir) {
      int err = errno;
      ::close(dupFd);
      return err;
    }
    while (dirent* e = ::readdir(dir)) {
      if (std::strcmp(e->d_name, ".") == 0 || std::strcmp(e->d_name, "..") == 0) continue;
      names.emplace_back(e->d_name);
    }
    ::closedir(dir);
  }
  for (const auto& child : names) {
    struct stat st;
    if (::fstatat(fd.get(), child.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) return errno;
    int err = S_ISDIR(st.st_mode) ? removeTree(fd.get(), child)
                                  : (::unlinkat(fd.get(), child.c_str(), 0) == 0 ? 0 : errno);
    if (err != 0) return err;
  }
  return ::unlinkat(parentFd, name.c_str(), AT_REMOVEDIR) == 0 ? 0 : errno;
}

}  // namespace

int ContainedRemover::remove(const std::string& root, const std::string& relativePath) {
  std::vector<std::string> parts;
  std::stringstream ss(relativePath);
  for (std::string part; std::getline(ss, part, '/');) {
    if (part.empty() || part == ".") continue;
    if (part == "..") return EACCES;
    parts.push_back(part);
  }
  if (parts.empty()) return EINVAL;
  UniqueFd dirFd(::open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!dirFd.valid()) return errno;
  for (size_t i = 0; i + 1 < parts.size(); ++i) {
    UniqueFd next(::openat(dirFd.get(), parts[i].c_str(),
                           O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!next.valid()) return errno;
    dirFd = std::move(next);
  }
  const std::string& last = parts.back();
  struct stat st;
  if (::fstatat(dirFd.get(), last.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) return errno;
  if (S_ISDIR(st.st_mode)) return removeTree(dirFd.get(), last);
  return ::unlinkat(dirFd.get(), last.c_str(), 0) == 0 ? 0 : errno;
}

}  // namespace velqor
