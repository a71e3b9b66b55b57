#pragma once

#include <CLI/CLI.hpp>

#include <memory>
#include <string>

#include "session/DeviceSession.h"

namespace velqor::cli {

// The command-line options that describe the simulated device and its user.
// Parsed into a DeviceConfig once CLI11 has read them.
class DeviceOptions {
 public:
  void addTo(CLI::App& app, bool withUserActions);
  // Throws UsageError on a value it cannot use, an input file that cannot be
  // read, or options that mean nothing together.
  DeviceConfig toConfig() const;
  // The library asset the user picks by identifier (not a file), if any.
  std::optional<std::string> pickedIdentifier() const;

  bool events = false;
  double timeoutSeconds = 30;
  // Seconds without a fix after which the host delivers a waiting photo anyway.
  std::optional<double> locationTimeout() const {
    return locationTimeout_ > 0 ? std::optional<double>(locationTimeout_) : std::nullopt;
  }

 private:
  void refuseMeaninglessCombinations() const;

  CLI::App* app_ = nullptr;
  std::vector<std::string> sources_;
  bool noCamera_ = false;
  std::string cameraAccess_ = "authorized";
  std::string libraryAccess_ = "authorized";
  std::string cameraAnswer_ = "granted";
  std::string libraryAnswer_ = "authorized";
  bool noViewController_ = false;
  bool noSettingsPage_ = false;
  std::string tap_;
  bool cancel_ = false;
  std::string lang_;
  std::string bundle_;
  bool noBundle_ = false;
  bool force_ = false;
  std::string tempDir_;
  std::string fileUrlPrefix_;
  std::string photo_, video_, pick_, edit_, library_;
  std::vector<std::string> locations_;
  bool noFix_ = false;
  std::string gpsd_;
  double locationTimeout_ = 0;
};

}  // namespace velqor::cli
