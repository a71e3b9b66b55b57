#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "cli/Cli.h"

namespace velqor::cli {

void refuseTogether(const CLI::App& app, const std::string& a, const std::string& b, const std::string& why) {
  if (app.count(a) && app.count(b)) throw UsageError{a + " and " + b + " do not go together: " + why};
}

void requireReadableFile(const std::string& option, const std::string& path) {
  std::error_code ec;
  const auto status = std::filesystem::status(path, ec);
  if (ec || !std::filesystem::exists(status))
    throw UsageError{option + ": no such file \"" + path + "\""};
  if (!std::filesystem::is_regular_file(status)) throw UsageError{option + ": \"" + path + "\" is not a file"};
  std::ifstream in(path, std::ios::binary);
  if (!in) throw UsageError{option + ": cannot read \"" + path + "\": " + std::strerror(errno)};
}

}  // namespace velqor::cli
