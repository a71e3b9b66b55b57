#pragma once

#include <optional>
#include <string>

namespace velqor {

// The application's main bundle: where its resource bundles lie.
//
// Threads: any.
class ResourceBundles {
 public:
  virtual ~ResourceBundles() = default;
  // The path of the resource `name`.`type` among the application's resources.
  virtual std::optional<std::string> pathForResource(const std::string& name, const std::string& type) = 0;
};

}  // namespace velqor
