#include "files/FolderPolicy.h"

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "files/ContainedRemover.h"
#include "platform/SharedFolders.h"

namespace velqor {
namespace fs = std::filesystem;

namespace {

// Names TempFiles gives the files it writes into the temporary folder.
constexpr std::array kTemporaryFileNames{"velqor_photo_", ".velqor-staging-"};

std::string plain(const fs::path& p) { return SharedFolders::plain(p); }
bool atOrBelow(const std::string& path, const std::string& root) { return SharedFolders::atOrBelow(path, root); }

fs::path absoluteOf(std::string_view path) { return SharedFolders::absolute(path); }
Status refusedAs(const std::string& path, const std::string& why) { return SharedFolders::refusal(path, why); }

// Entries of an existing folder; -1 when it cannot be read.
long countEntries(const std::string& folder, std::string* first, bool (*ours)(const std::string&)) {
  std::error_code ec;
  long foreign = 0;
  for (auto it = fs::directory_iterator(folder, ec); !ec && it != fs::directory_iterator(); it.increment(ec)) {
    const std::string name = it->path().filename().string();
    if (ours && ours(name)) continue;
    if (foreign++ == 0 && first) *first = name;
  }
  return ec ? -1 : foreign;
}

bool temporaryFileName(const std::string& name) {
  return std::any_of(kTemporaryFileNames.begin(), kTemporaryFileNames.end(),
                     [&](const char* prefix) { return name.rfind(prefix, 0) == 0; });
}

// Resolves, refuses shared folders and foreign contents, makes the folder when
// missing and records that this tool made it.
StatusOr<ResolvedFolder> ownFolder(std::string_view requested, const FolderOwnership& owned, bool force,
                                   bool (*ours)(const std::string&), bool acceptLibrary) {
  if (requested.empty()) return Status::invalidArgument("a folder name is empty");
  RETURN_IF_ERROR(FolderPolicy::refuseShared(requested));
  const std::string path = plain(FolderPolicy::resolve(requested));
  const std::string record = plain(FolderPolicy::resolve(fs::path(owned.recordFile()).parent_path().string()));
  if (atOrBelow(record, path))
    return refusedAs(path, "it holds the record of the folders this tool made (" + owned.recordFile() + ")");
  std::error_code ec;
  const auto status = fs::status(path, ec);
  if (fs::exists(status)) {
    if (!fs::is_directory(status)) return refusedAs(path, "it is not a folder");
    if (force || owned.created(path)) return ResolvedFolder{path};
    // A library's index is its own plain file: a link by that name makes no folder a library.
    if (acceptLibrary && fs::is_regular_file(fs::symlink_status(path + "/library.sqlite", ec)))
      return ResolvedFolder{path};
    std::string first;
    const long foreign = countEntries(path, &first, ours);
    if (foreign < 0) return refusedAs(path, "its entries cannot be read");
    if (foreign > 0)
      return refusedAs(path, "it holds " + std::to_string(foreign) + " entries this tool did not write (\"" + first +
                                 "\" among them); name a new or empty folder, or confirm with --force");
    return ResolvedFolder{path};
  }
  fs::create_directories(path, ec);
  if (ec) return Status::unavailable("cannot create folder " + path + ": " + ec.message());
  RETURN_IF_ERROR(owned.record(path));
  return ResolvedFolder{path};
}

}  // namespace

fs::path FolderPolicy::resolve(std::string_view path) { return SharedFolders::resolve(path); }

Status FolderPolicy::refuseShared(std::string_view path) { return SharedFolders::refuse(path); }

StatusOr<ResolvedFolder> FolderPolicy::temporaryFolder(std::string_view requested, const FolderOwnership& owned,
                                                       bool force) {
  return ownFolder(requested, owned, force, &temporaryFileName, false);
}

StatusOr<ResolvedFolder> FolderPolicy::libraryFolder(std::string_view requested, const ResolvedFolder& temporary,
                                                     const FolderOwnership& owned, bool force) {
  if (requested.empty()) return Status::invalidArgument("a folder name is empty");
  const std::string lib = plain(resolve(requested));
  if (atOrBelow(lib, temporary.path))
    return refusedAs(lib, "the library must not lie in the temporary folder " + temporary.path +
                              ", which cleanup empties");
  if (atOrBelow(temporary.path, lib))
    return refusedAs(lib, "the library must not hold the temporary folder " + temporary.path);
  return ownFolder(requested, owned, force, nullptr, true);
}

StatusOr<ResolvedFolder> FolderPolicy::workFolder(std::string_view requested) {
  RETURN_IF_ERROR(refuseShared(requested));
  const std::string path = plain(resolve(requested));
  std::error_code ec;
  fs::create_directories(path, ec);
  if (ec || !fs::is_directory(path, ec)) return Status::unavailable("cannot create folder " + path);
  return ResolvedFolder{path};
}

StatusOr<ResolvedFolder> FolderPolicy::runFolder(const ResolvedFolder& work, std::string_view name,
                                                 const FolderOwnership& owned, bool force) {
  const auto plainChar = [](unsigned char c) { return std::isalnum(c) || c == '_' || c == '-' || c == '.'; };
  if (name.empty() || name.size() > 128 || name == "." || name == ".." || name.front() == '.' ||
      !std::all_of(name.begin(), name.end(), plainChar))
    return Status::invalidArgument("\"" + std::string(name.substr(0, 128)) +
                                   "\" cannot name a run folder: use letters, digits, '.', '_' and '-'");
  const std::string path = work.path + "/" + std::string(name);
  if (!strictlyInside(work, path)) return refusedAs(path, "it does not lie inside " + work.path);
  std::error_code ec;
  if (fs::exists(fs::symlink_status(path, ec))) {
    if (fs::is_symlink(fs::symlink_status(path, ec))) return refusedAs(path, "it is a link");
    std::string first;
    if (!force && !owned.created(path) && countEntries(path, &first, nullptr) != 0)
      return refusedAs(path, "it holds entries this tool did not write (\"" + first +
                                 "\" among them); name another work folder, or confirm with --force");
    RETURN_IF_ERROR(removeInside(work, path));
  }
  if (!fs::create_directory(path, ec) || ec) return Status::unavailable("cannot create folder " + path);
  RETURN_IF_ERROR(owned.record(path));
  return ResolvedFolder{path};
}

bool FolderPolicy::strictlyInside(const ResolvedFolder& folder, const fs::path& target) {
  if (folder.path.empty() || folder.path == "/") return false;
  const std::string t = plain(resolve(target.string()));
  const std::string f = plain(resolve(folder.path));
  return t.size() > f.size() + 1 && atOrBelow(t, f);
}

Status FolderPolicy::removeInside(const ResolvedFolder& folder, const fs::path& target) {
  std::error_code ec;
  const fs::path abs = absoluteOf(target.string()).lexically_normal();
  if (!fs::exists(fs::symlink_status(abs, ec))) return Status::okStatus();
  // The parent is resolved, the last name is not: a link is removed as a link.
  const std::string parent = plain(resolve(abs.parent_path().string()));
  const std::string f = plain(resolve(folder.path));
  if (!(atOrBelow(parent, f)) || abs.filename().empty() || abs.filename() == "..")
    return refusedAs(abs.string(), "it does not lie strictly inside " + folder.path);
  const std::string relative = (parent == f ? std::string() : parent.substr(f.size() + 1) + "/") +
                               abs.filename().string();
  if (int err = ContainedRemover::remove(f, relative))
    return Status::unavailable("cannot remove " + abs.string() + ": " + std::strerror(err));
  return Status::okStatus();
}

}  // namespace velqor
