#pragma once

#include <memory>
#include <mutex>
#include <vector>

#include "host/VLog.h"

namespace velqor::testing {

// Captures VLog records for the lifetime of the object.
class RecordingLog : public LogSink {
 public:
  static std::shared_ptr<RecordingLog> install() {
    auto log = std::make_shared<RecordingLog>();
    log->previous_ = VLog::setSink(log);
    return log;
  }
  void uninstall() { VLog::setSink(previous_); }

  void write(const LogRecord& r) override {
    std::lock_guard l(mutex_);
    records_.push_back(r);
  }
  std::vector<LogRecord> records() const {
    std::lock_guard l(mutex_);
    return records_;
  }
  std::vector<std::string> debugLines() const {
    std::vector<std::string> out;
    for (const auto& r : records())
      if (r.level == LogRecord::Level::debug) out.push_back(r.message);
    return out;
  }
  std::vector<LogRecord> errors() const {
    std::vector<LogRecord> out;
    for (const auto& r : records())
      if (r.level == LogRecord::Level::error) out.push_back(r);
    return out;
  }

 private:
  mutable std::mutex mutex_;
  std::vector<LogRecord> records_;
  std::shared_ptr<LogSink> previous_;
};

}  // namespace velqor::testing
