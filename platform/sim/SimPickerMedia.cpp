#include "platform/sim/SimPickerMedia.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <filesystem>
#include <random>

#include "host/FileBytes.h"
#include "platform/PickerInfoKeys.h"
#include "platform/PickerTypes.h"

namespace velqor {
namespace {

constexpr std::uint64_t kMaxMedia = 1ull << 34;

// The picker records into a file of its own: "trim.<id>.MOV" in the temporary
// directory. Copied on disk, never through memory: movies can be large.
StatusOr<Url> pickerMovieCopy(const std::string& movie, const std::string& temporaryDirectory) {
  std::mt19937_64 rng(std::random_device{}());
  char id[32];
  std::snprintf(id, sizeof id, "%016llX", static_cast<unsigned long long>(rng()));
  std::string dir = temporaryDirectory;
  if (dir.empty() || dir.back() != '/') dir.push_back('/');
  const std::string path = dir + "trim." + id + ".MOV";
  std::error_code ec;
  std::filesystem::copy_file(movie, path, std::filesystem::copy_options::none, ec);
  if (ec) return Status::unavailable("cannot copy the movie " + movie + ": " + ec.message());
  return Url::fileUrlWithPath(path);
}

StatusOr<std::shared_ptr<PlatformImage>> edited(const PlatformImage& original, const std::array<double, 4>& rect) {
  // Cropped from the upright picture; the edited image stands upright itself.
  auto upright = original.drawn(displayTransform(original.imageOrientation()), static_cast<int>(original.size().width),
                                static_cast<int>(original.size().height), ImageOrientation::up);
  auto pixels = upright->cgImage();
  if (!pixels) return Status::dataLoss("cannot decode the photo to edit it");
  const int x = std::clamp(static_cast<int>(std::lround(rect[0])), 0, pixels->width - 1);
  const int y = std::clamp(static_cast<int>(std::lround(rect[1])), 0, pixels->height - 1);
  const int w = std::clamp(static_cast<int>(std::lround(rect[2])), 1, pixels->width - x);
  const int h = std::clamp(static_cast<int>(std::lround(rect[3])), 1, pixels->height - y);
  Bitmap crop(w, h, pixels->channels);
  crop.iccProfile = pixels->iccProfile;
  for (int row = 0; row < h; ++row)
    std::copy_n(pixels->row(y + row) + static_cast<size_t>(x) * pixels->channels, crop.stride(), crop.row(row));
  return PlatformImage::fromBitmap(std::move(crop));
}

}  // namespace

StatusOr<Dictionary> SimPickerMedia::info(const SimPickerChoice& choice, ImageCodec& codec, PhotoLibrary* library,
                                          const std::string& temporaryDirectory) {
  Dictionary info;
  std::string file = choice.file;
  bool video = choice.kind == SimPickerChoice::Kind::video;
  const bool pick = choice.kind == SimPickerChoice::Kind::pick;
  if (pick) {
    if (!library) return Status::unavailable("there is no photo library to pick from");
    const std::string uuid = choice.asset.substr(0, choice.asset.find('/'));
    auto found = library->fetchAssetsWithALAssetURLs({*Url::fromString("assets-library://asset/asset.JPG?id=" + uuid)});
    if (found.empty()) return Status::notFound("no asset " + choice.asset + " in the photo library");
    const auto& asset = found.front();
    info[PickerInfoKey::phAsset] = Value(std::shared_ptr<PlatformObject>(asset));
    info[PickerInfoKey::referenceURL] = Value(asset->referenceUrl());
    video = asset->isVideo();
    file = asset->filePath();
  }
  if (video) {
    if (!std::filesystem::is_regular_file(file)) return Status::notFound("no movie at " + file);
    ASSIGN_OR_RETURN(Url movie, pickerMovieCopy(file, temporaryDirectory));
    info[PickerInfoKey::mediaType] = Value(kUTTypeMovie);
    info[PickerInfoKey::mediaURL] = Value(movie);
    return info;
  }
  ASSIGN_OR_RETURN(Bytes bytes, FileBytes::read(file, kMaxMedia));
  auto shared = std::make_shared<const Bytes>(std::move(bytes));
  // The picker hands over only an image whose pixels decode; the image's own
  // source checks that without a second copy of the bytes.
  auto image = codec.imageWithData(shared);
  const Status why = !image ? codec.probe(*shared) : image->source() ? image->source()->checkPixels() : Status::okStatus();
  if (!why.ok()) return Status::invalidArgument(file + ": " + why.message());
  if (!image) return Status::invalidArgument(file + ": cannot decode the image");
  info[PickerInfoKey::mediaType] = Value(kUTTypeImage);
  info[PickerInfoKey::originalImage] = Value(std::shared_ptr<PlatformObject>(image));
  if (!pick)
    if (auto properties = codec.imageProperties(shared)) info[PickerInfoKey::mediaMetadata] = Value(*properties);
  if (choice.edit) {
    ASSIGN_OR_RETURN(auto crop, edited(*image, *choice.edit));
    info[PickerInfoKey::editedImage] = Value(std::shared_ptr<PlatformObject>(crop));
    info[PickerInfoKey::cropRect] = Value(Array{(*choice.edit)[0], (*choice.edit)[1], (*choice.edit)[2], (*choice.edit)[3]});
  }
  return info;
}

}  // namespace velqor
