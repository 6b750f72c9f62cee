#pragma once
// A 32-bit status that must be looked at. Its only test is Ok(): a callback's own value may have any sign.

#include <cstdint>

#include "tarn/types.h"

namespace tarn {

class [[nodiscard]] Status {
 public:
  constexpr Status(int32_t value) noexcept : code(value) {}  // NOLINT: statuses are returned as plain codes
  [[nodiscard]] constexpr bool Ok() const noexcept { return code == SUCCESS; }
  int32_t code;
};

/// Returns from the calling function with the status of an expression unless it is SUCCESS.
#define TARN_TRY(expression)                                                                         \
  do {                                                                                               \
    if (const ::tarn::Status tarnStatus_ = (expression); !tarnStatus_.Ok()) return tarnStatus_.code; \
  } while (false)

/// A step to reverse at the end of the scope unless Dismiss is called.
template <class F>
class Undo {
 public:
  explicit Undo(F step) noexcept : step_(step) {}
  ~Undo() {
    if (live_) step_();
  }
  Undo(const Undo&) = delete;
  Undo& operator=(const Undo&) = delete;
  void Dismiss() noexcept { live_ = false; }

 private:
  F step_;
  bool live_ = true;
};

}  // namespace tarn
