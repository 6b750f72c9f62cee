/** @file
 *  Results of the C++ face: a status, or a value. Part of tarn.hpp; needs the C headers and the C++20 library only.
 *
 *  Names that stand in std::expected are spelt as there. Nothing throws but value() of a failure, and it only where
 *  exceptions are on; with -fno-exceptions, or TARN_NO_EXCEPTIONS defined, it ends the program with std::abort().
 */
#ifndef TARN_RESULT_HPP
#define TARN_RESULT_HPP

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <functional>
#include <optional>
#include <type_traits>
#include <utility>

#include "types.h"

#if !defined(TARN_NO_EXCEPTIONS) && !defined(__cpp_exceptions)
#define TARN_NO_EXCEPTIONS 1
#endif

namespace tarn {
inline namespace v15 {

/** What an operation gives that a progress callable stopped by answering false, or by throwing. */
inline constexpr int32_t kCancelled = 2;

/** The name of a status, "ERR_NO_MEMORY" for -1; "CANCELLED" for kCancelled, "status" for a number without a name, such
 *  as the answer of a callback. */
constexpr const char* statusName(int32_t status) noexcept {
  switch (status) {
    case SUCCESS:
      return "SUCCESS";
    case kCancelled:
      return "CANCELLED";
    case ERR_NO_MEMORY:
      return "ERR_NO_MEMORY";
    case ERR_NO_BITMAP:
      return "ERR_NO_BITMAP";
    case ERR_IMAGE_TOO_LARGE:
      return "ERR_IMAGE_TOO_LARGE";
    case ERR_FILE_SEEK:
      return "ERR_FILE_SEEK";
    case ERR_FILE_WRITE:
      return "ERR_FILE_WRITE";
    case ERR_FILE_READ:
      return "ERR_FILE_READ";
    case ERR_LIBRARY_NOT_LOADED:
      return "ERR_LIBRARY_NOT_LOADED";
    case ERR_EMPTY_AREA:
      return "ERR_EMPTY_AREA";
    case ERR_INVALID_PARAMETER:
      return "ERR_INVALID_PARAMETER";
    case ERR_UNSUPPORTED_FORMAT:
      return "ERR_UNSUPPORTED_FORMAT";
    case ERR_BAD_BITS_PER_PIXEL:
      return "ERR_BAD_BITS_PER_PIXEL";
    case ERR_NO_DISPATCH:
      return "ERR_NO_DISPATCH";
    case ERR_DISK_FULL:
      return "ERR_DISK_FULL";
    case ERR_BAD_STRUCT_SIZE:
      return "ERR_BAD_STRUCT_SIZE";
    case ERR_NULL_POINTER:
      return "ERR_NULL_POINTER";
    case ERR_OVERLAY_NO_BITMAP:
      return "ERR_OVERLAY_NO_BITMAP";
    case ERR_OVERLAY_INDEX:
      return "ERR_OVERLAY_INDEX";
    case ERR_SIGNED_DATA:
      return "ERR_SIGNED_DATA";
    case ERR_BAD_LUT_LENGTH:
      return "ERR_BAD_LUT_LENGTH";
    default:
      return "status";
  }
}

/** What value() throws: a status that is not SUCCESS. what() is its name and number, "ERR_NO_MEMORY (-1)". */
class Error : public std::exception {
 public:
  explicit Error(int32_t status) noexcept : status_(status) {
    std::snprintf(text_, sizeof text_, "%s (%d)", statusName(status), static_cast<int>(status));
  }
  int32_t status() const noexcept { return status_; }
  const char* what() const noexcept override { return text_; }

 private:
  int32_t status_;
  char text_[44];
};

/** A status other than SUCCESS on its way into a Result, as std::unexpected is. */
struct Failure {
  int32_t status;
};

namespace detail {
[[noreturn]] inline void fail(int32_t status) {
#if defined(TARN_NO_EXCEPTIONS)
  static_cast<void>(status);
  std::abort();
#else
  throw Error(status);
#endif
}
}  // namespace detail

/** A value, or the status that says why there is none. */
template <class T>
class [[nodiscard]] Result {
 public:
  using value_type = T;

  Result(T value) noexcept(std::is_nothrow_move_constructible_v<T>) : value_(std::move(value)) {}
  Result(Failure failure) noexcept : status_(failure.status) {}

  bool has_value() const noexcept { return value_.has_value(); }
  explicit operator bool() const noexcept { return has_value(); }

  /** SUCCESS, or why there is no value; its name; and the same to hand on. */
  int32_t status() const noexcept { return status_; }
  const char* name() const noexcept { return statusName(status_); }
  Failure failure() const noexcept { return {status_}; }

  /** The value; without one throws Error. */
  T& value() & { return require(), *value_; }
  const T& value() const& { return require(), *value_; }
  T&& value() && { return require(), std::move(*value_); }

  /** The value, which must be there. */
  T& operator*() & noexcept { return *value_; }
  const T& operator*() const& noexcept { return *value_; }
  T&& operator*() && noexcept { return std::move(*value_); }
  T* operator->() noexcept { return &*value_; }
  const T* operator->() const noexcept { return &*value_; }

  template <class U>
  T value_or(U&& other) && {
    return has_value() ? std::move(*value_) : static_cast<T>(std::forward<U>(other));
  }
  template <class U>
  T value_or(U&& other) const& {
    return has_value() ? *value_ : static_cast<T>(std::forward<U>(other));
  }

  /** next(value), itself a Result; a failure is handed on. */
  template <class F>
  auto and_then(F&& next) && -> std::invoke_result_t<F, T&&> {
    if (!has_value()) return failure();
    return std::invoke(std::forward<F>(next), std::move(*value_));
  }

 private:
  void require() const {
    if (!has_value()) detail::fail(status_);
  }

  std::optional<T> value_;
  int32_t status_ = SUCCESS;
};

/** Done, or the status that says why not. */
template <>
class [[nodiscard]] Result<void> {
 public:
  using value_type = void;

  Result() noexcept = default;
  Result(Failure failure) noexcept : status_(failure.status) {}

  bool has_value() const noexcept { return status_ == SUCCESS; }
  explicit operator bool() const noexcept { return has_value(); }
  int32_t status() const noexcept { return status_; }
  const char* name() const noexcept { return statusName(status_); }
  Failure failure() const noexcept { return {status_}; }

  /** Throws Error unless it is done. */
  void value() const {
    if (!has_value()) detail::fail(status_);
  }

  template <class F>
  auto and_then(F&& next) const -> std::invoke_result_t<F> {
    if (!has_value()) return failure();
    return std::invoke(std::forward<F>(next));
  }

 private:
  int32_t status_ = SUCCESS;
};

}  // namespace v15
}  // namespace tarn

#endif
