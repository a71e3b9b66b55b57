#pragma once

#include <atomic>
#include <coroutine>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "host/CompletionMonitor.h"
#include "host/Executor.h"
#include "host/UniqueFunction.h"

namespace velqor {

namespace detail {

template <typename T>
struct CompletionState {
  std::string operation;
  CompletionMonitor* monitor = nullptr;
  Executor* resumeOn = nullptr;
  std::coroutine_handle<> handle;
  std::optional<T> result;
  std::atomic<int> calls{0};
};

}  // namespace detail

// The one-shot resume function handed to a callback-style platform service.
// Copyable, so any completion type can carry it. The first call resumes the
// waiting task on its executor; a second call is reported and ignored; when the
// last copy dies uncalled, that is reported too and the task stays suspended.
template <typename T>
class Resumer {
 public:
  explicit Resumer(std::shared_ptr<detail::CompletionState<T>> state)
      : guard_(std::make_shared<Guard>(state)), state_(std::move(state)) {}

  void operator()(T value) const {
    if (state_->calls.fetch_add(1) > 0) {
      if (state_->monitor) state_->monitor->completionCalledTwice(state_->operation);
      return;
    }
    state_->result.emplace(std::move(value));
    auto h = state_->handle;
    state_->resumeOn->post([h] { h.resume(); });
  }

 private:
  struct Guard {
    explicit Guard(std::shared_ptr<detail::CompletionState<T>> s) : state(std::move(s)) {}
    ~Guard() {
      if (state->calls.load() == 0 && state->monitor)
        state->monitor->completionNeverCalled(state->operation);
    }
    std::shared_ptr<detail::CompletionState<T>> state;
  };
  std::shared_ptr<Guard> guard_;
  std::shared_ptr<detail::CompletionState<T>> state_;
};

// Awaits a callback-style operation: `start` receives a Resumer<T> and must
// hand it to the platform. The task resumes on `resumeOn` with the value the
// completion delivered. `operation` names the call in misuse reports.
template <typename T>
class CompletionAwaitable {
 public:
  CompletionAwaitable(std::string operation, CompletionMonitor* monitor, Executor& resumeOn,
                      UniqueFunction<void(Resumer<T>)> start)
      : state_(std::make_shared<detail::CompletionState<T>>()), start_(std::move(start)) {
    state_->operation = std::move(operation);
    state_->monitor = monitor;
    state_->resumeOn = &resumeOn;
  }

  bool await_ready() const noexcept { return false; }
  void await_suspend(std::coroutine_handle<> h) {
    state_->handle = h;
    // The completion may resume this frame on another thread before `start`
    // returns, so nothing of the frame is touched after handing it over.
    auto start = std::move(start_);
    auto state = state_;
    start(Resumer<T>(std::move(state)));
  }
  T await_resume() { return std::move(*state_->result); }

 private:
  std::shared_ptr<detail::CompletionState<T>> state_;
  UniqueFunction<void(Resumer<T>)> start_;
};

template <typename T>
CompletionAwaitable<T> awaitCompletion(std::string operation, CompletionMonitor* monitor,
                                       Executor& resumeOn,
                                       UniqueFunction<void(Resumer<T>)> start) {
  return CompletionAwaitable<T>(std::move(operation), monitor, resumeOn, std::move(start));
}

}  // namespace velqor
