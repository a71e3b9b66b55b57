#include "session/MovieStill.h"

#include "platform/linux/MediaModule.h"

namespace velqor {

std::optional<Bitmap> MovieStill::firstFrame(const std::string& path, int side) {
  auto stack = MediaModule::stack();
  return stack.ok() ? (*stack)->firstFrame(path, side) : std::nullopt;
}

}  // namespace velqor
