#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>

#include "host/CallBackManager.h"
#include "host/Value.h"

namespace velqor {

// What the host passes to a plug-in operation found by name: the command's
// callback manager for command operations, or one plain argument.
struct HostCall {
  std::shared_ptr<CallBackManager> callback;
  Value argument;
};

// A plug-in operation as the host calls it; returns the operation's result
// (none for operations without one).
using HostOperation = std::function<Value(const HostCall&)>;
using HostOperationTable = std::map<std::string, HostOperation>;

}  // namespace velqor
