#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/UniqueFunction.h"
#include "host/Url.h"
#include "host/Value.h"
#include "platform/PlatformError.h"

namespace velqor {

// A photo-library asset: what a library pick hands the plug-in.
class Asset : public PlatformObject {
 public:
  std::string kindName() const override { return "asset"; }
  virtual const std::string& localIdentifier() const = 0;
  virtual bool isVideo() const = 0;
  // "JPG", "PNG", "MOV", "MP4": the extension of its reference URL.
  virtual const std::string& extension() const = 0;
  virtual Url referenceUrl() const = 0;
  // Where the asset's original bytes are kept.
  virtual std::string filePath() const = 0;
};

// One asset creation inside a change block.
class AssetCreationRequest {
 public:
  static constexpr std::int64_t resourceTypePhoto = 1;
  static constexpr std::int64_t resourceTypeVideo = 2;
  virtual ~AssetCreationRequest() = default;
  virtual void addResource(std::int64_t type, std::shared_ptr<const Bytes> data) = 0;
  // The identifier the asset will have once the change commits; none before a
  // resource was added.
  virtual std::optional<std::string> placeholderLocalIdentifier() const = 0;
};

// The requests a change block makes.
class AssetChangeRequests {
 public:
  virtual ~AssetChangeRequests() = default;
  virtual AssetCreationRequest& creationRequestForAsset() = 0;
};

// The result of an image data request.
struct ImageDataResult {
  std::shared_ptr<const Bytes> data;           // none when the library had no bytes
  std::optional<std::string> dataUTI;
  std::int64_t orientation = 1;                // CGImagePropertyOrientation
  std::optional<Dictionary> info;
};

// The photo library as the plug-in sees it: change transactions, look-up by
// reference URL, image data of an asset, and the movie album save.
//
// Threads: callable from any thread. A change block runs on the library's own
// queue; every completion runs exactly once, never on the caller's stack.
class PhotoLibrary {
 public:
  virtual ~PhotoLibrary() = default;

  using ChangeBlock = UniqueFunction<void(AssetChangeRequests&)>;
  using ChangeDone = UniqueFunction<void(bool success, std::optional<PlatformError> error)>;
  virtual void performChanges(ChangeBlock block, ChangeDone done) = 0;

  virtual std::vector<std::shared_ptr<Asset>> fetchAssetsWithALAssetURLs(const std::vector<Url>& urls) = 0;

  using ImageDataHandler = UniqueFunction<void(ImageDataResult)>;
  virtual void requestImageDataAndOrientation(const std::shared_ptr<Asset>& asset,
                                              const std::optional<Dictionary>& options, ImageDataHandler handler) = 0;

  // Copies the movie at `path` into the album; the outcome is not reported.
  // The copy is taken before this returns, so the caller may delete the file.
  virtual void saveVideoAtPathToSavedPhotosAlbum(const std::string& path) = 0;
};

}  // namespace velqor
