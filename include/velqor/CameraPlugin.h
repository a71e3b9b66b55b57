#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "velqor/CommandAnswer.h"
#include "velqor/StatusOr.h"

namespace velqor {

/// The VelqorCamera plug-in object with the host side of its contract around
/// it. The host calls the plug-in's operations by their host names:
///
/// | Host name | Kind | Argument | Result |
/// |---|---|---|---|
/// | `takePicture:` | command | the 13 positional arguments | answers |
/// | `cleanup:` | command | none | one answer |
/// | `retryPermission` | plain | none | none |
/// | `usesGeolocation` | plain | none | Boolean |
/// | `urlTransformer:` | plain | URL string | URL string |
/// | `tempFilePath:` | plain | extension | path |
/// | `getLocalizingString:` | plain | key | text |
/// | `imagePickerControllerReturnImageResult` | plain | none | none |
///
/// Each command call gets a callback manager of its own; the plug-in answers
/// through it exactly once, or leaves the command open where its contract says
/// so (see CameraSession::whyOpen). Answers are kept here in arrival order.
///
/// Ownership: a CameraSession owns its plug-in; the reference stays valid as
/// long as the session.
///
/// Threads: call and run on the thread that opened the session (the host's
/// main thread, which runs the plug-in's main queue). The answer handler runs
/// on whichever thread the plug-in answers from (main, worker, platform or
/// location thread), one answer at a time.
class CameraPlugin {
 public:
  /// The class name under which a host registers the plug-in.
  static constexpr const char* kClassName = "VelqorCameraPlugin";

  ~CameraPlugin();
  CameraPlugin(const CameraPlugin&) = delete;
  CameraPlugin& operator=(const CameraPlugin&) = delete;

  /// The host names of every operation, sorted.
  std::vector<std::string> operationNames() const;

  /// Calls a command operation with a JSON array of arguments and returns the
  /// new command's callback id. Refused (invalid argument) for an unknown
  /// operation, a plain one, or arguments that are not a JSON array.
  StatusOr<std::string> callCommand(std::string_view operation, std::string_view argumentsJson = "[]");

  /// Calls a plain operation with one JSON argument and returns its result as
  /// JSON (`null` for operations without one). Refused for an unknown
  /// operation, a command one, or malformed JSON.
  StatusOr<std::string> callPlain(std::string_view operation, std::string_view argumentJson = "null");

  /// How a run of the main queue ended.
  enum class RunOutcome {
    answered,  ///< the command received an answer
    open,      ///< nothing anywhere can make progress, and the command is unanswered
    timedOut,  ///< the timeout passed first
  };

  /// Runs the main queue on the calling thread until the command is answered,
  /// nothing more can happen, or `timeout` passes.
  RunOutcome runUntilAnswered(const std::string& callbackId, std::chrono::milliseconds timeout);

  /// Runs until nothing anywhere can make progress; false when `timeout` passed first.
  bool runUntilQuiescent(std::chrono::milliseconds timeout);

  /// Every answer received so far, in arrival order.
  std::vector<CommandAnswer> answers() const;
  /// The answers of one command.
  std::vector<CommandAnswer> answersFor(const std::string& callbackId) const;

  /// Called with each answer as it arrives (replacing any earlier handler).
  void setAnswerHandler(std::function<void(const CommandAnswer&)> handler);

  /// Not for embedders: the session's own wiring.
  struct Wiring;

 private:
  friend class CameraSession;
  explicit CameraPlugin(std::unique_ptr<Wiring> wiring);
  std::unique_ptr<Wiring> wiring_;
};

}  // namespace velqor
