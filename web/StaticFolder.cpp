#include "web/StaticFolder.h"

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

}  // namespace

StaticFolder::StaticFolder(std::string root) : root_(std::move(root)) {}

StatusOr<ContainedFiles::Opened> StaticFolder::open(const std::string& path) const {
  if (path.find('\0') != std::string::npos || path.find('\\') != std::string::npos || path.size() > 1024)
    return Status::invalidArgument("a malformed file name");
  std::string relative = path.empty() || path.back() == '/' ? path + "index.html" : path;
  while (!relative.empty() && relative.front() == '/') relative.erase(0, 1);
  for (size_t start = 0; start < relative.size();) {
    size_t end = relative.find('/', start);
    if (end == std::string::npos) end = relative.size();
    if (end == start || relative[start] == '.') return Status::notFound("no such file");
    start = end + 1;
  }
  const std::string root = resolved(root_);
  if (root.empty() || root == "/") return Status::notFound("no such file");
  const std::string file = resolved(root + "/" + relative);
  if (file.size() <= root.size() + 1 || file.compare(0, root.size(), root) != 0 || file[root.size()] != '/')
    return Status::notFound("no such file");
  // The resolved path has no links left; opening it folder by folder without
  // following one closes the window in which a part could be swapped for a link.
  UniqueFd fd = LinkFreeOpen::below(root, file);
  if (!fd.valid()) return Status::notFound("no such file");
  struct stat st {};
  if (::fstat(fd.get(), &st) != 0 || !S_ISREG(st.st_mode)) return Status::notFound("no such file");
  return ContainedFiles::Opened{std::move(fd), file, static_cast<std::int64_t>(st.st_size)};
}

std::string StaticFolder::contentType(const std::string& path) {
  static const std::map<std::string, std::string> kTypes{
      {"html", "text/html; charset=utf-8"},
      {"htm", "text/html; charset=utf-8"},
      {"js", "text/javascript; charset=utf-8"},
      {"mjs", "text/javascript; charset=utf-8"},
      {"css", "text/css; charset=utf-8"},
      {"json", "application/json"},
      {"map", "application/json"},
      {"txt", "text/plain; charset=utf-8"},
      {"png", "image/png"},
      {"jpg", "image/jpeg"},
      {"jpeg", "image/jpeg"},
      {"gif", "image/gif"},
      {"webp", "image/webp"},
      {"svg", "image/svg+xml"},
      {"ico", "image/x-icon"},
      {"woff2", "font/woff2"},
      {"mp4", "video/mp4"}};
  const auto slash = path.rfind('/');
  const auto dot = path.rfind('.');
  if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return "application/octet-stream";
  std::string ext = path.substr(dot + 1);
  std::transform(ext.begin(), ext.end(), ext.begin(), [](unsigned char c) { return std::tolower(c); });
  const auto it = kTypes.find(ext);
  return it == kTypes.end() ? "application/octet-stream" : it->second;
}

}  // namespace velqor
