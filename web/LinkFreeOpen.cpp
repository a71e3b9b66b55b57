#include "web/LinkFreeOpen.h"

#include <fcntl.h>

namespace velqor {

UniqueFd LinkFreeOpen::below(const std::string& root, const std::string& path) {
  if (root.empty() || path.size() <= root.size() + 1 || path.compare(0, root.size(), root) != 0 ||
      path[root.size()] != '/')
    return UniqueFd();
  UniqueFd folder(::open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  size_t start = root.size() + 1;
  while (folder.valid()) {
    const size_t end = path.find('/', start);
    const std::string name = path.substr(start, end == std::string::npos ? std::string::npos : end - start);
    if (name.empty() || name == "." || name == "..") return UniqueFd();
    if (end == std::string::npos)
      return UniqueFd(::openat(folder.get(), name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    folder = UniqueFd(::openat(folder.get(), name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    start = end + 1;
  }
  return UniqueFd();
}

}  // namespace velqor
