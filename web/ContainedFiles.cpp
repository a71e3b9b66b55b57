#include "web/ContainedFiles.h"

#include <sys/stat.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <map>

#include "web/LinkFreeOpen.h"

namespace velqor {
namespace {

std::string resolved(const std::string& path) {
  char buffer[PATH_MAX];
  return ::realpath(path.c_str(), buffer) ? std::string(buffer) : std::string();
}

bool below(const std::string& path, const std::string& root) {
  if (root.empty()) return false;
  if (root == "/") return false;  // a root of "/" would contain everything: never accepted
  return path.size() > root.size() + 1 && path.compare(0, root.size(), root) == 0 && path[root.size()] == '/';
}

}  // namespace

ContainedFiles::ContainedFiles(std::vector<std::string> roots) : roots_(std::move(roots)) {}

StatusOr<ContainedFiles::Opened> ContainedFiles::open(const std::string& requested) const {
  if (requested.empty() || requested.front() != '/' || requested.find('\0') != std::string::npos)
    return Status::invalidArgument("a file name must be an absolute path");
  for (size_t start = 0; start <= requested.size();) {
    size_t end = requested.find('/', start);
    if (end == std::string::npos) end = requested.size();
    if (requested.compare(start, end - start, "..") == 0 && end - start == 2)
      return Status::invalidArgument("a file name must not contain \"..\"");
    start = end + 1;
  }
  const std::string path = resolved(requested);
  if (path.empty()) return Status::notFound("no such file");
  std::string root;
  for (const auto& candidate : roots_)
    if (std::string r = resolved(candidate); below(path, r)) root = std::move(r);
  if (root.empty()) return Status::notFound("no such file");
  // Result files and library assets only: the library's database, its journal
  // and lock files, and anything else a folder may hold are not served.
  if (contentType(path) == "application/octet-stream") return Status::notFound("no such file");
  // The resolved path has no links left; opening it folder by folder without
  // following one closes the window in which a part could be swapped for a link.
  UniqueFd fd = LinkFreeOpen::below(root, path);
  if (!fd.valid()) return Status::notFound("no such file");
  struct stat st {};
  if (::fstat(fd.get(), &st) != 0 || !S_ISREG(st.st_mode)) return Status::notFound("no such file");
  return Opened{std::move(fd), path, static_cast<std::int64_t>(st.st_size)};
}

std::string ContainedFiles::contentType(const std::string& path) {
  static const std::map<std::string, std::string> kTypes{
      {"jpg", "image/jpeg"}, {"jpeg", "image/jpeg"}, {"png", "image/png"},       {"heic", "image/heic"},
      {"mp4", "video/mp4"},  {"mov", "video/quicktime"}, {"m4v", "video/mp4"}};
  const auto dot = path.rfind('.');
  if (dot == std::string::npos) return "application/octet-stream";
  std::string ext = path.substr(dot + 1);
  std::transform(ext.begin(), ext.end(), ext.begin(), [](unsigned char c) { return std::tolower(c); });
  const auto it = kTypes.find(ext);
  return it == kTypes.end() ? "application/octet-stream" : it->second;
}

}  // namespace velqor
