#include "results/ImageResult.h"

#include "files/TempFiles.h"
#include "host/Base64.h"
#include "host/VLog.h"
#include "platform/PhotoLibraryAdapters.h"
#include "platform/PickerInfoKeys.h"
#include "platform/PickerTypes.h"
#include "results/DeferredDelivery.h"
#include "results/ImageAcquisition.h"

namespace velqor {
namespace {

constexpr int kSaveErrorLogLine = 352;

// Shared with the library's change block, which runs on the library's queue.
using PictureCell = std::shared_ptr<std::shared_ptr<PlatformImage>>;

struct Context {
  std::shared_ptr<PluginCore> core;
  std::shared_ptr<PictureOptions> options;
  Dictionary info;
  PictureCell picture = std::make_shared<std::shared_ptr<PlatformImage>>();
  bool save = false;
};

Executor& pool(const Context& c) { return *c.core->services.workerPool; }

std::string extensionFor(const PictureOptions& o) {
  return o.encodingType == EncodingType::encodingTypePNG ? "png" : "jpg";
}

std::optional<Bytes> acquire(Context& c) {
  *c.picture = ImageAcquisition::retrieveImage(c.info, *c.options);
  return ImageAcquisition::processImage(*c.core, *c.picture, c.info, *c.options);
}

ResultPair dataUrl(Context& c) {
  auto encoded = acquire(c);
  if (!encoded) return ResultPair::none();
  const char* prefix =
      c.options->encodingType == EncodingType::encodingTypePNG ? "data:image/png;base64," : "data:image/jpeg;base64,";
  return ResultPair::success(Dictionary{{"callbackURI", Value(base64Encode(*encoded, prefix))}});
}

Task<ResultPair> fileUriWithLocation(Context& c, Bytes encoded, std::string path) {
  PluginCore& core = *c.core;
  if (!c.options->sourceType ||
      (*c.options->sourceType != SourceType::photoLibrary && *c.options->sourceType != SourceType::savedPhotosAlbum))
    co_return ResultPair::none();  // a camera photo is delivered after its location fix
  const Value* assetValue = find(c.info, PickerInfoKey::phAsset);
  auto asset = assetValue ? assetValue->asObject<Asset>() : nullptr;
  if (!asset || !core.services.photoLibrary) co_return ResultPair::none();
  if (const Value* ref = find(c.info, PickerInfoKey::referenceURL))
    if (const Url* url = ref->asUrl()) {
      auto found = core.services.photoLibrary->fetchAssetsWithALAssetURLs({*url});
      if (!found.empty()) asset = found.front();
    }
  auto request = PhotoLibraryAdapters::requestImageDataAndOrientationAsync(
      *core.services.photoLibrary, pool(c), core.services.completionMonitor.get(), asset, Dictionary{});
  auto fetched = co_await std::move(request);
  if (!fetched.ok()) co_return ResultPair::failure(CommandStatus::UNABLE_FILE_WRITE, fetched.error().localizedDescription);
  if (auto properties = core.services.imageCodec->imageProperties(fetched.value().data))
    core.metadata.store(std::move(*properties));

  // Re-encode the picture with the asset's properties, from the container type of `data`.
  auto data = core.data.load();
  auto metadata = core.metadata.load();
  if (data && metadata && *c.picture)
    if (auto rewritten = DeferredDelivery::encodeLike(*core.services.imageCodec, *data, **c.picture, *metadata))
      encoded = std::move(*rewritten);
  auto url = Url::fromString(path);
  if (!url) co_return ResultPair::none();
  auto written = TempFiles::writeNew(url->path(), encoded, TempFiles::standardizedDirectory(core));
  if (!written.ok()) co_return ResultPair::failure(CommandStatus::UNABLE_FILE_WRITE, written.status().message());
  if (*written != url->path())
    if (auto moved = Url::fromString(*written)) url = moved;
  // A URL value here, not its string.
  co_return ResultPair::success(Dictionary{{"callbackURI", Value(core.ops().urlTransformer(*url))}});
}

Task<ResultPair> fileUri(Context& c) {
  auto encoded = acquire(c);
  if (!encoded) co_return ResultPair::none();
  std::string path = c.core->ops().tempFilePath(extensionFor(*c.options));
  if (c.options->usesGeolocation) {
    auto located = fileUriWithLocation(c, std::move(*encoded), path);
    co_return co_await std::move(located);
  }

  auto written = TempFiles::writeNew(path, *encoded, TempFiles::standardizedDirectory(*c.core));
  if (!written.ok()) co_return ResultPair::failure(CommandStatus::UNABLE_FILE_WRITE, "Fail write image file");
  auto url = Url::fromString(*written);
  if (!url) co_return ResultPair::failure(CommandStatus::UNABLE_FILE_WRITE, "Invalid image path");
  co_return ResultPair::success(
      Dictionary{{"callbackURI", Value(c.core->ops().urlTransformer(*url).absoluteString())}});
}

std::string escapeAmpersands(const std::string& text) {
  std::string out;
  for (char ch : text) out += ch == '&' ? std::string("%26") : std::string(1, ch);
  return out;
}

Task<ResultPair> nativeUri(Context& c) {
  PluginCore& core = *c.core;
  if (const Value* ref = find(c.info, PickerInfoKey::referenceURL))
    if (const Url* url = ref->asUrl()) {
      // Already in the library: answer its own reference and save nothing.
      c.save = false;
      co_return ResultPair::success(Dictionary{{"callbackURI", Value(core.ops().urlTransformer(*url).absoluteString())}});
    }
  *c.picture = ImageAcquisition::retrieveImage(c.info, *c.options);
  auto identifier = std::make_shared<std::string>();
  if (!core.services.photoLibrary) co_return ResultPair::none();
  auto codec = core.services.imageCodec;
  PhotoLibrary::ChangeBlock block = [picture = c.picture, identifier, codec](AssetChangeRequests& requests) {
    auto& request = requests.creationRequestForAsset();
    std::optional<Bytes> png = *picture ? codec->pngRepresentation(**picture) : std::nullopt;
    if (!png) return;
    request.addResource(AssetCreationRequest::resourceTypePhoto, std::make_shared<const Bytes>(std::move(*png)));
    *identifier = request.placeholderLocalIdentifier().value_or("");
  };
  auto change = PhotoLibraryAdapters::performChangesAsync(*core.services.photoLibrary, pool(c),
                                                          core.services.completionMonitor.get(), std::move(block));
  auto changed = co_await std::move(change);
  if (!changed.ok()) co_return ResultPair::failure(CommandStatus::UNABLE_FILE_WRITE, changed.error().localizedDescription);
  if (!changed.value() || identifier->empty()) co_return ResultPair::none();
  const std::string ext = c.options->encodingType == EncodingType::encodingTypePNG ? "PNG" : "JPG";
  const std::string uri = "assets-library://asset/asset." + ext + "?id=" + *identifier + "&ext=" + ext;
  auto url = Url::fromString(uri);
  if (!url) co_return ResultPair::failure(CommandStatus::UNABLE_FILE_WRITE, "URL PathIsWrong " + uri);
  std::string text = escapeAmpersands(core.ops().urlTransformer(*url).absoluteString());
  VLog::debug("nativeUri :" + text);
  co_return ResultPair::success(Dictionary{{"callbackURI", Value(text)}});
}

Task<void> saveToAlbum(std::shared_ptr<PluginCore> core, std::shared_ptr<const Bytes> png) {
  PhotoLibrary::ChangeBlock block = [png](AssetChangeRequests& requests) {
    requests.creationRequestForAsset().addResource(AssetCreationRequest::resourceTypePhoto, png);
  };
  auto change = PhotoLibraryAdapters::performChangesAsync(*core->services.photoLibrary, *core->services.workerPool,
                                                          core->services.completionMonitor.get(), std::move(block));
  auto saved = co_await std::move(change);
  if (saved.ok()) {
    VLog::debug(std::string("taskResult ") + (saved.value() ? "true" : "false"));
    if (saved.value()) VLog::debug("save photoAlbum success");
  } else {
    VLog::error("", "error : " + saved.error().localizedDescription, kPluginSourceFile, kSaveErrorLogLine,
                "resultForImage(_:info:)");
  }
}

void saveStep(Context& c) {
  VLog::debug(std::string("saveToPhotoAlbum ") + (c.save ? "true" : "false"));
  if (!c.save || !*c.picture || !c.core->services.photoLibrary) return;
  auto png = c.core->services.imageCodec->pngRepresentation(**c.picture);
  if (!png) return;
  startDetached(*c.core->services.workerPool, saveToAlbum(c.core, std::make_shared<const Bytes>(std::move(*png))));
}

}  // namespace

Task<ResultPair> ImageResult::resultForImage(std::shared_ptr<PluginCore> core, std::shared_ptr<PictureOptions> options,
                                             Dictionary info) {
  co_await runOnPool(*core->services.workerPool);
  Context c{core, options, std::move(info)};
  c.save = options->saveToPhotoAlbum;
  ResultPair pair;
  if (options->destinationType == DestinationType::destinationTypeDataUrl) {
    pair = dataUrl(c);
  } else if (options->destinationType == DestinationType::destinationTypeFileUri) {
    auto task = fileUri(c);
    pair = co_await std::move(task);
  } else if (options->destinationType == DestinationType::destinationTypeNativeUri) {
    auto task = nativeUri(c);
    pair = co_await std::move(task);
  }
  saveStep(c);
  co_return pair;
}

}  // namespace velqor
