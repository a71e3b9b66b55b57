#include "files/DirectoryEnumerator.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstring>

namespace velqor {

std::optional<DirectoryEnumerator::Level> DirectoryEnumerator::readLevel(UniqueFd fd,
                                                                          std::string prefix) {
  int dupFd = ::dup(fd.get());
  if (dupFd < 0) return std::nullopt;
  DIR* dir = ::fdopendir(dupFd);
  if (!dir) {
    ::close(dupFd);
    return std::nullopt;
  }
  Level level;
  while (dirent* e = ::readdir(dir)) {
    if (std::strcmp(e->d_name, ".") == 0 || std::strcmp(e->d_name, "..") == 0) continue;
    level.names.emplace_back(e->d_name);
  }
  ::closedir(dir);
  std::sort(level.names.begin(), level.names.end());
  level.fd = std::move(fd);
  level.prefix = std::move(prefix);
  return level;
}

std::optional<DirectoryEnumerator> DirectoryEnumerator::open(const std::string& directory) {
  UniqueFd fd(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!fd.valid()) return std::nullopt;
  auto level = readLevel(std::move(fd), "");
  if (!level) return std::nullopt;
  DirectoryEnumerator e;
  e.stack_.push_back(std::move(*level));
  return e;
}

std::optional<std::string> DirectoryEnumerator::nextObject() {
  if (pendingDescent_ && !stack_.empty()) {
    Level& parent = stack_.back();
    const std::string& name = *pendingDescent_;
    UniqueFd fd(::openat(parent.fd.get(), name.c_str(),
                         O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    std::string prefix = parent.prefix + name + "/";
    pendingDescent_.reset();
    if (fd.valid()) {
      if (auto level = readLevel(std::move(fd), std::move(prefix))) stack_.push_back(std::move(*level));
    }
  }
  while (!stack_.empty()) {
    Level& top = stack_.back();
    if (top.next >= top.names.size()) {
      stack_.pop_back();
      continue;
    }
    const std::string& name = top.names[top.next++];
    struct stat st;
    if (::fstatat(top.fd.get(), name.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0 && S_ISDIR(st.st_mode))
      pendingDescent_ = name;
    return top.prefix + name;
  }
  return std::nullopt;
}

}  // namespace velqor
