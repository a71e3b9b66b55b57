#pragma once

#include <memory>
#include <string>

#include "host/AnswerLog.h"
#include "host/CommandDelegate.h"
#include "host/CommandStatus.h"
#include "host/VelqorCommand.h"

namespace velqor {

// The answer channel of one command. The host owns it; the plug-in keeps
// shared references while it works on the command.
//
// Threads: every operation may be called from any thread.
class CallBackManager {
 public:
  CallBackManager(std::shared_ptr<const VelqorCommand> command,
                  std::shared_ptr<const CommandDelegate> delegate,
                  std::shared_ptr<AnswerLog> log)
      : command_(std::move(command)), delegate_(std::move(delegate)), log_(std::move(log)) {}

  const VelqorCommand& command() const { return *command_; }
  // Optional: a host may run without a command delegate.
  const CommandDelegate* commandDelegate() const { return delegate_.get(); }

  void success(bool keepCallback);
  void success(const Dictionary& data, bool keepCallback);
  void error(CommandStatus status, const std::string& message, bool keepCallback);
  void error(CommandStatus status, const Dictionary& payload, bool keepCallback);

 private:
  void send(Answer answer);

  std::shared_ptr<const VelqorCommand> command_;
  std::shared_ptr<const CommandDelegate> delegate_;
  std::shared_ptr<AnswerLog> log_;
};

}  // namespace velqor
