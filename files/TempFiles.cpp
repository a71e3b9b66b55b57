#include "files/TempFiles.h"

#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <filesystem>
#include <mutex>
#include <random>
#include <unordered_map>

#include "files/ContainedRemover.h"
#include "files/DirectoryEnumerator.h"
#include "files/FileErrors.h"
#include "files/StampFormatter.h"
#include "host/FileBytes.h"
#include "host/UniqueFd.h"
#include "host/Url.h"
#include "host/VLog.h"

namespace velqor {
namespace {

constexpr const char* kPrefix = "velqor_photo_";
constexpr const char* kCleanupFailed = "One or more files failed to be deleted.";
constexpr int kCleanupLogLine = 187;

bool exists(const std::string& path) {
  struct stat st;
  return ::lstat(path.c_str(), &st) == 0;
}

// "velqor_photo_20240131013005.jpg", n -> "velqor_photo_20240131013005_n.jpg"
std::string candidate(const std::string& base, const std::string& extension, int n) {
  std::string name = n <= 1 ? base : base + "_" + std::to_string(n);
  return name + "." + extension;
}

std::string stagingName() {
  static std::atomic<unsigned> counter{0};
  thread_local std::mt19937_64 rng(std::random_device{}());
  return ".velqor-staging-" + std::to_string(::getpid()) + "-" + std::to_string(counter++) + "-" +
         std::to_string(rng() % 1000000000);
}

// Moves `from` to `to` inside `dirFd`, failing with EEXIST instead of replacing.
int renameNoReplace(int dirFd, const std::string& from, const std::string& to) {
  if (::renameat2(dirFd, from.c_str(), dirFd, to.c_str(), RENAME_NOREPLACE) == 0) return 0;
  if (errno != EINVAL && errno != ENOSYS) return errno;
  // File systems without RENAME_NOREPLACE: a hard link never replaces either.
  if (::linkat(dirFd, from.c_str(), dirFd, to.c_str(), 0) != 0) return errno;
  ::unlinkat(dirFd, from.c_str(), 0);
  return 0;
}

// Where the candidate search for a name base last succeeded, so a burst of
// results in one second does not probe every earlier name again.
class CandidateHints {
 public:
  int start(const std::string& base) {
    std::lock_guard lock(mutex_);
    auto it = next_.find(base);
    return it == next_.end() ? 1 : it->second;
  }
  void taken(const std::string& base, int n) {
    std::lock_guard lock(mutex_);
    if (next_.size() > 4096) next_.clear();
    int& slot = next_[base];
    if (n > slot) slot = n;
  }

 private:
  std::mutex mutex_;
  std::unordered_map<std::string, int> next_;
};

CandidateHints& hints() {
  static CandidateHints h;
  return h;
}

}  // namespace

std::string TempFiles::standardizedDirectory(const PluginCore& core) {
  std::string dir = core.services.temporaryDirectory ? core.services.temporaryDirectory->path() : "/";
  dir = std::filesystem::path(dir).lexically_normal().string();
  while (dir.size() > 1 && dir.back() == '/') dir.pop_back();
  return dir;
}

std::string TempFiles::tempFilePath(const PluginCore& core, const std::string& extension) {
  std::string dir = standardizedDirectory(core);
  auto now = core.services.clock ? core.services.clock->now() : std::chrono::system_clock::now();
  std::string base = dir + "/" + kPrefix + StampFormatter::format(now, core.services.locale);
  // Below the hint every candidate was taken in this process; a file created
  // elsewhere since is caught by the no-replace write.
  for (int n = hints().start(base);; ++n) {
    std::string path = candidate(base, extension, n);
    if (!exists(path)) return path;
    hints().taken(base, n);
  }
}

StatusOr<std::string> TempFiles::writeNew(const std::string& path, std::span<const std::uint8_t> bytes,
                                          const std::string& requiredDirectory) {
  size_t slash = path.find_last_of('/');
  std::string dir = slash == std::string::npos ? "." : path.substr(0, slash);
  std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
  if (name.empty() || name == "." || name == "..")
    return Status::invalidArgument(FileErrors::writeFailed(path, EISDIR));

  UniqueFd dirFd(::open(dir.empty() ? "/" : dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!dirFd.valid()) return Status::unavailable(FileErrors::writeFailed(path, errno));
  // The kernel resolved the parent; it must be the directory the caller owns.
  struct stat parentStat, requiredStat;
  if (::fstat(dirFd.get(), &parentStat) != 0 || ::stat(requiredDirectory.c_str(), &requiredStat) != 0 ||
      parentStat.st_dev != requiredStat.st_dev || parentStat.st_ino != requiredStat.st_ino)
    return Status::invalidArgument(FileErrors::writeFailed(path, EACCES));

  std::string staging = stagingName();
  {
    UniqueFd fd(::openat(dirFd.get(), staging.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644));
    if (!fd.valid()) return Status::unavailable(FileErrors::writeFailed(path, errno));
    if (int err = FileBytes::writeAll(fd.get(), bytes)) {
      ::unlinkat(dirFd.get(), staging.c_str(), 0);
      return Status::unavailable(FileErrors::writeFailed(path, err));
    }
  }

  size_t dot = name.find('.');
  std::string stem = dot == std::string::npos ? name : name.substr(0, dot);
  std::string extension = dot == std::string::npos ? std::string() : name.substr(dot + 1);
  // A name that is already a later candidate ("..._3.jpg") continues its own series.
  int first = 1;
  size_t underscore = stem.find_last_of('_');
  if (stem.rfind(kPrefix, 0) == 0 && underscore != std::string::npos && underscore + 1 < stem.size() &&
      underscore >= std::string(kPrefix).size() &&
      stem.find_first_not_of("0123456789", underscore + 1) == std::string::npos &&
      stem.size() - underscore <= 7) {
    first = std::stoi(stem.substr(underscore + 1));
    stem = stem.substr(0, underscore);
  }
  const std::string hintKey = dir + "/" + stem;
  for (int n = first, tries = 0; tries < 100000; ++n, ++tries) {
    std::string finalName = dot == std::string::npos
                                ? (n <= 1 ? stem : stem + "_" + std::to_string(n))
                                : candidate(stem, extension, n);
    int err = renameNoReplace(dirFd.get(), staging, finalName);
    if (err == 0) {
      hints().taken(hintKey, n + 1);
      return dir + "/" + finalName;
    }
    if (err == EEXIST && n == first) n = std::max(n, hints().start(hintKey) - 1);
    if (err != EEXIST) {
      ::unlinkat(dirFd.get(), staging.c_str(), 0);
      return Status::unavailable(FileErrors::writeFailed(path, err));
    }
  }
  ::unlinkat(dirFd.get(), staging.c_str(), 0);
  return Status::resourceExhausted(FileErrors::writeFailed(path, EEXIST));
}

void TempFiles::cleanup(const PluginCore& core, CallBackManager& cb) {
  // As the platform reports it: with its trailing separator.
  std::string dir = core.services.temporaryDirectory ? core.services.temporaryDirectory->path() : "";
  auto enumerator = dir.empty() ? std::nullopt : DirectoryEnumerator::open(dir);
  if (!enumerator) {
    cb.error(CommandStatus::UNABLE_FILE_REMOVE, kCleanupFailed, false);
    return;
  }
  while (auto relative = enumerator->nextObject()) {
    auto dirUrl = Url::fromString(dir);
    if (!dirUrl) continue;
    std::string target = dirUrl->appendingPathComponent(*relative).absoluteString();
    // The URL step percent-encodes the name; the encoded string is what gets
    // removed, so a name with a space is looked up as "%20" and not found.
    int err = target.compare(0, dir.size(), dir) == 0
                  ? ContainedRemover::remove(dir, target.substr(dir.size()))
                  : EACCES;
    if (err != 0) {
      VLog::error("", "Failed to delete: " + dir + *relative + " (error: " + FileErrors::removeFailed(target, err),
                  kPluginSourceFile, kCleanupLogLine, "cleanup(_:)");
      cb.error(CommandStatus::UNABLE_FILE_REMOVE, kCleanupFailed, false);
      return;
    }
  }
  cb.success(false);
}

}  // namespace velqor
