// Status and Result<T>: how every operation in Klipora reports failure.
//
// A Status is ok or carries a code and a human-readable message; Result<T> is a
// value or a Status. Nothing in our code throws across a module boundary: code
// that calls a throwing library catches in the one file that calls it and
// returns a Status. Both types are plain values, safe to copy between threads.
#pragma once

#include <string>
#include <string_view>
#include <utility>

#include <tl/expected.hpp>

namespace klipora {

class [[nodiscard]] Status {
 public:
  enum class Code {
    kOk = 0,
    kNotFound,
    kInvalidArgument,
    kIoError,
    kCorruption,
    kAlreadyExists,
    kUnavailable,
    kNoSpace,
    kPermissionDenied,
    kCancelled,
    kTimedOut,
    kFailedPrecondition,
    kInternal,
  };

  Status() = default;
  Status(Code code, std::string message) : code_(code), message_(std::move(message)) {}
  // Lets RETURN_IF_ERROR and ASSIGN_OR_RETURN serve functions returning Status.
  Status(tl::unexpected<Status> error) : Status(std::move(error.value())) {}  // NOLINT

  static Status Ok() { return Status(); }
  static Status NotFound(std::string m) { return {Code::kNotFound, std::move(m)}; }
  static Status InvalidArgument(std::string m) { return {Code::kInvalidArgument, std::move(m)}; }
  static Status IoError(std::string m) { return {Code::kIoError, std::move(m)}; }
  static Status Corruption(std::string m) { return {Code::kCorruption, std::move(m)}; }
  static Status AlreadyExists(std::string m) { return {Code::kAlreadyExists, std::move(m)}; }
  static Status Unavailable(std::string m) { return {Code::kUnavailable, std::move(m)}; }
  static Status NoSpace(std::string m) { return {Code::kNoSpace, std::move(m)}; }
  static Status PermissionDenied(std::string m) {
    return {Code::kPermissionDenied, std::move(m)};
  }
  static Status Cancelled(std::string m) { return {Code::kCancelled, std::move(m)}; }
  static Status TimedOut(std::string m) { return {Code::kTimedOut, std::move(m)}; }
  static Status FailedPrecondition(std::string m) {
    return {Code::kFailedPrecondition, std::move(m)};
  }
  static Status Internal(std::string m) { return {Code::kInternal, std::move(m)}; }
  // Maps an errno value to the matching code; `context` leads the message.
  static Status FromErrno(int err, std::string_view context);

  bool ok() const { return code_ == Code::kOk; }
  Code code() const { return code_; }
  const std::string& message() const { return message_; }
  // "ok", or the message (the code is implied by the message's wording).
  std::string ToString() const { return ok() ? "ok" : message_; }
  // The same status with `context` and ": " in front of the message.
  Status WithContext(std::string_view context) const;

  bool operator==(const Status& o) const = default;

 private:
  Code code_ = Code::kOk;
  std::string message_;
};

template <typename T>
using Result = tl::expected<T, Status>;

// Turns a failed Status into the error of a Result: `return Err(status);`.
inline tl::unexpected<Status> Err(Status s) { return tl::unexpected<Status>(std::move(s)); }

}  // namespace klipora

#define KLIPORA_CONCAT_INNER(a, b) a##b
#define KLIPORA_CONCAT(a, b) KLIPORA_CONCAT_INNER(a, b)

// Returns the Status from the enclosing function when `expr` fails. Works in
// functions returning Status or Result<T>.
#define RETURN_IF_ERROR(expr)                                          \
  do {                                                                 \
    ::klipora::Status klipora_status_ = (expr);                        \
    if (!klipora_status_.ok()) return ::klipora::Err(klipora_status_); \
  } while (0)

// ASSIGN_OR_RETURN(auto x, MakeX()); declares x from a Result or returns its error.
#define ASSIGN_OR_RETURN(lhs, expr) \
  ASSIGN_OR_RETURN_IMPL(KLIPORA_CONCAT(klipora_result_, __LINE__), lhs, expr)
#define ASSIGN_OR_RETURN_IMPL(tmp, lhs, expr)             \
  auto tmp = (expr);                                      \
  if (!tmp.has_value()) return ::klipora::Err(tmp.error()); \
  lhs = std::move(*tmp)
