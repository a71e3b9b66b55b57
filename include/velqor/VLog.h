#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace velqor {

/// One line of the host's log: a plain diagnostic (debug) or an error report
/// with the reporting source location.
///
/// Threads: a plain value.
struct LogRecord {
  enum class Level { debug, error };
  Level level = Level::debug;
  std::string tag;
  std::string message;
  std::string filename;
  std::int64_t line = 0;
  std::string funcName;
};

/// Where log records go. The default sink writes one line per record to stderr.
/// An embedding program installs its own with VLog::setSink to route the
/// plug-in's log into its own.
///
/// Threads: `write` is called from any thread the plug-in logs on (main,
/// worker, platform, location), possibly at the same time: a sink must be
/// thread-safe.
class LogSink {
 public:
  virtual ~LogSink() = default;
  virtual void write(const LogRecord& record) = 0;
};

/// The host's logger: static operations only.
///
/// Threads: every operation may be called from any thread.
class VLog {
 public:
  static void debug(const std::string& msg);
  static void error(const std::string& tag, const std::string& msg, const std::string& filename,
                    std::int64_t line, const std::string& funcName);

  /// Replaces the sink; returns the previous one. A null sink restores stderr.
  static std::shared_ptr<LogSink> setSink(std::shared_ptr<LogSink> sink);
};

/// Formats a record as the stderr sink writes it:
/// "debug: msg" or "error: [file:line funcName] tag msg". Pure; any thread.
std::string formatLogRecord(const LogRecord& record);

}  // namespace velqor
