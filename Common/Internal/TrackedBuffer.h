#pragma once
// Memory from the tracked heap that frees itself.

#include <cstdint>
#include <utility>

#include "Platform/Here.h"
#include "tarn/memory.h"

namespace tarn {

template <class T>
class TrackedBuffer {
 public:
  TrackedBuffer() noexcept = default;
  /// count elements, not cleared; test with operator bool. A count of 0 still gives a valid, empty block.
  TrackedBuffer(uint64_t count, Here here) noexcept
      : data_(static_cast<T*>(T_LocalAlloc(count ? count : 1, sizeof(T), here.line, here.file))), here_(here) {}
  ~TrackedBuffer() { Reset(); }
  TrackedBuffer(TrackedBuffer&& other) noexcept : data_(std::exchange(other.data_, nullptr)), here_(other.here_) {}
  TrackedBuffer& operator=(TrackedBuffer&& other) noexcept {
    std::swap(data_, other.data_);
    std::swap(here_, other.here_);
    return *this;
  }
  static TrackedBuffer Zeroed(uint64_t count, Here here) noexcept {
    TrackedBuffer buffer;
    buffer.data_ = static_cast<T*>(T_LocalAllocInit(count ? count : 1, sizeof(T), here.line, here.file));
    buffer.here_ = here;
    return buffer;
  }
  void Reset() noexcept {
    if (data_) T_LocalFree(std::exchange(data_, nullptr), here_.line, here_.file);
  }
  explicit operator bool() const noexcept { return data_ != nullptr; }
  T* data() noexcept { return data_; }
  const T* data() const noexcept { return data_; }
  T& operator[](uint64_t index) noexcept { return data_[index]; }
  const T& operator[](uint64_t index) const noexcept { return data_[index]; }

 private:
  T* data_ = nullptr;
  Here here_{};
};

}  // namespace tarn
