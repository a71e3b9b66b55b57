#include "files/FolderOwnership.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "host/FileBytes.h"
#include "host/UniqueFd.h"

namespace velqor {
namespace {

std::string identity(const struct stat& st, const std::string& path) {
  return std::to_string(st.st_dev) + " " + std::to_string(st.st_ino) + " " + path;
}

}  // namespace

FolderOwnership::FolderOwnership(std::string recordFile) : recordFile_(std::move(recordFile)) {}

FolderOwnership FolderOwnership::atDefaultPlace() {
  const char* state = std::getenv("XDG_STATE_HOME");
  if (state && *state == '/') return FolderOwnership(std::string(state) + "/velqor-camera/created-folders");
  const char* home = std::getenv("HOME");
  return FolderOwnership(std::string(home && *home ? home : "/root") + "/.local/state/velqor-camera/created-folders");
}

bool FolderOwnership::created(const std::string& resolvedFolder) const {
  struct stat st {};
  if (::lstat(resolvedFolder.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) return false;
  const std::string wanted = identity(st, resolvedFolder);
  std::ifstream in(recordFile_);
  for (std::string line; std::getline(in, line);)
    if (line == wanted) return true;
  return false;
}

Status FolderOwnership::record(const std::string& resolvedFolder) const {
  struct stat st {};
  if (::lstat(resolvedFolder.c_str(), &st) != 0 || !S_ISDIR(st.st_mode))
    return Status::notFound("cannot record folder " + resolvedFolder + ": it does not exist");
  if (resolvedFolder.find('\n') != std::string::npos)
    return Status::invalidArgument("a folder name must not contain a line break");
  std::error_code ec;
  std::filesystem::create_directories(std::filesystem::path(recordFile_).parent_path(), ec);
  UniqueFd fd(::open(recordFile_.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600));
  if (!fd.valid()) return Status::unavailable("cannot write " + recordFile_ + ": " + std::strerror(errno));
  const std::string line = identity(st, resolvedFolder) + "\n";
  if (FileBytes::writeAll(fd.get(), std::span(reinterpret_cast<const std::uint8_t*>(line.data()), line.size())) != 0)
    return Status::unavailable("cannot write " + recordFile_);
  return Status::okStatus();
}

}  // namespace velqor
