#include "media/FfmpegMediaExport.h"

#include <cmath>
#include <mutex>
#include <thread>

#include "media/MovieRemux.h"

namespace velqor {
namespace {

constexpr const char* kDomain = "AVFoundationErrorDomain";
// The platform's codes for what went wrong, by the kind of failure.
constexpr std::int64_t kUnknownError = -11800;
constexpr std::int64_t kFormatUnsupported = -11821;
constexpr std::int64_t kFileExists = -11823;
constexpr std::int64_t kInvalidOutput = -11838;

std::int64_t errorCode(Status::Code code) {
  switch (code) {
    case Status::Code::invalidArgument: return kFormatUnsupported;
    case Status::Code::alreadyExists: return kFileExists;
    case Status::Code::failedPrecondition: return kInvalidOutput;
    default: return kUnknownError;
  }
}

class FfmpegExportSession final : public ExportSession, public std::enable_shared_from_this<FfmpegExportSession> {
 public:
  FfmpegExportSession(std::string inputPath, std::shared_ptr<std::atomic<int>> running)
      : input_(std::move(inputPath)), running_(std::move(running)) {}

  void setOutputFileType(const std::string& type) override { type_ = type; }
  void setOutputURL(const Url& url) override { output_ = url.path(); }
  void setTimeRange(double start, double duration) override {
    start_ = start;
    duration_ = duration;
  }
  void setShouldOptimizeForNetworkUse(bool optimize) override { faststart_ = optimize; }
  void cancelExport() override { cancel_.store(true); }
  std::int64_t status() const override { return status_.load(); }
  std::optional<PlatformError> error() const override {
    std::lock_guard lock(mutex_);
    return error_;
  }

  void exportAsynchronously(UniqueFunction<void()> completion) override {
    status_.store(exporting);
    ++*running_;
    auto self = shared_from_this();
    std::thread([self, completion = std::move(completion)]() mutable {
      self->run();
      completion();
      --*self->running_;
    }).detach();
  }

 private:
  void run() {
    // ExportSession::Status names the session states here; outcomes are the project's Status.
    ::velqor::Status outcome;
    if (type_ != fileTypeMPEG4)
      outcome = ::velqor::Status::failedPrecondition("The requested output file type is not supported.");
    else if (output_.empty())
      outcome = ::velqor::Status::failedPrecondition("No output location was given for the export.");
    else
      outcome = MovieRemux(input_, output_, start_, duration_, faststart_, cancel_).run();
    if (outcome.ok()) return status_.store(completed);
    if (outcome.code() == ::velqor::Status::Code::cancelled) return status_.store(cancelled);
    std::lock_guard lock(mutex_);
    error_ = PlatformError{kDomain, errorCode(outcome.code()), outcome.message()};
    status_.store(failed);
  }

  std::string input_;
  std::shared_ptr<std::atomic<int>> running_;
  std::string type_;
  std::string output_;
  double start_ = 0;
  double duration_ = std::nan("");
  bool faststart_ = false;
  std::atomic<bool> cancel_{false};
  std::atomic<std::int64_t> status_{unknown};
  mutable std::mutex mutex_;
  std::optional<PlatformError> error_;
};

}  // namespace

double FfmpegMediaExport::assetDuration(const Url& asset) {
  AvInput in;
  if (MovieRemux::openInput(asset.path(), in) < 0 || in->duration == AV_NOPTS_VALUE || in->duration < 0) return std::nan("");
  return static_cast<double>(in->duration) / AV_TIME_BASE;
}

std::shared_ptr<ExportSession> FfmpegMediaExport::makeSession(const Url& asset, const std::string& preset) {
  if (preset != ExportSession::presetPassthrough) return nullptr;
  return std::make_shared<FfmpegExportSession>(asset.path(), running_);
}

}  // namespace velqor
