#pragma once

#include <memory>
#include <optional>

#include "host/CompletionMonitor.h"
#include "host/Executor.h"
#include "host/Task.h"
#include "platform/PhotoLibrary.h"
#include "platform/PlatformError.h"

namespace velqor {

// The photo library's callback operations as awaitable steps. Each suspends
// the calling task, starts the request, and resumes the task exactly once (on
// `resumeOn`) with what the completion reported. A completion that comes twice
// or never is reported to the monitor under the operation's signature.
class PhotoLibraryAdapters {
 public:
  static constexpr const char* kPerformChanges = "performChangesAsync(_:)";
  static constexpr const char* kRequestImageData = "requestImageDataAndOrientationAsync(for:options:)";

  // The success flag; fails with the library's error whenever it gives one.
  static Task<Outcome<bool>> performChangesAsync(PhotoLibrary& library, Executor& resumeOn,
                                                 CompletionMonitor* monitor, PhotoLibrary::ChangeBlock block);

  // The asset's bytes with their type, orientation and info; fails with
  // "PHImageManagerError" code 0 "Failed to fetch image data" when the
  // library returned no bytes, whatever the info says.
  static Task<Outcome<ImageDataResult>> requestImageDataAndOrientationAsync(PhotoLibrary& library, Executor& resumeOn,
                                                                           CompletionMonitor* monitor,
                                                                           std::shared_ptr<Asset> asset,
                                                                           std::optional<Dictionary> options);

  static PlatformError fetchFailed();
};

}  // namespace velqor
