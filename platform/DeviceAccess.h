#pragma once

#include <cstdint>

#include "host/UniqueFunction.h"

namespace velqor {

// Access states as the platform numbers them.
namespace AccessState {
constexpr std::int64_t notDetermined = 0;
constexpr std::int64_t restricted = 1;
constexpr std::int64_t denied = 2;
constexpr std::int64_t authorized = 3;
constexpr std::int64_t limited = 4;  // photo library only
}  // namespace AccessState

// Camera access (video capture authorization).
//
// Threads: callable from any thread. The request's completion runs once, on a
// platform thread that is never the main one.
class CameraAuthorization {
 public:
  virtual ~CameraAuthorization() = default;
  virtual std::int64_t authorizationStatus() = 0;
  virtual void requestAccess(UniqueFunction<void(bool granted)> completion) = 0;
};

// Photo-library access.
//
// Threads: callable from any thread. The request's handler runs once, on a
// platform thread that is never the main one.
class PhotoLibraryAuthorization {
 public:
  virtual ~PhotoLibraryAuthorization() = default;
  virtual std::int64_t authorizationStatus() = 0;
  virtual void requestAuthorization(UniqueFunction<void(std::int64_t status)> handler) = 0;
};

}  // namespace velqor
