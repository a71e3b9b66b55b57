#pragma once

#include <memory>

#include "host/CompletionMonitor.h"
#include "host/Executor.h"
#include "host/Task.h"
#include "platform/ExportSession.h"

namespace velqor {

// The export as one awaitable step: starts it, suspends the caller, and
// resumes it once with success or an error. A failed export passes its own
// error through; otherwise the errors are "AVAssetExportSessionError" code 0
// "Export failed", 1 "Export cancelled", 2 "Export ended with unexpected status".
class ExportAdapter {
 public:
  static constexpr const char* kExportAsync = "exportAsync()";
  static Task<Outcome<bool>> exportAsync(std::shared_ptr<ExportSession> session, Executor& resumeOn,
                                         CompletionMonitor* monitor);
  // The outcome for a session's final status.
  static Outcome<bool> outcomeFor(std::int64_t status, const std::optional<PlatformError>& own);
};

}  // namespace velqor
