#pragma once

namespace velqor {

// The plug-in's operations as its parts call them on each other. The parts
// live in separate libraries (capture, prompts, results, files); they reach one
// another only through this table, which the plug-in object fills.
//
// Threads: as each operation states in its own part.
class PluginOperations {
 public:
  virtual ~PluginOperations() = default;
};

}  // namespace velqor
