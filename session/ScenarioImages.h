#pragma once

#include <map>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace velqor {

// Checks the pictures a scenario left in its temporary directory against the
// scenario's "images" expectations, one entry per picture file in name order:
//
//   "images": [{"width": 300, "height": 400,
//               "sameAs": {"input": "photo", "crop": [x, y, w, h], "minPsnr": 40}}]
//
// "sameAs" compares the picture with an input drawn upright (its EXIF
// orientation applied) and cropped when a rectangle is given (in upright
// pixels). Both are reduced to a quarter of the picture's size, where codec
// noise averages out, and must agree to `minPsnr` dB (40 unless given).
//
// Threads: any; reads files only.
class ScenarioImages {
 public:
  // Appends one line per mismatch to `differences`. `inputs` maps "$name" to
  // the input's path.
  static void check(const nlohmann::json& expected, const std::vector<std::string>& outputs,
                    const std::map<std::string, std::string>& inputs, std::vector<std::string>& differences);
};

}  // namespace velqor
