#pragma once

#include <ostream>
#include <string>
#include <utility>

namespace velqor {

/// The outcome of an operation that can fail, carried as a value across every
/// boundary of the project (no exceptions leave a library).
///
/// Threads: a plain value; copy it freely, on any thread.
class Status {
 public:
  enum class Code {
    ok,
    invalidArgument,
    notFound,
    alreadyExists,
    failedPrecondition,
    resourceExhausted,
    unavailable,
    dataLoss,
    cancelled,
    internal,
  };

  Status() = default;
  Status(Code code, std::string message) : code_(code), message_(std::move(message)) {}

  static Status okStatus() { return Status(); }
  static Status invalidArgument(std::string m) { return {Code::invalidArgument, std::move(m)}; }
  static Status notFound(std::string m) { return {Code::notFound, std::move(m)}; }
  static Status alreadyExists(std::string m) { return {Code::alreadyExists, std::move(m)}; }
  static Status failedPrecondition(std::string m) { return {Code::failedPrecondition, std::move(m)}; }
  static Status resourceExhausted(std::string m) { return {Code::resourceExhausted, std::move(m)}; }
  static Status unavailable(std::string m) { return {Code::unavailable, std::move(m)}; }
  static Status dataLoss(std::string m) { return {Code::dataLoss, std::move(m)}; }
  static Status cancelled(std::string m) { return {Code::cancelled, std::move(m)}; }
  static Status internal(std::string m) { return {Code::internal, std::move(m)}; }

  bool ok() const { return code_ == Code::ok; }
  Code code() const { return code_; }
  const std::string& message() const { return message_; }
  std::string toString() const;

  friend bool operator==(const Status& a, const Status& b) {
    return a.code_ == b.code_ && a.message_ == b.message_;
  }

 private:
  Code code_ = Code::ok;
  std::string message_;
};

const char* codeName(Status::Code code);
std::ostream& operator<<(std::ostream& os, const Status& s);

#define VELQOR_CONCAT_INNER(a, b) a##b
#define VELQOR_CONCAT(a, b) VELQOR_CONCAT_INNER(a, b)

#define RETURN_IF_ERROR(expr)              \
  do {                                     \
    ::velqor::Status _st = (expr);         \
    if (!_st.ok()) return _st;             \
  } while (0)

#define ASSIGN_OR_RETURN_IMPL(tmp, lhs, expr) \
  auto tmp = (expr);                          \
  if (!tmp.ok()) return tmp.status();         \
  lhs = std::move(tmp).value()

#define ASSIGN_OR_RETURN(lhs, expr) \
  ASSIGN_OR_RETURN_IMPL(VELQOR_CONCAT(_status_or_, __LINE__), lhs, expr)

}  // namespace velqor
