#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/AnswerLog.h"
#include "host/CommandDelegate.h"
#include "host/HostCall.h"
#include "host/ManualExecutor.h"

namespace velqor {

// The host side of the plug-in contract: turns calls by name into commands,
// owns their callback managers and the log of their answers, and drives the
// main queue.
//
// Threads: created and driven on one thread (the process's main thread), which
// runs the main queue. Answers may arrive from any thread.
class HostRuntime {
 public:
  // Something besides the main queue that may still produce work: the worker
  // pool, a platform queue, a pending location fix. `idle` must stay false
  // until the source has posted whatever its work leads to: quiescence is
  // decided from these answers alone, without waiting to see.
  struct ActivitySource {
    std::string name;
    std::function<bool()> idle;
  };

  HostRuntime(HostOperationTable operations, std::shared_ptr<ManualExecutor> mainQueue,
              std::shared_ptr<const CommandDelegate> delegate = nullptr);

  void addActivitySource(ActivitySource source);

  // Calls a command operation ("takePicture:", "cleanup:") with a new command;
  // returns its callback id, or none when there is no such operation.
  std::optional<std::string> callCommand(const std::string& name, Array arguments);
  // Calls a plain operation with one argument (or none); none when unknown.
  std::optional<Value> callPlain(const std::string& name, Value argument = Value());

  bool hasOperation(const std::string& name) const;
  // The names of every operation, sorted.
  std::vector<std::string> operationNames() const;

  enum class RunResult { answered, quiescent, timedOut };
  // Runs the main queue until the command is answered, nothing anywhere can
  // make progress any more, or the timeout passes.
  RunResult runUntilAnswered(const std::string& callbackId, std::chrono::milliseconds timeout);
  // Runs until nothing can make progress (or the timeout passes); true when quiescent.
  bool runUntilQuiescent(std::chrono::milliseconds timeout);

  const std::shared_ptr<AnswerLog>& answers() const { return answers_; }
  ManualExecutor& mainQueue() { return *mainQueue_; }
  // Names of the activity sources that are still busy.
  std::vector<std::string> busySources() const;

 private:
  bool everythingIdle() const;

  HostOperationTable operations_;
  std::shared_ptr<ManualExecutor> mainQueue_;
  std::shared_ptr<const CommandDelegate> delegate_;
  std::shared_ptr<AnswerLog> answers_ = std::make_shared<AnswerLog>();
  std::vector<ActivitySource> sources_;
  int nextCallback_ = 1;
};

}  // namespace velqor
