/** @file
 *  Progress of long operations, told to a callable that may stop them. Part of tarn.hpp.
 */
#ifndef TARN_PROGRESS_HPP
#define TARN_PROGRESS_HPP

#include <utility>

#include "result.hpp"
#include "settings.h"

namespace tarn {
inline namespace v15 {

namespace detail {

/** What the library's callback finds behind its user data. */
struct ProgressLink {
  explicit ProgressLink(int32_t (*call)(ProgressLink*, int32_t)) noexcept : ask(call) {}
  int32_t (*ask)(ProgressLink* self, int32_t percent);
#if !defined(TARN_NO_EXCEPTIONS)
  std::exception_ptr thrown;
#endif
};

/** Nothing may unwind through the library: what the callable throws waits here until the operation has returned. */
inline int32_t progressCallback(int32_t percent, void* userData) noexcept {
  auto* const link = static_cast<ProgressLink*>(userData);
#if defined(TARN_NO_EXCEPTIONS)
  return link->ask(link, percent);
#else
  try {
    link->thrown = nullptr;
    return link->ask(link, percent);
  } catch (...) {
    link->thrown = std::current_exception();
    return kCancelled;
  }
#endif
}

/** Throws on what a callable threw during the operation that ended with `status`. */
inline void rethrowThrown([[maybe_unused]] int32_t status) {
#if !defined(TARN_NO_EXCEPTIONS)
  if (status != kCancelled) return;
  void *userData = nullptr, *copyUserData = nullptr;
  const bool ours = T_GetStatusCallBack(&userData) == &progressCallback;
  const bool copyOurs = T_GetCopyStatusCallBack(&copyUserData) == &progressCallback;
  for (void* data : {ours ? userData : nullptr, copyOurs ? copyUserData : nullptr}) {
    if (!data) continue;
    if (std::exception_ptr thrown = std::exchange(static_cast<ProgressLink*>(data)->thrown, nullptr); thrown)
      std::rethrow_exception(std::move(thrown));
  }
#endif
}

/** The end of every call that can be stopped. */
inline Result<void> done(int32_t status) {
  if (status == SUCCESS) return {};
  rethrowThrown(status);
  return Failure{status};
}

}  // namespace detail

/** Tells a callable the progress of all operations of this thread, copies included, while it lives; then the callbacks
 *  are again what they were. Scopes nest; the inner one is told. One scope lives and dies on one thread.
 *
 *      tarn::ProgressScope watch([&](int percent) { return !stopButton.pressed(); });
 *
 *  The callable is called with percent 0..100 on this thread and gives
 *    - nothing: the operation goes on;
 *    - a bool: false stops it with kCancelled;
 *    - a status: any but SUCCESS stops it and is its result.
 *  What it throws stops the operation as well, and the method of Bitmap or BitmapList that was called throws it on
 * after the library has put everything back as it was. Around plain C calls the result is kCancelled; ask rethrow(). */
template <class F>
class ProgressScope : private detail::ProgressLink {
 public:
  explicit ProgressScope(F callable) noexcept(std::is_nothrow_move_constructible_v<F>)
      : ProgressLink(&ProgressScope::call), callable_(std::move(callable)) {
    ProgressLink* const link = this;
    T_SetStatusCallBack(&detail::progressCallback, link, &previous_, &previousData_);
    T_SetCopyStatusCallBack(&detail::progressCallback, link, &previousCopy_, &previousCopyData_);
  }
  ~ProgressScope() {
    T_SetStatusCallBack(previous_, previousData_, nullptr, nullptr);
    T_SetCopyStatusCallBack(previousCopy_, previousCopyData_, nullptr, nullptr);
  }
  ProgressScope(const ProgressScope&) = delete;
  ProgressScope& operator=(const ProgressScope&) = delete;

  /** Throws what the callable threw during the last operation, once; does nothing when it threw nothing. */
  void rethrow() {
#if !defined(TARN_NO_EXCEPTIONS)
    if (std::exception_ptr caught = std::exchange(thrown, nullptr); caught) std::rethrow_exception(std::move(caught));
#endif
  }

 private:
  static int32_t call(ProgressLink* link, int32_t percent) {
    F& callable = static_cast<ProgressScope*>(link)->callable_;
    using Answer = std::invoke_result_t<F&, int32_t>;
    if constexpr (std::is_void_v<Answer>) {
      std::invoke(callable, percent);
      return SUCCESS;
    } else if constexpr (std::is_same_v<std::remove_cvref_t<Answer>, bool>) {
      return std::invoke(callable, percent) ? SUCCESS : kCancelled;
    } else {
      return static_cast<int32_t>(std::invoke(callable, percent));
    }
  }

  F callable_;
  T_StatusCallback previous_ = nullptr;
  T_StatusCallback previousCopy_ = nullptr;
  void* previousData_ = nullptr;
  void* previousCopyData_ = nullptr;
};

}  // namespace v15
}  // namespace tarn

#endif
