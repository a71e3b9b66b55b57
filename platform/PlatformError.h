#pragma once

#include <cstdint>
#include <string>
#include <variant>

namespace velqor {

// An error as the platform reports it: a domain, a code and the localized
// description users see (passed on unchanged).
struct PlatformError {
  std::string domain;
  std::int64_t code = 0;
  std::string localizedDescription;
  friend bool operator==(const PlatformError&, const PlatformError&) = default;
};

// A value or the platform error that prevented it.
template <typename T>
class Outcome {
 public:
  Outcome(T value) : v_(std::move(value)) {}
  Outcome(PlatformError error) : v_(std::move(error)) {}
  bool ok() const { return v_.index() == 0; }
  const T& value() const { return std::get<0>(v_); }
  T& value() { return std::get<0>(v_); }
  const PlatformError& error() const { return std::get<1>(v_); }

 private:
  std::variant<T, PlatformError> v_;
};

}  // namespace velqor
