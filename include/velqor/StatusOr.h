#pragma once

#include <cassert>
#include <optional>
#include <utility>

#include "velqor/Status.h"

namespace velqor {

/// Either a value or the non-ok Status that explains why there is none.
///
/// Threads: a plain value, safe to move between threads like the T it holds.
template <typename T>
class StatusOr {
 public:
  StatusOr(Status status) : status_(std::move(status)) { assert(!status_.ok()); }
  StatusOr(T value) : value_(std::move(value)) {}

  bool ok() const { return value_.has_value(); }
  const Status& status() const { return status_; }

  T& value() & { assert(ok()); return *value_; }
  const T& value() const& { assert(ok()); return *value_; }
  T&& value() && { assert(ok()); return std::move(*value_); }

  T* operator->() { return &*value_; }
  const T* operator->() const { return &*value_; }
  T& operator*() & { return *value_; }
  const T& operator*() const& { return *value_; }

 private:
  Status status_;
  std::optional<T> value_;
};

}  // namespace velqor
