#include "platform/PhotoLibraryAdapters.h"

#include "host/CompletionAwaitable.h"

namespace velqor {

PlatformError PhotoLibraryAdapters::fetchFailed() {
  return PlatformError{"PHImageManagerError", 0, "Failed to fetch image data"};
}

Task<Outcome<bool>> PhotoLibraryAdapters::performChangesAsync(PhotoLibrary& library, Executor& resumeOn,
                                                              CompletionMonitor* monitor,
                                                              PhotoLibrary::ChangeBlock block) {
  using Reply = std::pair<bool, std::optional<PlatformError>>;
  // Operands are built outside the co_await expression: g++ 12 may destroy
  // non-trivial temporaries of such an expression twice.
  auto completion = awaitCompletion<Reply>(
      kPerformChanges, monitor, resumeOn, [&library, block = std::move(block)](Resumer<Reply> resume) mutable {
        library.performChanges(std::move(block), [resume](bool success, std::optional<PlatformError> error) {
          resume(Reply{success, std::move(error)});
        });
      });
  Reply reply = co_await completion;
  if (reply.second) co_return *reply.second;
  co_return reply.first;
}

Task<Outcome<ImageDataResult>> PhotoLibraryAdapters::requestImageDataAndOrientationAsync(
    PhotoLibrary& library, Executor& resumeOn, CompletionMonitor* monitor, std::shared_ptr<Asset> asset,
    std::optional<Dictionary> options) {
  auto completion = awaitCompletion<ImageDataResult>(
      kRequestImageData, monitor, resumeOn, [&library, asset, options](Resumer<ImageDataResult> resume) {
        library.requestImageDataAndOrientation(asset, options, [resume](ImageDataResult r) { resume(std::move(r)); });
      });
  ImageDataResult result = co_await completion;
  if (!result.data) co_return fetchFailed();
  co_return result;
}

}  // namespace velqor
