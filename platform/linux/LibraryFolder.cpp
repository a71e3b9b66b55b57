#include "platform/linux/LibraryFolder.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "host/FileBytes.h"

namespace velqor {
namespace {

std::string describe(const struct stat& st) {
  if (S_ISLNK(st.st_mode)) return "a symbolic link";
  if (S_ISDIR(st.st_mode)) return "a folder";
  if (!S_ISREG(st.st_mode)) return "not a plain file";
  return "a plain file";
}

// Why the entry may not serve as the library's own, or OK.
Status ownEntry(const struct stat& st, const std::string& where, bool folder) {
  if (S_ISLNK(st.st_mode) || (folder ? !S_ISDIR(st.st_mode) : !S_ISREG(st.st_mode)))
    return Status::failedPrecondition("refusing " + where + " of the photo library: it is " + describe(st));
  // A second name for a file may lie anywhere on the disk: what is written
  // or read through this one would be another program's file too.
  if (!folder && st.st_nlink > 1)
    return Status::failedPrecondition("refusing " + where + " of the photo library: it has " +
                                      std::to_string(st.st_nlink - 1) + " other name(s) (a hard link)");
  if (st.st_uid != ::geteuid())
    return Status::failedPrecondition("refusing " + where + " of the photo library: it belongs to user " +
                                    std::to_string(st.st_uid));
  return Status::okStatus();
}

// Opens (making when missing) the subfolder `name` of `parent`, never through a link.
StatusOr<UniqueFd> openSubfolder(int parent, const std::string& base, const char* name) {
  if (::mkdirat(parent, name, 0755) != 0 && errno != EEXIST)
    return Status::unavailable("cannot create " + base + "/" + name + ": " + std::strerror(errno));
  struct stat st;
  if (::fstatat(parent, name, &st, AT_SYMLINK_NOFOLLOW) != 0)
    return Status::unavailable("cannot read " + base + "/" + name + ": " + std::strerror(errno));
  RETURN_IF_ERROR(ownEntry(st, base + "/" + name, true));
  UniqueFd fd(::openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (!fd.valid()) return Status::failedPrecondition("refusing " + base + "/" + name + ": " + std::strerror(errno));
  // The entry may have been swapped between the check and the open.
  struct stat opened;
  if (::fstat(fd.get(), &opened) != 0 || opened.st_ino != st.st_ino || opened.st_dev != st.st_dev)
    return Status::failedPrecondition("refusing " + base + "/" + name + ": it changed while being opened");
  return fd;
}

StatusOr<Bytes> readOpened(int fd, const std::string& what, std::uint64_t maxBytes) {
  struct stat st;
  if (::fstat(fd, &st) != 0) return Status::unavailable("cannot read " + what + ": " + std::strerror(errno));
  RETURN_IF_ERROR(ownEntry(st, what, false));
  if (static_cast<std::uint64_t>(st.st_size) > maxBytes)
    return Status::resourceExhausted(what + " is larger than " + std::to_string(maxBytes) + " bytes");
  Bytes out(static_cast<size_t>(st.st_size));
  size_t done = 0;
  while (done < out.size()) {
    const ssize_t n = ::read(fd, out.data() + done, out.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return Status::unavailable("cannot read " + what + ": " + std::strerror(errno));
    if (n == 0) break;
    done += static_cast<size_t>(n);
  }
  out.resize(done);  // a file that shrank meanwhile gives what it still holds, never unfilled bytes
  return out;
}

}  // namespace

LibraryFolder::LibraryFolder(std::string path, UniqueFd dir, UniqueFd assets, UniqueFd staging)
    : path_(std::move(path)), dir_(std::move(dir)), assets_(std::move(assets)), staging_(std::move(staging)) {}

StatusOr<LibraryFolder> LibraryFolder::open(const std::string& directory) {
  std::error_code ec;
  std::filesystem::create_directories(directory, ec);
  if (ec) return Status::unavailable("cannot create the photo library at " + directory + ": " + ec.message());
  // The folder itself is the one the user named (links in its path are the
  // user's choice); what lies inside it is the library's own.
  UniqueFd dir(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!dir.valid()) return Status::unavailable("cannot open the photo library at " + directory + ": " + std::strerror(errno));
  struct stat st;
  if (::fstat(dir.get(), &st) != 0) return Status::unavailable("cannot read " + directory + ": " + std::strerror(errno));
  RETURN_IF_ERROR(ownEntry(st, "the folder " + directory, true));
  ASSIGN_OR_RETURN(UniqueFd assets, openSubfolder(dir.get(), directory, "assets"));
  ASSIGN_OR_RETURN(UniqueFd staging, openSubfolder(dir.get(), directory, "staging"));
  return LibraryFolder(directory, std::move(dir), std::move(assets), std::move(staging));
}

StatusOr<bool> LibraryFolder::checkDatabase() const {
  for (const char* sidecar : kDatabaseSidecars) {
    struct stat st;
    if (::fstatat(dir_.get(), sidecar, &st, AT_SYMLINK_NOFOLLOW) == 0)
      RETURN_IF_ERROR(ownEntry(st, path_ + "/" + sidecar, false));
  }
  struct stat st;
  if (::fstatat(dir_.get(), kDatabase, &st, AT_SYMLINK_NOFOLLOW) != 0) {
    if (errno == ENOENT) return false;
    return Status::unavailable("cannot read " + path_ + "/" + kDatabase + ": " + std::strerror(errno));
  }
  RETURN_IF_ERROR(ownEntry(st, "the index " + path_ + "/" + kDatabase, false));
  return true;
}

Status LibraryFolder::createDatabase() const {
  UniqueFd fd(::openat(dir_.get(), kDatabase, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644));
  // Another process opening the new library at the same moment made it first.
  if (!fd.valid() && errno != EEXIST)
    return Status::unavailable("cannot create " + path_ + "/" + kDatabase + ": " + std::strerror(errno));
  return Status::okStatus();
}

std::optional<std::pair<std::uint64_t, std::uint64_t>> LibraryFolder::databaseIdentity() const {
  struct stat st;
  if (::fstatat(dir_.get(), kDatabase, &st, AT_SYMLINK_NOFOLLOW) != 0 || !S_ISREG(st.st_mode)) return std::nullopt;
  return std::pair<std::uint64_t, std::uint64_t>{st.st_dev, st.st_ino};
}

Status LibraryFolder::writeStaging(const std::string& name, std::span<const std::uint8_t> bytes) const {
  const std::string where = path_ + "/staging/" + name;
  UniqueFd fd(::openat(staging_.get(), name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644));
  if (!fd.valid()) return Status::unavailable("cannot write " + where + ": " + std::strerror(errno));
  if (int err = FileBytes::writeAll(fd.get(), bytes)) {
    removeStaging(name);
    return Status::unavailable(std::string(err == ENOSPC ? "the disk is full" : std::strerror(err)) +
                               " while saving to the photo library");
  }
  if (::fsync(fd.get()) != 0) {
    const int err = errno;
    removeStaging(name);
    return Status::unavailable("cannot flush " + where + ": " + std::strerror(err));
  }
  return Status::okStatus();
}

StatusOr<std::int64_t> LibraryFolder::copyIntoStaging(const std::string& source, const std::string& name) const {
  UniqueFd in(::open(source.c_str(), O_RDONLY | O_CLOEXEC));
  if (!in.valid()) return Status::notFound("cannot open " + source + ": " + std::strerror(errno));
  struct stat st;
  if (::fstat(in.get(), &st) != 0 || !S_ISREG(st.st_mode)) return Status::invalidArgument(source + " is not a plain file");
  UniqueFd out(::openat(staging_.get(), name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644));
  if (!out.valid()) return Status::unavailable("cannot write " + path_ + "/staging/" + name + ": " + std::strerror(errno));
  std::int64_t total = 0;
  std::vector<std::uint8_t> buffer(1 << 16);
  for (;;) {
    const ssize_t n = ::read(in.get(), buffer.data(), buffer.size());
    if (n < 0 && errno == EINTR) continue;
    if (n == 0) break;
    if (n < 0 || FileBytes::writeAll(out.get(), std::span(buffer.data(), static_cast<size_t>(n))) != 0) {
      removeStaging(name);
      return Status::unavailable("cannot copy " + source + " into the photo library");
    }
    total += n;
  }
  if (::fsync(out.get()) != 0) {
    removeStaging(name);
    return Status::unavailable("cannot flush the copy of " + source);
  }
  return total;
}

std::vector<std::string> LibraryFolder::stagingNames() const {
  std::vector<std::string> names;
  const int copy = ::openat(staging_.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (copy < 0) return names;
  DIR* d = ::fdopendir(copy);
  if (!d) {
    ::close(copy);
    return names;
  }
  while (dirent* e = ::readdir(d))
    if (std::strcmp(e->d_name, ".") != 0 && std::strcmp(e->d_name, "..") != 0) names.emplace_back(e->d_name);
  ::closedir(d);
  return names;
}

bool LibraryFolder::stagedFile(const std::string& name) const {
  struct stat st;
  return ::fstatat(staging_.get(), name.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0 && ownEntry(st, name, false).ok();
}

Status LibraryFolder::moveIntoAssets(const std::string& name) const {
  if (!stagedFile(name))
    return Status::failedPrecondition("refusing " + path_ + "/staging/" + name + ": it is not a plain file of the user's");
  if (::renameat2(staging_.get(), name.c_str(), assets_.get(), name.c_str(), RENAME_NOREPLACE) != 0)
    return Status::unavailable("cannot move " + name + " into " + path_ + "/assets: " + std::strerror(errno));
  return Status::okStatus();
}

void LibraryFolder::removeStaging(const std::string& name) const { ::unlinkat(staging_.get(), name.c_str(), 0); }

bool LibraryFolder::assetEntryExists(const std::string& name) const {
  struct stat st;
  return ::fstatat(assets_.get(), name.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0 || errno != ENOENT;
}

Status LibraryFolder::checkAsset(const std::string& name) const {
  struct stat st;
  if (::fstatat(assets_.get(), name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0)
    return Status::notFound("cannot read " + path_ + "/assets/" + name + ": " + std::strerror(errno));
  return ownEntry(st, path_ + "/assets/" + name, false);
}

StatusOr<Bytes> LibraryFolder::readAsset(const std::string& name, std::uint64_t maxBytes) const {
  const std::string where = path_ + "/assets/" + name;
  UniqueFd fd(::openat(assets_.get(), name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  if (!fd.valid()) {
    if (errno == ELOOP) return Status::failedPrecondition("refusing " + where + ": it is a symbolic link");
    return Status::notFound("cannot open " + where + ": " + std::strerror(errno));
  }
  return readOpened(fd.get(), where, maxBytes);
}

void LibraryFolder::removeAsset(const std::string& name) const { ::unlinkat(assets_.get(), name.c_str(), 0); }

void LibraryFolder::syncAssets() const { ::fsync(assets_.get()); }

UniqueFd LibraryFolder::openLock() const {
  return UniqueFd(::openat(dir_.get(), "library.lock", O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0644));
}

}  // namespace velqor
