#include "files/UploadsFolder.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>

namespace velqor {
namespace {

constexpr const char* kPrefix = "velqor-serve-";

// The folder opened without following a link and locked; invalid when another
// process holds the lock (or it is not a folder of this user).
UniqueFd lockFolder(const std::string& path) {
  UniqueFd fd(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  struct stat st {};
  if (!fd.valid() || ::fstat(fd.get(), &st) != 0 || st.st_uid != ::geteuid()) return UniqueFd();
  if (::flock(fd.get(), LOCK_EX | LOCK_NB) != 0) return UniqueFd();
  return fd;
}

}  // namespace

std::string UploadsFolder::defaultBase() {
  const char* base = std::getenv("TMPDIR");
  return base && *base == '/' ? base : "/tmp";
}

size_t UploadsFolder::sweepStale(const ResolvedFolder& base) {
  size_t swept = 0;
  std::error_code ec;
  for (auto it = std::filesystem::directory_iterator(base.path, ec); !ec && it != std::filesystem::directory_iterator();
       it.increment(ec)) {
    const std::string name = it->path().filename().string();
    if (name.rfind(kPrefix, 0) != 0 || it->is_symlink(ec)) continue;
    UniqueFd lock = lockFolder(it->path().string());
    if (lock.valid() && FolderPolicy::removeInside(base, it->path()).ok()) ++swept;
  }
  return swept;
}

StatusOr<std::unique_ptr<UploadsFolder>> UploadsFolder::create(const std::string& base) {
  const std::string resolved = FolderPolicy::resolve(base).string();
  if (!std::filesystem::is_directory(resolved)) return Status::notFound("no folder " + base + " for uploads");
  ResolvedFolder folder{resolved};
  sweepStale(folder);
  std::string pattern = resolved + "/" + kPrefix + "XXXXXX";
  if (!::mkdtemp(pattern.data())) return Status::unavailable("cannot create a folder for uploads in " + resolved);
  UniqueFd lock = lockFolder(pattern);
  if (!lock.valid()) return Status::unavailable("cannot lock the uploads folder " + pattern);
  return std::unique_ptr<UploadsFolder>(new UploadsFolder(std::move(folder), pattern, std::move(lock)));
}

UploadsFolder::~UploadsFolder() { (void)FolderPolicy::removeInside(base_, path_); }

}  // namespace velqor
