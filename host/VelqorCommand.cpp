#include "host/VelqorCommand.h"

namespace velqor {

const Value* VelqorCommand::argument(std::int64_t index) const {
  if (index < 0 || static_cast<std::uint64_t>(index) >= arguments_.size()) return nullptr;
  const Value& v = arguments_[static_cast<size_t>(index)];
  return v.isNull() ? nullptr : &v;
}

}  // namespace velqor
