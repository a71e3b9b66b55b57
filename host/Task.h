#pragma once

#include <coroutine>
#include <exception>
#include <optional>
#include <utility>

#include "host/Executor.h"

namespace velqor {

// A lazy coroutine: nothing runs until the task is awaited (or started with
// `startDetached`). When it finishes it resumes its awaiter on whatever thread it
// finished on; hops between executors are explicit (`switchTo`).
//
// Threads: a task runs on one thread at a time; it may move between threads only
// at its suspension points.
template <typename T>
class Task;

namespace detail {

struct TaskPromiseBase {
  std::coroutine_handle<> continuation;

  struct FinalAwaiter {
    bool await_ready() noexcept { return false; }
    template <typename P>
    std::coroutine_handle<> await_suspend(std::coroutine_handle<P> h) noexcept {
      auto next = h.promise().continuation;
      return next ? next : std::noop_coroutine();
    }
    void await_resume() noexcept {}
  };

  std::suspend_always initial_suspend() noexcept { return {}; }
  FinalAwaiter final_suspend() noexcept { return {}; }
  // Code in this project reports failures as values; an escaping exception is a bug.
  void unhandled_exception() noexcept { std::terminate(); }
};

}  // namespace detail

template <typename T>
class [[nodiscard]] Task {
 public:
  struct promise_type : detail::TaskPromiseBase {
    std::optional<T> value;
    Task get_return_object() {
      return Task(std::coroutine_handle<promise_type>::from_promise(*this));
    }
    template <typename U>
    void return_value(U&& v) { value.emplace(std::forward<U>(v)); }
  };

  Task(Task&& other) noexcept : handle_(std::exchange(other.handle_, {})) {}
  Task& operator=(Task&& other) noexcept {
    if (this != &other) {
      if (handle_) handle_.destroy();
      handle_ = std::exchange(other.handle_, {});
    }
    return *this;
  }
  ~Task() {
    if (handle_) handle_.destroy();
  }

  bool await_ready() const noexcept { return false; }
  std::coroutine_handle<> await_suspend(std::coroutine_handle<> awaiter) noexcept {
    handle_.promise().continuation = awaiter;
    return handle_;
  }
  T await_resume() { return std::move(*handle_.promise().value); }

 private:
  explicit Task(std::coroutine_handle<promise_type> h) : handle_(h) {}
  std::coroutine_handle<promise_type> handle_;
};

template <>
class [[nodiscard]] Task<void> {
 public:
  struct promise_type : detail::TaskPromiseBase {
    Task get_return_object() {
      return Task(std::coroutine_handle<promise_type>::from_promise(*this));
    }
    void return_void() {}
  };

  Task(Task&& other) noexcept : handle_(std::exchange(other.handle_, {})) {}
  Task& operator=(Task&& other) noexcept {
    if (this != &other) {
      if (handle_) handle_.destroy();
      handle_ = std::exchange(other.handle_, {});
    }
    return *this;
  }
  ~Task() {
    if (handle_) handle_.destroy();
  }

  bool await_ready() const noexcept { return false; }
  std::coroutine_handle<> await_suspend(std::coroutine_handle<> awaiter) noexcept {
    handle_.promise().continuation = awaiter;
    return handle_;
  }
  void await_resume() {}

 private:
  explicit Task(std::coroutine_handle<promise_type> h) : handle_(h) {}
  std::coroutine_handle<promise_type> handle_;
};

// Suspends the running task and resumes it on `executor` (always queued).
class SwitchTo {
 public:
  explicit SwitchTo(Executor& executor) : executor_(executor) {}
  bool await_ready() const noexcept { return false; }
  void await_suspend(std::coroutine_handle<> h) {
    executor_.post([h] { h.resume(); });
  }
  void await_resume() const noexcept {}

 private:
  Executor& executor_;
};

inline SwitchTo switchTo(Executor& executor) { return SwitchTo(executor); }
// The two hops the plug-in makes: off the main thread into the worker pool, and
// back to the main queue.
inline SwitchTo runOnPool(Executor& pool) { return SwitchTo(pool); }
inline SwitchTo resumeOnMain(Executor& main) { return SwitchTo(main); }

namespace detail {
struct DetachedTask {
  struct promise_type {
    DetachedTask get_return_object() { return {}; }
    std::suspend_never initial_suspend() noexcept { return {}; }
    std::suspend_never final_suspend() noexcept { return {}; }
    void return_void() {}
    void unhandled_exception() noexcept { std::terminate(); }
  };
};
inline DetachedTask runDetached(Task<void> task) { co_await std::move(task); }
}  // namespace detail

// An unstructured task: queued on `executor`, runs to its end on its own, and
// frees itself. Nothing waits for it.
inline void startDetached(Executor& executor, Task<void> task) {
  executor.post([t = std::move(task)]() mutable { detail::runDetached(std::move(t)); });
}

}  // namespace velqor
