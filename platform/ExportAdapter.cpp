#include "platform/ExportAdapter.h"

#include "host/CompletionAwaitable.h"

namespace velqor {

Outcome<bool> ExportAdapter::outcomeFor(std::int64_t status, const std::optional<PlatformError>& own) {
  constexpr const char* kDomain = "AVAssetExportSessionError";
  switch (status) {
    case ExportSession::completed: return true;
    case ExportSession::failed:
      if (own) return *own;
      return PlatformError{kDomain, 0, "Export failed"};
    case ExportSession::cancelled: return PlatformError{kDomain, 1, "Export cancelled"};
    default: return PlatformError{kDomain, 2, "Export ended with unexpected status"};
  }
}

Task<Outcome<bool>> ExportAdapter::exportAsync(std::shared_ptr<ExportSession> session, Executor& resumeOn,
                                               CompletionMonitor* monitor) {
  // Operands are built outside the co_await expression: g++ 12 may destroy
  // non-trivial temporaries of such an expression twice.
  auto finished = awaitCompletion<bool>(kExportAsync, monitor, resumeOn, [session](Resumer<bool> resume) {
    session->exportAsynchronously([resume] { resume(true); });
  });
  co_await finished;
  co_return outcomeFor(session->status(), session->error());
}

}  // namespace velqor
