#pragma once

#include <cstdint>
#include <string>

#include "host/Value.h"

namespace velqor {

// One script call: the operation's name and its positional arguments.
//
// Threads: immutable after creation; readable from any thread.
class VelqorCommand {
 public:
  VelqorCommand(std::string callbackId, std::string methodName, Array arguments)
      : callbackId_(std::move(callbackId)),
        methodName_(std::move(methodName)),
        arguments_(std::move(arguments)) {}

  // The argument at `index`; none when there is no argument there (a negative or
  // too large index, or an explicit null).
  const Value* argument(std::int64_t index) const;

  const std::string& callbackId() const { return callbackId_; }
  const std::string& methodName() const { return methodName_; }
  const Array& arguments() const { return arguments_; }

 private:
  std::string callbackId_;
  std::string methodName_;
  Array arguments_;
};

}  // namespace velqor
