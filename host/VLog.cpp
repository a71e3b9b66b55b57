#include "host/VLog.h"

#include <cstdio>
#include <mutex>

namespace velqor {
namespace {

class StderrSink final : public LogSink {
 public:
  void write(const LogRecord& record) override {
    std::string line = formatLogRecord(record) + "\n";
    std::lock_guard lock(mutex_);
    std::fwrite(line.data(), 1, line.size(), stderr);
  }

 private:
  std::mutex mutex_;
};

std::mutex& sinkMutex() {
  static std::mutex m;
  return m;
}

std::shared_ptr<LogSink>& sinkSlot() {
  static std::shared_ptr<LogSink> sink = std::make_shared<StderrSink>();
  return sink;
}

std::shared_ptr<LogSink> currentSink() {
  std::lock_guard lock(sinkMutex());
  return sinkSlot();
}

}  // namespace

std::string formatLogRecord(const LogRecord& r) {
  if (r.level == LogRecord::Level::debug) return "debug: " + r.message;
  std::string out = "error: [" + r.filename + ":" + std::to_string(r.line) + " " + r.funcName + "] ";
  if (!r.tag.empty()) out += r.tag + " ";
  return out + r.message;
}

void VLog::debug(const std::string& msg) {
  LogRecord r;
  r.level = LogRecord::Level::debug;
  r.message = msg;
  currentSink()->write(r);
}

void VLog::error(const std::string& tag, const std::string& msg, const std::string& filename,
                 std::int64_t line, const std::string& funcName) {
  LogRecord r;
  r.level = LogRecord::Level::error;
  r.tag = tag;
  r.message = msg;
  r.filename = filename;
  r.line = line;
  r.funcName = funcName;
  currentSink()->write(r);
}

std::shared_ptr<LogSink> VLog::setSink(std::shared_ptr<LogSink> sink) {
  std::lock_guard lock(sinkMutex());
  auto previous = sinkSlot();
  sinkSlot() = sink ? std::move(sink) : std::make_shared<StderrSink>();
  return previous;
}

}  // namespace velqor
