#include "platform/TemporaryDirectory.h"

#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "platform/SharedFolders.h"

namespace velqor {
namespace fs = std::filesystem;

namespace {

fs::path normalized(const std::string& path) {
  std::error_code ec;
  fs::path p = fs::absolute(path, ec);
  if (ec) p = path;
  p = p.lexically_normal();
  std::string s = p.string();
  while (s.size() > 1 && s.back() == '/') s.pop_back();
  return s;
}

}  // namespace

std::string TemporaryDirectory::defaultPath() {
  const char* state = std::getenv("XDG_STATE_HOME");
  if (state && *state == '/') return std::string(state) + "/velqor-camera/tmp";
  const char* home = std::getenv("HOME");
  std::string base = (home && *home) ? home : "/root";
  return base + "/.local/state/velqor-camera/tmp";
}

Status TemporaryDirectory::validate(const std::string& path) {
  if (path.empty()) return Status::invalidArgument("the temporary directory is empty");
  Status refused = SharedFolders::refuse(path);
  if (!refused.ok())
    return Status::invalidArgument(refused.message() + "; cleanup deletes every entry of the temporary directory");
  return Status::okStatus();
}

StatusOr<TemporaryDirectory> TemporaryDirectory::open(const std::string& path) {
  RETURN_IF_ERROR(validate(path));
  fs::path p = normalized(path);
  std::error_code ec;
  if (!fs::exists(p, ec)) {
    fs::create_directories(p, ec);
    if (ec) return Status::unavailable("cannot create temporary directory " + p.string() + ": " + ec.message());
  }
  std::string s = p.string();
  if (s.back() != '/') s.push_back('/');
  return TemporaryDirectory(s);
}

}  // namespace velqor
