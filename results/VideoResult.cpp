#include "results/VideoResult.h"

#include <unistd.h>

#include <cerrno>

#include "files/FileErrors.h"
#include "files/TempFiles.h"
#include "host/Base64.h"
#include "host/FileBytes.h"
#include "platform/ExportAdapter.h"
#include "platform/PickerInfoKeys.h"

namespace velqor {
namespace {

constexpr const char* kFailTakePicture = "Fail take picture";

// Deletes the picker's movie wherever the picker left it: the movie is the
// picker's own copy, never the user's original (the album keeps that).
// unlink() removes a link itself, not what it points to.
std::optional<std::string> deletePickerMovie(const std::string& path) {
  if (::unlink(path.c_str()) != 0) return FileErrors::removeFailed(path, errno);
  return std::nullopt;
}

}  // namespace

Task<ResultPair> VideoResult::resultForVideo(std::shared_ptr<PluginCore> core, std::shared_ptr<PictureOptions> options,
                                             Dictionary info) {
  co_await runOnPool(*core->services.workerPool);
  const Value* media = find(info, PickerInfoKey::mediaURL);
  const Url* mediaUrl = media ? media->asUrl() : nullptr;
  if (!mediaUrl) co_return ResultPair::failure(CommandStatus::FAIL_TAKE_PICTURE, kFailTakePicture);
  const Url movie = *mediaUrl;

  if (options && options->saveToPhotoAlbum && core->services.photoLibrary)
    core->services.photoLibrary->saveVideoAtPathToSavedPhotosAlbum(movie.path());

  const std::string path = core->ops().tempFilePath("mp4");
  const Url output = Url::fileUrlWithPath(path);
  MediaExport* exporter = core->services.mediaExport.get();
  auto session = exporter ? exporter->makeSession(movie, ExportSession::presetPassthrough) : nullptr;
  if (session) {
    session->setOutputFileType(ExportSession::fileTypeMPEG4);
    session->setOutputURL(output);
    session->setTimeRange(0, exporter->assetDuration(movie));
    session->setShouldOptimizeForNetworkUse(true);
    auto exporting = ExportAdapter::exportAsync(session, *core->services.workerPool,
                                                core->services.completionMonitor.get());
    auto exported = co_await std::move(exporting);
    if (!exported.ok())
      co_return ResultPair::failure(CommandStatus::FAIL_TAKE_PICTURE, exported.error().localizedDescription);
  }

  if (auto failure = deletePickerMovie(movie.path()))
    co_return ResultPair::failure(CommandStatus::FAIL_TAKE_PICTURE, *failure);

  if (!options || !options->destinationType ||
      *options->destinationType == DestinationType::destinationTypeNativeUri) {
    // The file is still read first, as its absence is the earlier failure.
    if (::access(path.c_str(), R_OK) != 0) co_return ResultPair::failure(CommandStatus::FAIL_TAKE_PICTURE, kFailTakePicture);
    co_return ResultPair::failure(CommandStatus::UNABLE_FILE_WRITE, kFailTakePicture);
  }
  if (*options->destinationType == DestinationType::destinationTypeDataUrl) {
    auto bytes = FileBytes::read(path, 1ull << 34);
    if (!bytes.ok()) co_return ResultPair::failure(CommandStatus::FAIL_TAKE_PICTURE, kFailTakePicture);
    std::string text = base64Encode(*bytes, "data:video/mp4;base64,");
    bytes->clear();
    bytes->shrink_to_fit();
    co_return ResultPair::success(Dictionary{{"callbackURI", Value(std::move(text))}});
  }
  if (::access(path.c_str(), R_OK) != 0) co_return ResultPair::failure(CommandStatus::FAIL_TAKE_PICTURE, kFailTakePicture);
  co_return ResultPair::success(Dictionary{{"callbackURI", Value(core->ops().urlTransformer(output).absoluteString())}});
}

}  // namespace velqor
