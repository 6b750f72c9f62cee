// Lines combined in steps of 64 bytes, in loops of fixed length that compilers make vectors of.

#include <cstdint>
#include <cstring>

#include "Kernels/Combine.h"

namespace tarn {
namespace {

constexpr int kStep = 64;
constexpr int kWords = kStep / 8;

template <class T>
struct Step {
  static constexpr int kCount = kStep / static_cast<int>(sizeof(T));
  alignas(kStep) T values[kCount] = {};

  void Load(const uint8_t* from, uint64_t bytes) noexcept { std::memcpy(values, from, bytes); }
  void Store(uint8_t* to, uint64_t bytes) const noexcept { std::memcpy(to, values, bytes); }
  void Invert(uint64_t pattern) noexcept {
    uint64_t words[kWords];
    std::memcpy(words, values, kStep);
    for (uint64_t& word : words) word ^= pattern;
    std::memcpy(values, words, kStep);
  }
  /// Bits of the pattern become those of `old`.
  void Keep(const uint8_t* old, uint64_t bytes, uint64_t pattern) noexcept {
    uint64_t words[kWords], before[kWords] = {};
    std::memcpy(words, values, kStep);
    std::memcpy(before, old, bytes);
    for (int i = 0; i < kWords; ++i) words[i] = (words[i] & ~pattern) | (before[i] & pattern);
    std::memcpy(values, words, kStep);
  }
};

template <class T>
constexpr uint32_t kMost = static_cast<T>(-1);
template <class T>
constexpr int kBits = 8 * static_cast<int>(sizeof(T));

/// x / (2^bits - 1), rounded, for x of at most the square of the divisor: below 2^32 with what is added.
template <class T>
constexpr uint32_t DivideByMost(uint32_t x) noexcept {
  x += 1u << (kBits<T> - 1);
  return (x + (x >> kBits<T>)) >> kBits<T>;
}

template <class T, SampleOperation kOperation>
constexpr uint32_t Apply(uint32_t d, uint32_t s) noexcept {
  switch (kOperation) {
    case SampleOperation::kAdd:
      return d + s > kMost<T> ? kMost<T> : d + s;
    case SampleOperation::kSubtract:
      return d > s ? d - s : 0;
    case SampleOperation::kAverage:
      return (d + s + 1) >> 1;
    case SampleOperation::kMinimum:
      return d < s ? d : s;
    case SampleOperation::kMaximum:
      return d > s ? d : s;
    default:
      return DivideByMost<T>(d * s);
  }
}

template <class T, SampleOperation kOperation>
void CombineStep(uint8_t* target, const uint8_t* source, uint64_t bytes, const SampleRule& rule) noexcept {
  Step<T> d, s;
  d.Load(target, bytes);
  s.Load(source, bytes);
  d.Invert(rule.target);
  s.Invert(rule.source);
  for (int i = 0; i < Step<T>::kCount; ++i)
    d.values[i] = static_cast<T>(Apply<T, kOperation>(d.values[i], s.values[i]));
  d.Invert(rule.result);
  if (rule.keep) d.Keep(target, bytes, rule.keep);
  d.Store(target, bytes);
}

template <class T, SampleOperation kOperation>
void Combine(uint8_t* target, const uint8_t* source, uint64_t bytes, const SampleRule& rule) noexcept {
  for (; bytes >= kStep; bytes -= kStep, target += kStep, source += kStep)
    CombineStep<T, kOperation>(target, source, kStep, rule);
  if (bytes) CombineStep<T, kOperation>(target, source, bytes, rule);
}

template <class T>
void BlendStep(uint8_t* target, const uint8_t* source, const uint8_t* alpha, uint64_t bytes,
               const SampleRule& rule) noexcept {
  Step<T> d, s, a;
  d.Load(target, bytes);
  s.Load(source, bytes);
  a.Load(alpha, bytes);
  d.Invert(rule.target);
  s.Invert(rule.source);
  for (int i = 0; i < Step<T>::kCount; ++i) {
    const uint32_t share = a.values[i];
    d.values[i] = static_cast<T>(DivideByMost<T>(s.values[i] * share + d.values[i] * (kMost<T> - share)));
  }
  d.Invert(rule.result);
  d.Store(target, bytes);
}

template <class T>
void Blend(uint8_t* target, const uint8_t* source, const uint8_t* alpha, uint64_t bytes,
           const SampleRule& rule) noexcept {
  for (; bytes >= kStep; bytes -= kStep, target += kStep, source += kStep, alpha += kStep)
    BlendStep<T>(target, source, alpha, kStep, rule);
  if (bytes) BlendStep<T>(target, source, alpha, bytes, rule);
}

void BitsStep(uint8_t* target, const uint8_t* source, uint64_t bytes, const BitRule& rule) noexcept {
  uint64_t d[kWords] = {}, s[kWords] = {};
  std::memcpy(d, target, bytes);
  std::memcpy(s, source, bytes);
  for (int i = 0; i < kWords; ++i) d[i] = (d[i] & ((s[i] & rule.and1) ^ rule.xor1)) ^ ((s[i] & rule.and2) ^ rule.xor2);
  std::memcpy(target, d, bytes);
}

void Bits(uint8_t* target, const uint8_t* source, uint64_t bytes, const BitRule& rule) noexcept {
  for (; bytes >= kStep; bytes -= kStep, target += kStep, source += kStep) BitsStep(target, source, kStep, rule);
  if (bytes) BitsStep(target, source, bytes, rule);
}

using Op = SampleOperation;

}  // namespace

const CombineKernels kCombinePortable = {
    .bits = Bits,
    .samples8 = {Combine<uint8_t, Op::kAdd>, Combine<uint8_t, Op::kSubtract>, Combine<uint8_t, Op::kAverage>,
                 Combine<uint8_t, Op::kMinimum>, Combine<uint8_t, Op::kMaximum>, Combine<uint8_t, Op::kMultiply>},
    .samples16 = {Combine<uint16_t, Op::kAdd>, Combine<uint16_t, Op::kSubtract>, Combine<uint16_t, Op::kAverage>,
                  Combine<uint16_t, Op::kMinimum>, Combine<uint16_t, Op::kMaximum>, Combine<uint16_t, Op::kMultiply>},
    .blend8 = Blend<uint8_t>,
    .blend16 = Blend<uint16_t>};

}  // namespace tarn
