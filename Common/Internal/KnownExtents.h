#pragma once
// How far memory of the library's own reaches, remembered from the last look-ups, so that work on single pixels neither
// waits for a lock nor walks a chain. A place holds one address with its length; whoever frees or moves the memory
// forgets it first. The caller of Holds is inside a call on a bitmap that owns the memory, so that nobody frees it
// meanwhile.

#include <atomic>
#include <bit>
#include <cstdint>

namespace tarn {

class KnownExtents {
 public:
  /// `end` bytes from the address on are known to be there. False says nothing.
  [[nodiscard]] bool Holds(const void* address, uint64_t end) const noexcept {
    const uint64_t place = PlaceOf(address).load(std::memory_order_relaxed);
    return place >> kLengthBits == Key(address) && end <= Unpacked(place) && IsKeyed(address);
  }
  void Remember(const void* address, uint64_t bytes) noexcept {
    if (IsKeyed(address))
      PlaceOf(address).store(Key(address) << kLengthBits | Packed(bytes), std::memory_order_relaxed);
  }
  void Forget(const void* address) noexcept {
    auto& place = PlaceOf(address);
    if (place.load(std::memory_order_relaxed) >> kLengthBits == Key(address)) place.store(0, std::memory_order_relaxed);
  }
  void ForgetAll() noexcept {
    for (auto& place : places_)
      if (place.load(std::memory_order_relaxed)) place.store(0, std::memory_order_relaxed);
  }

 private:
  // An address is a multiple of 16 below 2^48. A length is rounded down to 16 significant bits: what lies in the last
  // part of a long block is looked up.
  static constexpr int kKeyBits = 44;
  static constexpr int kLengthBits = 64 - kKeyBits;
  static constexpr int kMantissaBits = kLengthBits - 4;
  static constexpr int kMostShift = 15;

  static uint64_t Number(const void* address) noexcept { return reinterpret_cast<uintptr_t>(address); }
  static bool IsKeyed(const void* address) noexcept { return Number(address) % 16 == 0 && Number(address) >> 48 == 0; }
  static uint64_t Key(const void* address) noexcept { return Number(address) >> 4 & ((uint64_t{1} << kKeyBits) - 1); }
  static uint64_t Packed(uint64_t bytes) noexcept {
    const int width = 64 - std::countl_zero(bytes);
    const int shift = width > kMantissaBits ? width - kMantissaBits : 0;
    if (shift > kMostShift) return (uint64_t{1} << kLengthBits) - 1;
    return static_cast<uint64_t>(shift) << kMantissaBits | bytes >> shift;
  }
  static uint64_t Unpacked(uint64_t place) noexcept {
    const uint64_t mantissa = place & ((uint64_t{1} << kMantissaBits) - 1);
    return mantissa << (place >> kMantissaBits & kMostShift);
  }

  static constexpr uint32_t kPlaceBits = 8;
  std::atomic<uint64_t>& PlaceOf(const void* address) noexcept { return places_[Index(address)]; }
  const std::atomic<uint64_t>& PlaceOf(const void* address) const noexcept { return places_[Index(address)]; }
  static size_t Index(const void* address) noexcept {
    return (Number(address) >> 4) * UINT64_C(0x9E3779B97F4A7C15) >> (64 - kPlaceBits);
  }

  std::atomic<uint64_t> places_[1u << kPlaceBits]{};
};

extern KnownExtents knownBlocks;    // pixel blocks, by Data
extern KnownExtents knownPalettes;  // palettes and lookup tables

}  // namespace tarn
