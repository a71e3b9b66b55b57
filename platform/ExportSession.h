#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "host/UniqueFunction.h"
#include "host/Url.h"
#include "platform/PlatformError.h"

namespace velqor {

// A media export: copies an asset's coded media into a new container for a
// time range, and reports one final outcome.
//
// Threads: configure, then start from any thread; the completion runs once, on
// the export's own thread; status and error are readable from any thread.
class ExportSession {
 public:
  enum Status : std::int64_t { unknown = 0, waiting = 1, exporting = 2, completed = 3, failed = 4, cancelled = 5 };
  static constexpr const char* fileTypeMPEG4 = "public.mpeg-4";
  static constexpr const char* presetPassthrough = "AVAssetExportPresetPassthrough";

  virtual ~ExportSession() = default;
  virtual void setOutputFileType(const std::string& type) = 0;
  virtual void setOutputURL(const Url& url) = 0;
  // Seconds; a duration that is not finite means "to the end".
  virtual void setTimeRange(double start, double duration) = 0;
  virtual void setShouldOptimizeForNetworkUse(bool optimize) = 0;
  virtual void exportAsynchronously(UniqueFunction<void()> completion) = 0;
  virtual void cancelExport() = 0;
  virtual std::int64_t status() const = 0;
  virtual std::optional<PlatformError> error() const = 0;
};

// Opens movies as assets and makes export sessions for them.
class MediaExport {
 public:
  virtual ~MediaExport() = default;
  // The asset's duration in seconds; not finite when it cannot be read.
  virtual double assetDuration(const Url& asset) = 0;
  // None when no session can be made for that asset and preset.
  virtual std::shared_ptr<ExportSession> makeSession(const Url& asset, const std::string& preset) = 0;
  // True while no export is running (for the host's idle check).
  virtual bool idle() const = 0;
};

}  // namespace velqor
