#include "cli/Console.h"

#include <fcntl.h>
#include <unistd.h>

#include <iostream>

#include "host/VLog.h"

namespace velqor::cli {
namespace {

std::FILE*& resultSlot() {
  static std::FILE* stream = stdout;
  return stream;
}

void writeErr(const std::string& line) {
  std::string text = line + "\n";
  std::fwrite(text.data(), 1, text.size(), stderr);
}

// The host log, filtered: debug records only at debug, errors down to error.
class LevelSink final : public LogSink {
 public:
  explicit LevelSink(LogLevel level) : level_(level) {}
  void write(const LogRecord& record) override {
    const LogLevel needed = record.level == LogRecord::Level::debug ? LogLevel::debug : LogLevel::error;
    if (level_ > needed) return;
    std::lock_guard lock(mutex_);
    writeErr(formatLogRecord(record));
  }

 private:
  LogLevel level_;
  std::mutex mutex_;
};

}  // namespace

std::optional<LogLevel> Console::levelNamed(std::string_view name) {
  if (name == "debug") return LogLevel::debug;
  if (name == "info") return LogLevel::info;
  if (name == "error") return LogLevel::error;
  if (name == "none") return LogLevel::none;
  return std::nullopt;
}

LogLevel& Console::level() {
  static LogLevel current = LogLevel::info;
  return current;
}

void Console::takeStandardOutput(LogLevel newLevel) {
  level() = newLevel;
  VLog::setSink(std::make_shared<LevelSink>(newLevel));
  std::cout.flush();
  std::fflush(stdout);
  const int kept = ::dup(STDOUT_FILENO);
  std::FILE* results = kept >= 0 ? ::fdopen(kept, "w") : nullptr;
  if (!results) return;  // keep printing to the one stdout there is
  ::fcntl(kept, F_SETFD, FD_CLOEXEC);
  const int target = newLevel <= LogLevel::info ? ::dup(STDERR_FILENO) : ::open("/dev/null", O_WRONLY | O_CLOEXEC);
  if (target >= 0) {
    ::dup2(target, STDOUT_FILENO);
    ::close(target);
  }
  resultSlot() = results;
}

std::mutex& Console::resultMutex() {
  static std::mutex m;
  return m;
}

std::FILE* Console::resultStream() { return resultSlot(); }

void Console::result(std::string_view line) {
  std::lock_guard lock(resultMutex());
  std::fwrite(line.data(), 1, line.size(), resultSlot());
  std::fputc('\n', resultSlot());
  std::fflush(resultSlot());
}

void Console::info(const std::string& message) {
  if (level() <= LogLevel::info) writeErr("velqor-camera: " + message);
}

void Console::error(const std::string& message) {
  if (level() != LogLevel::none) writeErr("velqor-camera: " + message);
}

}  // namespace velqor::cli
