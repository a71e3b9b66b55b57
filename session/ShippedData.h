#pragma once

#include <optional>
#include <string>
#include <vector>

namespace velqor {

// Where the files installed with the program live: the strings bundle
// (Velqor.bundle), the web host's control panel and host scripts (page/) and
// the page API module (api/). Looked up, in order, in
//   1. $VELQOR_CAMERA_DATA_DIR,
//   2. the install layout around the program or library holding this code
//      (<prefix>/bin or <prefix>/lib... next to <prefix>/share/velqor-camera),
//   3. the data folder of the prefix the build was configured to install into,
//   4. the executable's own folder (a build tree).
// The first folder holding the entry wins, so a copied or moved binary still
// finds an installed bundle and page.
//
// Threads: any; reads the environment and the file system only.
class ShippedData {
 public:
  static constexpr const char* kEnvironmentVariable = "VELQOR_CAMERA_DATA_DIR";

  // The folders searched, in order (those that cannot be formed are left out).
  static std::vector<std::string> searchPath();
  // The first `<folder>/<entry>` that is a directory; none when no folder has it.
  static std::optional<std::string> find(const std::string& entry);
};

}  // namespace velqor
