#pragma once

#include <stdlib.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <string>

namespace velqor::testing {

// A scratch directory for one test, removed with everything in it afterwards.
class TestDirectory {
 public:
  TestDirectory() {
    std::string pattern = (std::filesystem::temp_directory_path() / "velqor-test-XXXXXX").string();
    char* made = ::mkdtemp(pattern.data());
    root_ = made ? made : "";
  }
  ~TestDirectory() {
    std::error_code ec;
    // Read-only subdirectories made by a test would stop remove_all.
    for (auto it = std::filesystem::recursive_directory_iterator(root_, ec);
         !ec && it != std::filesystem::recursive_directory_iterator(); it.increment(ec)) {
      if (it->is_directory(ec) && !it->is_symlink(ec)) ::chmod(it->path().c_str(), 0755);
    }
    std::filesystem::remove_all(root_, ec);
  }
  const std::string& root() const { return root_; }
  std::string path(const std::string& relative) const { return root_ + "/" + relative; }

  void write(const std::string& relative, const std::string& content = "x") const {
    auto p = std::filesystem::path(path(relative));
    std::filesystem::create_directories(p.parent_path());
    std::ofstream(p, std::ios::binary) << content;
  }
  static std::string read(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  }

 private:
  std::string root_;
};

}  // namespace velqor::testing
