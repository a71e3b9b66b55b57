#pragma once

#include <memory>
#include <type_traits>
#include <utility>

namespace velqor {

// A move-only callable wrapper: like std::function, but it can hold lambdas that
// capture move-only state (unique_ptr, coroutine handles, other UniqueFunctions).
// Calling an empty UniqueFunction is a programming error.
template <typename Signature>
class UniqueFunction;

template <typename R, typename... Args>
class UniqueFunction<R(Args...)> {
 public:
  UniqueFunction() = default;
  UniqueFunction(std::nullptr_t) {}

  template <typename F,
            typename = std::enable_if_t<!std::is_same_v<std::decay_t<F>, UniqueFunction> &&
                                        std::is_invocable_r_v<R, F&, Args...>>>
  UniqueFunction(F&& f) : impl_(std::make_unique<Model<std::decay_t<F>>>(std::forward<F>(f))) {}

  UniqueFunction(UniqueFunction&&) noexcept = default;
  UniqueFunction& operator=(UniqueFunction&&) noexcept = default;
  UniqueFunction(const UniqueFunction&) = delete;
  UniqueFunction& operator=(const UniqueFunction&) = delete;

  explicit operator bool() const noexcept { return impl_ != nullptr; }

  R operator()(Args... args) { return impl_->call(std::forward<Args>(args)...); }

 private:
  struct Concept {
    virtual ~Concept() = default;
    virtual R call(Args... args) = 0;
  };
  template <typename F>
  struct Model final : Concept {
    explicit Model(F&& f) : fn(std::move(f)) {}
    explicit Model(const F& f) : fn(f) {}
    R call(Args... args) override { return fn(std::forward<Args>(args)...); }
    F fn;
  };
  std::unique_ptr<Concept> impl_;
};

}  // namespace velqor
