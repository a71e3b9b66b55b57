#pragma once

#include <cstdio>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

namespace velqor::cli {

// How much the CLI says on stderr.
enum class LogLevel { debug, info, error, none };

// The CLI's two streams. The CLI is the host: answers and other results go
// alone to the process's standard output, one line each; everything else (the
// plug-in's own standard-output line, the host log, the CLI's explanations)
// goes to stderr, filtered by the log level.
//
// Threads: every function may be called from any thread once
// takeStandardOutput has run on the main thread.
class Console {
 public:
  static std::optional<LogLevel> levelNamed(std::string_view name);

  // Keeps the real standard output for results and points file descriptor 1
  // (what any other code prints) at stderr, or at /dev/null below info. Also
  // routes the host log through the level filter.
  static void takeStandardOutput(LogLevel level);

  // One result line on the real standard output.
  static void result(std::string_view line);
  // The result stream itself, for writers that stream a line; hold resultMutex().
  static std::FILE* resultStream();
  static std::mutex& resultMutex();

  // An explanation at info level ("still open because ...").
  static void info(const std::string& message);
  // The reason for a failing exit status; printed at every level but none.
  static void error(const std::string& message);

 private:
  static LogLevel& level();
};

}  // namespace velqor::cli
