#include "files/FileErrors.h"

#include <cerrno>
#include <cstring>

namespace velqor {
namespace {

std::string lastComponent(const std::string& path) {
  auto slash = path.find_last_of('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

std::string quoted(const std::string& path) { return "\u201C" + lastComponent(path) + "\u201D"; }

}  // namespace

std::string FileErrors::removeFailed(const std::string& path, int err) {
  switch (err) {
    case ENOENT:
      return quoted(path) + " couldn\u2019t be removed because it doesn\u2019t exist.";
    case EACCES:
    case EPERM:
      return quoted(path) + " couldn\u2019t be removed because you don\u2019t have permission to access it.";
    default:
      return quoted(path) + " couldn\u2019t be removed. (" + std::strerror(err) + ")";
  }
}

std::string FileErrors::writeFailed(const std::string& path, int err) {
  switch (err) {
    case ENOENT:
      return "The folder for " + quoted(path) + " doesn\u2019t exist.";
    case EACCES:
    case EPERM:
      return "You don\u2019t have permission to save the file " + quoted(path) + ".";
    case ENOSPC:
    case EDQUOT:
      return "The file " + quoted(path) + " couldn\u2019t be saved because there isn\u2019t enough space.";
    case EROFS:
      return "The file " + quoted(path) + " couldn\u2019t be saved because the volume is read only.";
    default:
      return "The file " + quoted(path) + " couldn\u2019t be saved. (" + std::strerror(err) + ")";
  }
}

std::string FileErrors::readFailed(const std::string& path, int err) {
  if (err == ENOENT) return "The file " + quoted(path) + " couldn\u2019t be opened because there is no such file.";
  return "The file " + quoted(path) + " couldn\u2019t be opened. (" + std::strerror(err) + ")";
}

}  // namespace velqor
