#include "results/DeferredDelivery.h"

#include "capture/CameraPicker.h"
#include "files/TempFiles.h"
#include "host/Base64.h"

namespace velqor {
namespace {

std::optional<ResultPair> outcome(PluginCore& core, const std::shared_ptr<PictureOptions>& options,
                                  const std::shared_ptr<const Bytes>& bytes) {
  if (!options || !options->destinationType || *options->destinationType == DestinationType::destinationTypeNativeUri)
    return std::nullopt;
  if (*options->destinationType == DestinationType::destinationTypeFileUri) {
    const bool png = options->encodingType == EncodingType::encodingTypePNG;
    std::string path = core.ops().tempFilePath(png ? "png" : "jpg");
    auto url = Url::fromString(path);
    if (!url) return ResultPair::failure(CommandStatus::UNABLE_FILE_WRITE, "Invalid file path");
    if (bytes) {
      // The plain path names the local file; the write never replaces one.
      auto written = TempFiles::writeNew(url->path(), *bytes, TempFiles::standardizedDirectory(core));
      if (!written.ok()) return ResultPair::failure(CommandStatus::UNABLE_FILE_WRITE, written.status().message());
      if (*written != url->path()) url = Url::fromString(*written);
      if (!url) return ResultPair::failure(CommandStatus::UNABLE_FILE_WRITE, "Invalid file path");
    }
    return ResultPair::success(Dictionary{{"callbackURI", Value(core.ops().urlTransformer(*url))}});
  }
  // Data URL: the base64 text as a byte buffer, without a prefix.
  if (!bytes) return ResultPair::success(Dictionary{});
  std::string text = base64Encode(*bytes);
  return ResultPair::success(Dictionary{{"callbackURI", Value(Bytes(text.begin(), text.end()))}});
}

}  // namespace

std::shared_ptr<const Bytes> DeferredDelivery::rewriteWithMetadata(PluginCore& core,
                                                                   const std::shared_ptr<const Bytes>& data,
                                                                   const std::optional<Dictionary>& metadata) {
  if (!data || !metadata) return data;
  ImageCodec& codec = *core.services.imageCodec;
  auto image = codec.imageWithData(data);
  if (!image) return data;
  auto rewritten = encodeLike(codec, *data, *image, *metadata);
  if (!rewritten) return data;
  return std::make_shared<const Bytes>(std::move(*rewritten));
}

std::optional<Bytes> DeferredDelivery::encodeLike(ImageCodec& codec, const Bytes& typeSource,
                                                  const PlatformImage& picture, const Dictionary& properties) {
  auto type = codec.containerType(typeSource);
  if (!type) return std::nullopt;
  return codec.encodeImageWithProperties(picture, *type, properties);
}

void DeferredDelivery::imagePickerControllerReturnImageResult(PluginCore& core) {
  auto picker = core.pickerController.load();
  std::shared_ptr<PictureOptions> options = picker ? picker->pictureOptions() : nullptr;
  auto bytes = rewriteWithMetadata(core, core.data.load(), core.metadata.load());

  if (auto result = outcome(core, options, bytes))
    if (auto cb = core.currentCallBack.load()) result->sendTo(*cb);
  core._hasPendingOperation.store(false);
  core.pickerController.store(nullptr);
  core.data.store(nullptr);
  core.metadata.store(std::nullopt);
}

}  // namespace velqor
