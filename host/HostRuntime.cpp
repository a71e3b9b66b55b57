#include "host/HostRuntime.h"

#include <thread>

namespace velqor {

HostRuntime::HostRuntime(HostOperationTable operations, std::shared_ptr<ManualExecutor> mainQueue,
                         std::shared_ptr<const CommandDelegate> delegate)
    : operations_(std::move(operations)),
      mainQueue_(std::move(mainQueue)),
      delegate_(std::move(delegate)) {}

void HostRuntime::addActivitySource(ActivitySource source) { sources_.push_back(std::move(source)); }

bool HostRuntime::hasOperation(const std::string& name) const { return operations_.count(name) > 0; }

std::vector<std::string> HostRuntime::operationNames() const {
  std::vector<std::string> names;
  for (const auto& entry : operations_) names.push_back(entry.first);
  return names;
}

std::optional<std::string> HostRuntime::callCommand(const std::string& name, Array arguments) {
  auto it = operations_.find(name);
  if (it == operations_.end()) return std::nullopt;
  std::string id = "VelqorCamera" + std::to_string(nextCallback_++);
  std::string method = name;
  if (!method.empty() && method.back() == ':') method.pop_back();
  auto command = std::make_shared<VelqorCommand>(id, method, std::move(arguments));
  HostCall call;
  call.callback = std::make_shared<CallBackManager>(command, delegate_, answers_);
  it->second(call);
  return id;
}

std::optional<Value> HostRuntime::callPlain(const std::string& name, Value argument) {
  auto it = operations_.find(name);
  if (it == operations_.end()) return std::nullopt;
  HostCall call;
  call.argument = std::move(argument);
  return it->second(call);
}

std::vector<std::string> HostRuntime::busySources() const {
  std::vector<std::string> busy;
  for (const auto& s : sources_)
    if (!s.idle()) busy.push_back(s.name);
  return busy;
}

bool HostRuntime::everythingIdle() const {
  for (const auto& s : sources_)
    if (!s.idle()) return false;
  return !mainQueue_->hasPending();
}

HostRuntime::RunResult HostRuntime::runUntilAnswered(const std::string& callbackId,
                                                     std::chrono::milliseconds timeout) {
  auto deadline = std::chrono::steady_clock::now() + timeout;
  for (;;) {
    mainQueue_->runPending();
    if (answers_->isAnswered(callbackId)) return RunResult::answered;
    // Every source posts its follow-up work before it reports idle, and the
    // sources are asked before the queue: all idle and nothing queued means
    // nothing more can come.
    if (everythingIdle()) return RunResult::quiescent;
    if (std::chrono::steady_clock::now() >= deadline) return RunResult::timedOut;
    mainQueue_->waitForWork(std::chrono::milliseconds(2));
  }
}

bool HostRuntime::runUntilQuiescent(std::chrono::milliseconds timeout) {
  auto deadline = std::chrono::steady_clock::now() + timeout;
  for (;;) {
    mainQueue_->runPending();
    if (everythingIdle()) return true;
    if (std::chrono::steady_clock::now() >= deadline) return false;
    mainQueue_->waitForWork(std::chrono::milliseconds(2));
  }
}

}  // namespace velqor
