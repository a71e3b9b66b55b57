#include "platform/linux/SampleMovies.h"

#include "platform/linux/MediaModule.h"

namespace velqor {

Status SampleMovies::make(const std::string& path, const MovieSpec& shape) {
  ASSIGN_OR_RETURN(MediaStack * stack, MediaModule::stack());
  return stack->makeMovie(path, shape);
}

}  // namespace velqor
