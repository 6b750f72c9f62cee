#pragma once
// Two lines combined byte by byte or sample by sample, at any address. Target and source are the same or do not
// overlap.

#include <cstdint>

namespace tarn {

/// Every function of two bits: r = (d & ((s & and1) ^ xor1)) ^ ((s & and2) ^ xor2), each constant all zeros or all
/// ones.
struct BitRule {
  uint64_t and1, xor1, and2, xor2;
};

enum class SampleOperation : uint8_t { kAdd, kSubtract, kAverage, kMinimum, kMaximum, kMultiply, kCount };

/// Bits of eight bytes, again and again from the first of the line on, that are inverted on the way, and bits of the
/// target that stay.
struct SampleRule {
  uint64_t source, target, result, keep;
};

struct CombineKernels {
  void (*bits)(uint8_t* target, const uint8_t* source, uint64_t bytes, const BitRule& rule) noexcept;

  /// Samples of 8 and of 16 bits; `bytes` is a whole number of samples. M is all ones:
  /// sum at most M, difference at least 0, (d + s + 1) >> 1, smaller, larger, d * s / M rounded.
  using Samples = void (*)(uint8_t* target, const uint8_t* source, uint64_t bytes, const SampleRule& rule) noexcept;
  Samples samples8[static_cast<int>(SampleOperation::kCount)];
  Samples samples16[static_cast<int>(SampleOperation::kCount)];

  /// (s * a + d * (M - a)) / M, rounded; alpha has a sample for each one of the lines. Nothing is kept.
  using Blend = void (*)(uint8_t* target, const uint8_t* source, const uint8_t* alpha, uint64_t bytes,
                         const SampleRule& rule) noexcept;
  Blend blend8, blend16;
};

extern const CombineKernels kCombinePortable;
extern const CombineKernels kCombineAvx2;

}  // namespace tarn
