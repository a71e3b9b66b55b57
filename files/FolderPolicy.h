#pragma once

#include <filesystem>
#include <string>
#include <string_view>

#include "files/FolderOwnership.h"
#include "host/StatusOr.h"

namespace velqor {

// A folder after resolution: absolute, every symbolic link followed, no
// trailing separator.
struct ResolvedFolder {
  std::string path;
};

// Which folders the tools may write into or empty. Every command that creates,
// fills or deletes a folder (the temporary folder, the photo library, the
// scenario runner's work folders, the web host's uploads) asks here first;
// nothing else compares paths.
//
// Refused always: the file-system root, the home folder and its parents, the
// shared scratch folders themselves (/tmp, /var/tmp, /dev/shm), the system
// trees (/usr, /etc, /var, ...) and anything below them, and a folder that
// holds the ownership record. Refused unless `force`: an existing, non-empty
// folder this tool did not create. A link is judged by what it points to.
//
// Threads: any; pure apart from reading the file system and the ownership
// record (and creating a missing folder).
class FolderPolicy {
 public:
  // The temporary folder that cleanup empties; made and recorded when missing.
  static StatusOr<ResolvedFolder> temporaryFolder(std::string_view requested, const FolderOwnership& owned,
                                                  bool force);
  // The photo library's folder: a folder that already holds a library is
  // accepted; refused at or below the temporary folder, and the reverse.
  static StatusOr<ResolvedFolder> libraryFolder(std::string_view requested, const ResolvedFolder& temporary,
                                                const FolderOwnership& owned, bool force);
  // A folder that holds runs (one subfolder each); made when missing. Its
  // other entries are never touched.
  static StatusOr<ResolvedFolder> workFolder(std::string_view requested);
  // `work`/`name`, emptied and made anew for one run. `name` must be a plain
  // file name; an existing run folder is emptied only when this tool made it
  // (or it is empty), unless `force`.
  static StatusOr<ResolvedFolder> runFolder(const ResolvedFolder& work, std::string_view name,
                                            const FolderOwnership& owned, bool force);

  // The reason `path` may never be written or emptied, or OK.
  static Status refuseShared(std::string_view path);
  // True only when `target`, resolved, lies strictly inside `folder`.
  static bool strictlyInside(const ResolvedFolder& folder, const std::filesystem::path& target);
  // Removes `target` (with its contents, links removed as links) only when it
  // lies strictly inside `folder`; a missing target is not an error.
  static Status removeInside(const ResolvedFolder& folder, const std::filesystem::path& target);
  // The path with links followed as far as it exists, made absolute.
  static std::filesystem::path resolve(std::string_view path);
};

}  // namespace velqor
