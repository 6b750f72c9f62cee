// Lines combined 32 bytes at a time; what is left goes through the portable version.

#include <immintrin.h>

#include <cstdint>

#include "Kernels/Combine.h"

namespace tarn {
namespace {

using V = __m256i;
using Op = SampleOperation;
constexpr uint64_t kStep = 32;

V Load(const uint8_t* from) noexcept { return _mm256_loadu_si256(reinterpret_cast<const V*>(from)); }
void Store(uint8_t* to, V value) noexcept { _mm256_storeu_si256(reinterpret_cast<V*>(to), value); }
V All(uint64_t word) noexcept { return _mm256_set1_epi64x(static_cast<int64_t>(word)); }

// ---- Lanes twice as wide as samples: a sample each ------------------------------------------------------------------

struct Lanes8 {
  static V Low(V x) noexcept { return _mm256_unpacklo_epi8(x, _mm256_setzero_si256()); }
  static V High(V x) noexcept { return _mm256_unpackhi_epi8(x, _mm256_setzero_si256()); }
  static V Pack(V low, V high) noexcept { return _mm256_packus_epi16(low, high); }
  static V Times(V a, V b) noexcept { return _mm256_mullo_epi16(a, b); }
  static V Plus(V a, V b) noexcept { return _mm256_add_epi16(a, b); }
  static V Half() noexcept { return _mm256_set1_epi16(128); }
  static V Upper(V x) noexcept { return _mm256_srli_epi16(x, 8); }
};

struct Lanes16 {
  static V Low(V x) noexcept { return _mm256_unpacklo_epi16(x, _mm256_setzero_si256()); }
  static V High(V x) noexcept { return _mm256_unpackhi_epi16(x, _mm256_setzero_si256()); }
  static V Pack(V low, V high) noexcept { return _mm256_packus_epi32(low, high); }
  static V Times(V a, V b) noexcept { return _mm256_mullo_epi32(a, b); }
  static V Plus(V a, V b) noexcept { return _mm256_add_epi32(a, b); }
  static V Half() noexcept { return _mm256_set1_epi32(32768); }
  static V Upper(V x) noexcept { return _mm256_srli_epi32(x, 16); }
};

/// x / (2^bits - 1), rounded; see the portable version.
template <class Lanes>
V DivideByMost(V x) noexcept {
  x = Lanes::Plus(x, Lanes::Half());
  return Lanes::Upper(Lanes::Plus(x, Lanes::Upper(x)));
}

template <class Lanes>
V Multiply(V d, V s) noexcept {
  return Lanes::Pack(DivideByMost<Lanes>(Lanes::Times(Lanes::Low(d), Lanes::Low(s))),
                     DivideByMost<Lanes>(Lanes::Times(Lanes::High(d), Lanes::High(s))));
}

template <class Lanes>
V Mix(V d, V s, V a) noexcept {
  const V rest = _mm256_xor_si256(a, _mm256_set1_epi8(-1));
  const V low = Lanes::Plus(Lanes::Times(Lanes::Low(s), Lanes::Low(a)), Lanes::Times(Lanes::Low(d), Lanes::Low(rest)));
  const V high =
      Lanes::Plus(Lanes::Times(Lanes::High(s), Lanes::High(a)), Lanes::Times(Lanes::High(d), Lanes::High(rest)));
  return Lanes::Pack(DivideByMost<Lanes>(low), DivideByMost<Lanes>(high));
}

// ---- Operations ----------------------------------------------------------------------------------------------------

template <Op kOperation>
V Apply8(V d, V s) noexcept {
  switch (kOperation) {
    case Op::kAdd:
      return _mm256_adds_epu8(d, s);
    case Op::kSubtract:
      return _mm256_subs_epu8(d, s);
    case Op::kAverage:
      return _mm256_avg_epu8(d, s);
    case Op::kMinimum:
      return _mm256_min_epu8(d, s);
    case Op::kMaximum:
      return _mm256_max_epu8(d, s);
    default:
      return Multiply<Lanes8>(d, s);
  }
}

template <Op kOperation>
V Apply16(V d, V s) noexcept {
  switch (kOperation) {
    case Op::kAdd:
      return _mm256_adds_epu16(d, s);
    case Op::kSubtract:
      return _mm256_subs_epu16(d, s);
    case Op::kAverage:
      return _mm256_avg_epu16(d, s);
    case Op::kMinimum:
      return _mm256_min_epu16(d, s);
    case Op::kMaximum:
      return _mm256_max_epu16(d, s);
    default:
      return Multiply<Lanes16>(d, s);
  }
}

struct Patterns {
  explicit Patterns(const SampleRule& rule) noexcept
      : source(All(rule.source)), target(All(rule.target)), result(All(rule.result)), keep(All(rule.keep)) {}
  V source, target, result, keep;

  [[nodiscard]] V Finish(V made, V old) const noexcept {
    made = _mm256_xor_si256(made, result);
    return _mm256_or_si256(_mm256_andnot_si256(keep, made), _mm256_and_si256(keep, old));
  }
};

template <V (*kApply)(V d, V s) noexcept>
uint64_t Run(uint8_t* target, const uint8_t* source, uint64_t bytes, const SampleRule& rule) noexcept {
  const Patterns patterns(rule);
  uint64_t at = 0;
  for (; at + kStep <= bytes; at += kStep) {
    const V old = Load(target + at);
    const V s = _mm256_xor_si256(Load(source + at), patterns.source);
    Store(target + at, patterns.Finish(kApply(_mm256_xor_si256(old, patterns.target), s), old));
  }
  return at;
}

template <Op kOperation>
void Combine8(uint8_t* target, const uint8_t* source, uint64_t bytes, const SampleRule& rule) noexcept {
  const uint64_t at = Run<Apply8<kOperation>>(target, source, bytes, rule);
  kCombinePortable.samples8[static_cast<int>(kOperation)](target + at, source + at, bytes - at, rule);
}

template <Op kOperation>
void Combine16(uint8_t* target, const uint8_t* source, uint64_t bytes, const SampleRule& rule) noexcept {
  const uint64_t at = Run<Apply16<kOperation>>(target, source, bytes, rule);
  kCombinePortable.samples16[static_cast<int>(kOperation)](target + at, source + at, bytes - at, rule);
}

template <class Lanes>
uint64_t RunBlend(uint8_t* target, const uint8_t* source, const uint8_t* alpha, uint64_t bytes,
                  const SampleRule& rule) noexcept {
  const Patterns patterns(rule);
  uint64_t at = 0;
  for (; at + kStep <= bytes; at += kStep) {
    const V old = Load(target + at);
    const V s = _mm256_xor_si256(Load(source + at), patterns.source);
    const V mixed = Mix<Lanes>(_mm256_xor_si256(old, patterns.target), s, Load(alpha + at));
    Store(target + at, patterns.Finish(mixed, old));
  }
  return at;
}

void Blend8(uint8_t* target, const uint8_t* source, const uint8_t* alpha, uint64_t bytes,
            const SampleRule& rule) noexcept {
  const uint64_t at = RunBlend<Lanes8>(target, source, alpha, bytes, rule);
  kCombinePortable.blend8(target + at, source + at, alpha + at, bytes - at, rule);
}

void Blend16(uint8_t* target, const uint8_t* source, const uint8_t* alpha, uint64_t bytes,
             const SampleRule& rule) noexcept {
  const uint64_t at = RunBlend<Lanes16>(target, source, alpha, bytes, rule);
  kCombinePortable.blend16(target + at, source + at, alpha + at, bytes - at, rule);
}

void Bits(uint8_t* target, const uint8_t* source, uint64_t bytes, const BitRule& rule) noexcept {
  const V and1 = All(rule.and1), xor1 = All(rule.xor1), and2 = All(rule.and2), xor2 = All(rule.xor2);
  uint64_t at = 0;
  for (; at + kStep <= bytes; at += kStep) {
    const V d = Load(target + at), s = Load(source + at);
    const V first = _mm256_and_si256(d, _mm256_xor_si256(_mm256_and_si256(s, and1), xor1));
    Store(target + at, _mm256_xor_si256(first, _mm256_xor_si256(_mm256_and_si256(s, and2), xor2)));
  }
  kCombinePortable.bits(target + at, source + at, bytes - at, rule);
}

}  // namespace

const CombineKernels kCombineAvx2 = {
    .bits = Bits,
    .samples8 = {Combine8<Op::kAdd>, Combine8<Op::kSubtract>, Combine8<Op::kAverage>, Combine8<Op::kMinimum>,
                 Combine8<Op::kMaximum>, Combine8<Op::kMultiply>},
    .samples16 = {Combine16<Op::kAdd>, Combine16<Op::kSubtract>, Combine16<Op::kAverage>, Combine16<Op::kMinimum>,
                  Combine16<Op::kMaximum>, Combine16<Op::kMultiply>},
    .blend8 = Blend8,
    .blend16 = Blend16};

}  // namespace tarn
