// Saves assets into a photo library as fast as it can, printing the local
// identifier of each save the library reports, until it is killed.
#include <cstdio>
#include <string>

#include "platform/linux/SqlitePhotoLibrary.h"

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  auto library = velqor::SqlitePhotoLibrary::open(argv[1]);
  if (!library.ok()) return 1;
  for (int n = 0;; ++n) {
    auto data = std::make_shared<const velqor::Bytes>();
    std::string text = "asset " + std::to_string(n) + " " + std::string(static_cast<size_t>(n % 97) * 64, 'x');
    data = std::make_shared<const velqor::Bytes>(text.begin(), text.end());
    auto id = std::make_shared<std::string>();
    (*library)->performChanges(
        [data, id](velqor::AssetChangeRequests& r) {
          auto& request = r.creationRequestForAsset();
          request.addResource(velqor::AssetCreationRequest::resourceTypePhoto, data);
          *id = request.placeholderLocalIdentifier().value_or("");
        },
        [id](bool ok, std::optional<velqor::PlatformError>) {
          if (ok) {
            std::printf("%s\n", id->c_str());
            std::fflush(stdout);
          }
        });
    (*library)->drain();
  }
}
