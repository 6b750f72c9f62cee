#pragma once
// Text for the duration of a call.

#include <cstdint>

#include "Common/Internal/TrackedBuffer.h"
#include "Platform/Platform.h"

namespace tarn {

/// A name from the caller, made wide; null when it cannot be.
class WideName {
 public:
  explicit WideName(const char* name) noexcept {
    const uint64_t room = platform::WideRoom(name);
    if (room == 0) return;
    text_ = TrackedBuffer<wchar_t>(room, TARN_HERE);
    if (text_ && !platform::NarrowToWide(name, text_.data(), room)) text_.Reset();
  }
  operator const wchar_t*() const noexcept { return text_.data(); }

 private:
  TrackedBuffer<wchar_t> text_;
};

}  // namespace tarn
