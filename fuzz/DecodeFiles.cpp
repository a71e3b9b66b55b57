// Decodes image files and encodes what comes out, the road a capture takes
// from a file to its answer, without the rest of a capture: small enough to
// run under valgrind's memcheck over the hostile files of the adversarial
// corpus, so that a decoder handing the encoder memory it never filled is an
// error, not a picture.
//
//   decode_files DIR EXT...    every file in DIR whose name ends in one of EXT
//
// Prints how many files decoded and how many were refused; exits 1 when no
// file matched (a run that checks nothing is no pass).
#include <algorithm>
#include <filesystem>
#include <iostream>
#include <numeric>

#include "host/FileBytes.h"
#include "imaging/codecs/JpegCodec.h"
#include "imaging/codecs/LinuxImageCodec.h"
#include "imaging/codecs/PngCodec.h"

namespace fs = std::filesystem;
using namespace velqor;

int main(int argc, char** argv) {
  if (argc < 3) {
    std::cerr << "usage: decode_files DIR EXT...\n";
    return 2;
  }
  std::vector<fs::path> files;
  std::error_code ec;
  for (const auto& e : fs::directory_iterator(argv[1], ec)) {
    const std::string name = e.path().filename().string();
    for (int i = 2; i < argc; ++i) {
      const std::string ext = argv[i];
      if (name.size() >= ext.size() && name.compare(name.size() - ext.size(), ext.size(), ext) == 0)
        files.push_back(e.path());
    }
  }
  std::sort(files.begin(), files.end());
  // Limits a phone would meet with a large photo, small enough for valgrind.
  LinuxImageCodec codec(DecodeLimits{16'000'000, 256u << 20, 200'000'000});
  int decoded = 0, refused = 0;
  unsigned long checksum = 0;
  for (const auto& path : files) {
    auto bytes = FileBytes::read(path.string());
    if (!bytes.ok()) return 1;
    auto shared = std::make_shared<const Bytes>(std::move(*bytes));
    auto image = codec.probe(*shared).ok() ? codec.imageWithData(shared) : nullptr;
    auto bitmap = image ? image->pixels() : StatusOr<Bitmap>(Status::dataLoss("refused"));
    if (!bitmap.ok()) {
      ++refused;
      continue;
    }
    ++decoded;
    // Both encoders read every byte of the bitmap; memcheck reports any the
    // decoder left undefined where they branch on it.
    auto jpeg = JpegCodec::encode(*bitmap, 0.8);
    auto png = PngCodec::encode(*bitmap);
    if (jpeg.ok()) checksum = std::accumulate(jpeg->begin(), jpeg->end(), checksum);
    if (png.ok()) checksum = std::accumulate(png->begin(), png->end(), checksum);
  }
  std::cout << "decode_files: " << files.size() << " files, " << decoded << " decoded and encoded, " << refused
            << " refused (checksum " << checksum << ")\n";
  return files.empty() ? 1 : 0;
}
