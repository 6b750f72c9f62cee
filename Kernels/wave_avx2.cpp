// Dithering of lines side by side: a lane a line, a register a channel of sixteen lines. Two sixteens are walked at
// once, because a step waits most of its time for what it found in the step before.

#include <immintrin.h>

#include <cstdint>

#include "Kernels/Dither.h"

namespace tarn {
namespace {

using V = __m256i;
using H = __m128i;

V Load(const void* at) noexcept { return _mm256_loadu_si256(static_cast<const V*>(at)); }
void Store(void* at, V value) noexcept { _mm256_storeu_si256(static_cast<V*>(at), value); }
H LoadHalf(const void* at) noexcept { return _mm_loadu_si128(static_cast<const H*>(at)); }
H LoadLow(const void* at) noexcept { return _mm_loadl_epi64(static_cast<const H*>(at)); }

enum class Division { kBy16, kBy32, kOther };

/// What reaches the pixels of a step from lines above.
struct Tap {
  int32_t step;  // before this one
  int32_t place;
  V weight;
};

struct Taps {
  Tap taps[kWaveRows * 7];
  int count = 0;

  explicit Taps(const DitherKernel& kernel) noexcept {
    for (int row = 0; row < kernel.rows; ++row) {
      for (int k = 0; k < 7; ++k) {
        if (kernel.above[row][k] == 0) continue;
        taps[count++] = {k - 3 - kWaveLag * (row + 1), DitherWave::kFirst - row - 1,
                         _mm256_set1_epi16(kernel.above[row][k])};
      }
    }
  }
};

constexpr int kLanes = 16;

/// Lines of a sixteen that have a pixel at a step.
V Inside(const DitherWave& wave, int64_t step, int sixteen) noexcept {
  const V lanes = _mm256_add_epi16(_mm256_setr_epi16(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15),
                                   _mm256_set1_epi16(static_cast<int16_t>(kLanes * sixteen)));
  const int64_t begun = step / kWaveLag;
  const int64_t ended = step < wave.width ? -1 : (step - wave.width) / kWaveLag;
  const auto last = static_cast<int16_t>(begun < wave.lines - 1 ? begun : wave.lines - 1);
  const auto before = static_cast<int16_t>(ended < kWaveLines ? ended : kWaveLines);
  return _mm256_and_si256(_mm256_cmpgt_epi16(lanes, _mm256_set1_epi16(before)),
                          _mm256_cmpgt_epi16(_mm256_set1_epi16(static_cast<int16_t>(last + 1)), lanes));
}

/// Words of four bytes of lines 0 to 3, 8 to 11 and of lines 4 to 7, 12 to 15, to the bytes in lanes of 16 bits.
struct Bytes {
  V first, second, third, fourth;
};
Bytes Unpack(V even, V odd) noexcept {
  const V low = _mm256_set1_epi32(0xFFFF), byte = _mm256_set1_epi16(255);
  const V firsts = _mm256_packus_epi32(_mm256_and_si256(even, low), _mm256_and_si256(odd, low));
  const V lasts = _mm256_packus_epi32(_mm256_srli_epi32(even, 16), _mm256_srli_epi32(odd, 16));
  return {_mm256_and_si256(firsts, byte), _mm256_srli_epi16(firsts, 8), _mm256_and_si256(lasts, byte),
          _mm256_srli_epi16(lasts, 8)};
}

/// Pixels of kWaveLag steps, by channel.
template <int kChannels>
struct Levels {
  alignas(32) uint16_t at[kWaveLag][kChannels][kLanes];
};

/// A line's pixel at a step, in a ring of kSize pixels.
template <int kSize>
uint32_t Place(const DitherWave& wave, int line) noexcept {
  return static_cast<uint32_t>(wave.step - kWaveLag * line) & (kSize - 1);
}

void Gather(Levels<3>& levels, const DitherWave& wave, int first) noexcept {
  const auto half = [&](int line, int pixel) {
    line += first;
    return LoadHalf(wave.pixels[line] + 4 * (Place<kDitherBlock>(wave, line) + static_cast<uint32_t>(pixel)));
  };
  const auto row = [&](int line, int pixel) {
    return _mm256_inserti128_si256(_mm256_castsi128_si256(half(line, pixel)), half(line + 8, pixel), 1);
  };
  struct Words {
    V of[4];  // pixels
  };
  const auto turned = [&](int line, int pixel) {
    const V a = row(line, pixel), b = row(line + 1, pixel), c = row(line + 2, pixel), d = row(line + 3, pixel);
    const V ab = _mm256_unpacklo_epi32(a, b), cd = _mm256_unpacklo_epi32(c, d);
    const V abHigh = _mm256_unpackhi_epi32(a, b), cdHigh = _mm256_unpackhi_epi32(c, d);
    return Words{{_mm256_unpacklo_epi64(ab, cd), _mm256_unpackhi_epi64(ab, cd), _mm256_unpacklo_epi64(abHigh, cdHigh),
                  _mm256_unpackhi_epi64(abHigh, cdHigh)}};
  };
  for (int pixel = 0; pixel < kWaveLag; pixel += 4) {
    const Words even = turned(0, pixel), odd = turned(4, pixel);
    for (int i = 0; i < 4; ++i) {
      const Bytes bytes = Unpack(even.of[i], odd.of[i]);
      Store(levels.at[pixel + i][0], bytes.first);
      Store(levels.at[pixel + i][1], bytes.second);
      Store(levels.at[pixel + i][2], bytes.third);
    }
  }
}

void Gather(Levels<1>& levels, const DitherWave& wave, int first) noexcept {
  const auto line = [&](int number) {
    return LoadLow(wave.pixels[first + number] + Place<kDitherBlock>(wave, first + number));
  };
  H rows[8], pairs[8];
  for (int i = 0; i < 8; ++i) rows[i] = _mm_unpacklo_epi8(line(i), line(i + 8));
  for (int i = 0; i < 4; ++i) {  // from here on: pixels 0 to 3, pixels 4 to 7
    pairs[i] = _mm_unpacklo_epi8(rows[i], rows[i + 4]);
    pairs[i + 4] = _mm_unpackhi_epi8(rows[i], rows[i + 4]);
  }
  for (int half = 0; half < 2; ++half) {
    const H* const of = pairs + 4 * half;
    const H even = _mm_unpacklo_epi8(of[0], of[2]), odd = _mm_unpacklo_epi8(of[1], of[3]);
    const H evenHigh = _mm_unpackhi_epi8(of[0], of[2]), oddHigh = _mm_unpackhi_epi8(of[1], of[3]);
    const H pixels[4] = {_mm_unpacklo_epi8(even, odd), _mm_unpackhi_epi8(even, odd),
                         _mm_unpacklo_epi8(evenHigh, oddHigh), _mm_unpackhi_epi8(evenHigh, oddHigh)};
    for (int i = 0; i < 4; ++i) Store(levels.at[4 * half + i][0], _mm256_cvtepu8_epi16(pixels[i]));
  }
}

/// Steps of sixteen indices to lines of eight.
void Scatter(DitherWave& wave, const H* steps, int first) noexcept {
  const auto line = [&](int number) { return wave.indices[number] + Place<2 * kDitherBlock>(wave, number); };
  for (int half = 0; half < 2; ++half) {
    H pairs[4];
    for (int i = 0; i < 4; ++i)
      pairs[i] = half ? _mm_unpackhi_epi8(steps[i], steps[i + 4]) : _mm_unpacklo_epi8(steps[i], steps[i + 4]);
    const H even = _mm_unpacklo_epi8(pairs[0], pairs[2]), odd = _mm_unpacklo_epi8(pairs[1], pairs[3]);
    const H evenHigh = _mm_unpackhi_epi8(pairs[0], pairs[2]), oddHigh = _mm_unpackhi_epi8(pairs[1], pairs[3]);
    const H twos[4] = {_mm_unpacklo_epi8(even, odd), _mm_unpackhi_epi8(even, odd), _mm_unpacklo_epi8(evenHigh, oddHigh),
                       _mm_unpackhi_epi8(evenHigh, oddHigh)};
    for (int i = 0; i < 4; ++i) {
      const int number = first + 8 * half + 2 * i;
      _mm_storel_epi64(reinterpret_cast<H*>(line(number)), twos[i]);
      _mm_storeh_pd(reinterpret_cast<double*>(line(number + 1)), _mm_castsi128_pd(twos[i]));
    }
  }
}

template <int kChannels>
struct Found {
  V chosen[kChannels];
  V indices;  // in lanes of 16 bits
};

/// One channel, to the ramp of kBits bits.
template <int kBits>
struct Ramp {
  static constexpr int kChannels = 1;
  Found<1> Find(const V* level, V /*inside*/) const noexcept {
    if constexpr (kBits == 1) {
      const V white = _mm256_cmpgt_epi16(level[0], _mm256_set1_epi16(127));
      return {{_mm256_and_si256(white, _mm256_set1_epi16(255))}, _mm256_srli_epi16(white, 15)};
    }
    const V position = _mm256_srli_epi16(level[0], 6);
    return {{_mm256_mullo_epi16(position, _mm256_set1_epi16(85))}, position};
  }
};

/// Colours by their gray value, to the ramp of kBits bits.
template <int kBits>
struct GrayValue {
  static constexpr int kChannels = 3;
  Found<3> Find(const V* level, V /*inside*/) const noexcept {
    const V blueRed = _mm256_add_epi16(_mm256_add_epi16(level[2], level[2]), level[0]);
    const V green = _mm256_mullo_epi16(level[1], _mm256_set1_epi16(5));
    const V sum = _mm256_add_epi16(_mm256_add_epi16(blueRed, green), _mm256_set1_epi16(4));
    const V position = _mm256_srli_epi16(sum, 11 - kBits);
    const V chosen = _mm256_mullo_epi16(position, _mm256_set1_epi16(kBits == 1 ? 255 : 85));
    return {{chosen, chosen, chosen}, position};
  }
};

struct Steps {
  static constexpr int kChannels = 3;
  V scale[3], rise[3], weight[3], names;
  bool renamed;

  explicit Steps(const DitherColors& colors) noexcept : renamed(colors.renamed) {
    for (int c = 0; c < 3; ++c) {
      scale[c] = _mm256_set1_epi16(static_cast<int16_t>(colors.channels[c].scale));
      rise[c] = _mm256_set1_epi16(static_cast<int16_t>(colors.channels[c].rise));
      weight[c] = _mm256_set1_epi16(static_cast<int16_t>(colors.channels[c].weight));
    }
    names = _mm256_broadcastsi128_si256(LoadHalf(colors.indices));
  }
  Found<3> Find(const V* level, V /*inside*/) const noexcept {
    Found<3> found;
    const V one = _mm256_set1_epi16(1);
    found.indices = _mm256_setzero_si256();
    for (int c = 0; c < 3; ++c) {
      const V step = _mm256_mulhi_epu16(level[c], scale[c]);
      found.chosen[c] = _mm256_srli_epi16(_mm256_add_epi16(_mm256_mullo_epi16(step, rise[c]), one), 2);
      found.indices = _mm256_add_epi16(found.indices, _mm256_mullo_epi16(step, weight[c]));
    }
    if (renamed)  // the upper bytes are 0, and so is the name of position 0
      found.indices = _mm256_shuffle_epi8(names, found.indices);
    return found;
  }
};

struct Table {
  static constexpr int kChannels = 3;
  const uint32_t* words;
  const DitherColors& colors;
  V unseen;

  explicit Table(const DitherColors& its) noexcept
      : words(its.words), colors(its), unseen(_mm256_set1_epi32(static_cast<int32_t>(its.unseen))) {}
  [[nodiscard]] V Words(V keys) const noexcept {
    return _mm256_i32gather_epi32(reinterpret_cast<const int*>(words), keys, 4);
  }
  Found<3> Find(const V* level, V inside) const noexcept {
    const V top = _mm256_set1_epi16(0xF8);
    const V red = _mm256_slli_epi16(_mm256_and_si256(level[2], top), 7);
    const V green = _mm256_slli_epi16(_mm256_and_si256(level[1], top), 2);
    const V keys = _mm256_or_si256(_mm256_or_si256(red, green), _mm256_srli_epi16(level[0], 3));
    const V evenKeys = _mm256_unpacklo_epi16(keys, _mm256_setzero_si256());
    const V oddKeys = _mm256_unpackhi_epi16(keys, _mm256_setzero_si256());
    V even = Words(evenKeys), odd = Words(oddKeys);
    const V unknown = _mm256_or_si256(_mm256_cmpeq_epi32(even, unseen), _mm256_cmpeq_epi32(odd, unseen));
    if (!_mm256_testz_si256(unknown, unknown)) [[unlikely]] {
      alignas(32) uint16_t each[kLanes], counts[kLanes];
      Store(each, keys);
      Store(counts, inside);
      for (int line = 0; line < kLanes; ++line) {  // what lines find that have no pixel must not be seen
        if (counts[line] && words[each[line]] == colors.unseen) colors.see(colors.owner, each[line]);
      }
      even = Words(evenKeys);
      odd = Words(oddKeys);
    }
    const Bytes bytes = Unpack(even, odd);
    return {{bytes.first, bytes.second, bytes.third}, bytes.fourth};
  }
};

/// level + trunc(sum / divisor), not clamped.
template <Division kDivision>
V Moved(V level, V sum, V multiplier, H shift) noexcept {
  const V sign = _mm256_srai_epi16(sum, 15);
  if constexpr (kDivision == Division::kBy16) {
    // 4097 / 65536 is a little more than 1/16: exact when positive (|sum| <= 4080), one too low when negative.
    return _mm256_add_epi16(_mm256_sub_epi16(level, sign), _mm256_mulhi_epi16(sum, _mm256_set1_epi16(4097)));
  } else if constexpr (kDivision == Division::kBy32) {
    return _mm256_add_epi16(level, _mm256_srai_epi16(_mm256_add_epi16(sum, _mm256_srli_epi16(sign, 11)), 5));
  } else {
    const V size = _mm256_srl_epi16(_mm256_mulhi_epu16(_mm256_abs_epi16(sum), multiplier), shift);
    return _mm256_add_epi16(level, _mm256_sign_epi16(size, sum));
  }
}

/// kTaps: how many there are, or 0 for any number.
template <int kSixteens, Division kDivision, int kTaps, class Target>
void WalkTo(DitherWave& wave, const DitherKernel& kernel, const Target& target) noexcept {
  constexpr int kChannels = Target::kChannels;
  constexpr uint32_t kLast = DitherWave::kSteps - 1;
  constexpr int kFirst = DitherWave::kFirst;
  const Taps taps(kernel);
  const int tapCount = kTaps ? kTaps : taps.count;
  const V left1 = _mm256_set1_epi16(kernel.left[0]), left2 = _mm256_set1_epi16(kernel.left[1]);
  const V multiplier = _mm256_set1_epi16(static_cast<int16_t>(kernel.multiplier));
  const H shift = _mm_cvtsi32_si128(kernel.shift);
  const V least = _mm256_setzero_si256(), most = _mm256_set1_epi16(255), all = _mm256_set1_epi16(-1);
  const int64_t lastStep = wave.step + kWaveLag - 1;
  const bool whole = wave.lines == kSixteens * kLanes && wave.step >= int64_t{kWaveLag} * (kSixteens * kLanes - 1) &&
                     lastStep < wave.width;
  const auto first = static_cast<uint32_t>(wave.step);
  Levels<kChannels> levels[kSixteens];
  V error1[kSixteens][kChannels], error2[kSixteens][kChannels];
  for (int s = 0; s < kSixteens; ++s) {
    Gather(levels[s], wave, kLanes * s);
    for (int c = 0; c < kChannels; ++c) {
      error1[s][c] = Load(wave.errors[(first - 1) & kLast][c] + kFirst + kLanes * s);
      error2[s][c] = Load(wave.errors[(first - 2) & kLast][c] + kFirst + kLanes * s);
    }
  }
  H indices[kSixteens][kWaveLag];
  for (uint32_t i = 0; i < kWaveLag; ++i) {
#pragma GCC unroll 2
    for (int s = 0; s < kSixteens; ++s) {
      V sums[kChannels];
      for (int c = 0; c < kChannels; ++c)
        sums[c] = kDivision == Division::kBy16 ? _mm256_setzero_si256() : _mm256_mullo_epi16(error2[s][c], left2);
#pragma GCC unroll 3
      for (int t = 0; t < tapCount; ++t) {
        const Tap& tap = taps.taps[t];
        const auto& from = wave.errors[(first + i + static_cast<uint32_t>(tap.step)) & kLast];
        for (int c = 0; c < kChannels; ++c)
          sums[c] = _mm256_add_epi16(sums[c], _mm256_mullo_epi16(Load(from[c] + tap.place + kLanes * s), tap.weight));
      }
      V level[kChannels];
      for (int c = 0; c < kChannels; ++c) {
        const V sum = _mm256_add_epi16(sums[c], _mm256_mullo_epi16(error1[s][c], left1));
        const V moved = Moved<kDivision>(Load(levels[s].at[i][c]), sum, multiplier, shift);
        level[c] = _mm256_min_epi16(_mm256_max_epi16(moved, least), most);
      }
      const V inside = whole ? all : Inside(wave, wave.step + i, s);
      const Found<kChannels> found = target.Find(level, inside);
      for (int c = 0; c < kChannels; ++c) {
        error2[s][c] = error1[s][c];
        error1[s][c] = _mm256_sub_epi16(level[c], found.chosen[c]);
      }
      if (!whole) [[unlikely]] {
        for (int c = 0; c < kChannels; ++c) error1[s][c] = _mm256_and_si256(error1[s][c], inside);
      }
      for (int c = 0; c < kChannels; ++c)
        Store(wave.errors[(first + i) & kLast][c] + kFirst + kLanes * s, error1[s][c]);
      indices[s][i] =
          _mm_packus_epi16(_mm256_castsi256_si128(found.indices), _mm256_extracti128_si256(found.indices, 1));
    }
  }
  for (int s = 0; s < kSixteens; ++s) Scatter(wave, indices[s], kLanes * s);
}

template <int kSixteens, class Target>
void WalkBy(DitherWave& wave, const DitherKernel& kernel, const Target& target) noexcept {
  constexpr int kFloydSteinberg = 3;
  if (kernel.divisor == 16) return WalkTo<kSixteens, Division::kBy16, kFloydSteinberg>(wave, kernel, target);
  if (kernel.divisor == 32) return WalkTo<kSixteens, Division::kBy32, 0>(wave, kernel, target);
  return WalkTo<kSixteens, Division::kOther, 0>(wave, kernel, target);
}

template <class Target>
void WalkAll(DitherWave& wave, const DitherKernel& kernel, const Target& target) noexcept {
  if (wave.lines > kLanes) return WalkBy<2>(wave, kernel, target);
  WalkBy<1>(wave, kernel, target);
}

}  // namespace

void WalkWave_Avx2(DitherWave& wave, const DitherKernel& kernel, const DitherColors& colors) noexcept {
  switch (colors.rule) {
    case DitherColors::kTable:
      return WalkAll(wave, kernel, Table(colors));
    case DitherColors::kSteps:
      return WalkAll(wave, kernel, Steps(colors));
    case DitherColors::kGray1:
      return WalkAll(wave, kernel, GrayValue<1>());
    default:  // kGray2
      return WalkAll(wave, kernel, GrayValue<2>());
  }
}

void WalkGrayWave_Avx2(DitherWave& wave, const DitherKernel& kernel, uint32_t bits) noexcept {
  if (bits == 1) return WalkAll(wave, kernel, Ramp<1>());
  WalkAll(wave, kernel, Ramp<2>());
}

}  // namespace tarn
