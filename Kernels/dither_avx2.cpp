// Dithering. What comes from the lines above is gathered 4 pixels at a time; along a line each pixel waits for the one
// before it, so several lines are walked at once and hide each other's latency.

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
void StoreLow(void* at, H value) noexcept { _mm_storel_epi64(static_cast<H*>(at), value); }
H LoadPixel(const uint8_t* at) noexcept {
  return _mm_cvtepu8_epi16(_mm_castps_si128(_mm_load_ss(reinterpret_cast<const float*>(at))));
}

// ---- From the lines above ----

/// Where errors come from, with a weight; only those that count. |sum| of a list <= 255 * 84.
struct Taps {
  const int16_t* from[14];
  V weight[14];
  int count = 0;

  void Add(const int16_t* row, const int16_t* weights, int32_t step) noexcept {
    for (int k = 0; k < 7; ++k) {
      if (weights[k] == 0) continue;
      from[count] = row + (k - 3) * step;
      weight[count++] = _mm256_set1_epi16(weights[k]);
    }
  }
  V Sum(int32_t i) const noexcept {
    V sum = _mm256_setzero_si256();
    for (int tap = 0; tap < count; ++tap)
      sum = _mm256_add_epi16(sum, _mm256_mullo_epi16(Load(from[tap] + i), weight[tap]));
    return sum;
  }
};

/// Whole vectors of a gathering; returns the lanes done.
int32_t GatherNarrow(int16_t* sums, const int16_t* const* rows, int32_t lanes, int32_t step,
                     const DitherKernel& kernel) noexcept {
  Taps taps;
  for (int row = 0; row < kernel.rows; ++row) taps.Add(rows[row], kernel.above[row], step);
  int32_t i = 0;
  for (; i + 16 <= lanes; i += 16) Store(sums + i, taps.Sum(i));
  return i;
}

int32_t GatherWide(int32_t* sums, const int16_t* const* rows, int32_t lanes, const DitherKernel& kernel) noexcept {
  Taps first, rest;  // the other lines together weigh no more than the first
  first.Add(rows[0], kernel.above[0], 4);
  for (int row = 1; row < kernel.rows; ++row) rest.Add(rows[row], kernel.above[row], 4);
  int32_t i = 0;
  for (; i + 16 <= lanes; i += 16) {
    const V a = first.Sum(i), b = rest.Sum(i);
    Store(sums + i, _mm256_add_epi32(_mm256_cvtepi16_epi32(_mm256_castsi256_si128(a)),
                                     _mm256_cvtepi16_epi32(_mm256_castsi256_si128(b))));
    Store(sums + i + 8, _mm256_add_epi32(_mm256_cvtepi16_epi32(_mm256_extracti128_si256(a, 1)),
                                         _mm256_cvtepi16_epi32(_mm256_extracti128_si256(b, 1))));
  }
  return i;
}

void Above(void* sums, const int16_t* const* rows, int32_t count, const DitherKernel& kernel) noexcept {
  auto* const narrow = static_cast<int16_t*>(sums);
  auto* const wide = static_cast<int32_t*>(sums);
  const int32_t done =
      kernel.wide ? GatherWide(wide, rows, 4 * count, kernel) : GatherNarrow(narrow, rows, 4 * count, 4, kernel);
  const int16_t* const rest[3] = {rows[0] + done, kernel.rows > 1 ? rows[1] + done : nullptr,
                                  kernel.rows > 2 ? rows[2] + done : nullptr};
  void* const place = kernel.wide ? static_cast<void*>(wide + done) : static_cast<void*>(narrow + done);
  kDitherPortable.above(place, rest, count - done / 4, kernel);
}

void AboveGray(int16_t* sums, const int16_t* const* rows, int32_t count, const DitherKernel& kernel) noexcept {
  const int32_t done = GatherNarrow(sums, rows, count, 1, kernel);
  const int16_t* const rest[3] = {rows[0] + done, kernel.rows > 1 ? rows[1] + done : nullptr, nullptr};  // never wide
  kDitherPortable.aboveGray(sums + done, rest, count - done, kernel);
}

// ---- Along the line ----

/// How sums are divided: by a power of two, by another divisor in 16-bit lanes, in 32-bit lanes.
enum class Division { kPower, kNarrow, kWide };

struct Constants {
  H left1, left2, multiplier, shift, fill, least, most, gray, scale, rise, weight, one;
};

H Channels(uint16_t DitherColors::Channel::*value, const DitherColors& colors) noexcept {
  const auto of = [&](int lane) { return static_cast<int16_t>(colors.channels[lane].*value); };
  return _mm_setr_epi16(of(0), of(1), of(2), 0, 0, 0, 0, 0);
}

Constants ConstantsOf(const DitherKernel& kernel, const DitherColors& colors) noexcept {
  const bool wide = kernel.wide;
  const int power = __builtin_ctz(static_cast<uint32_t>(kernel.divisor));
  const bool isPower = kernel.divisor == 1 << power;
  return {wide ? _mm_set1_epi32(kernel.left[0]) : _mm_set1_epi16(kernel.left[0]),
          wide ? _mm_set1_epi32(kernel.left[1]) : _mm_set1_epi16(kernel.left[1]),
          wide ? _mm_set1_epi32(kernel.multiplier) : _mm_set1_epi16(static_cast<int16_t>(kernel.multiplier)),
          _mm_cvtsi32_si128(isPower ? power : kernel.shift),
          _mm_cvtsi32_si128(16 - power),
          _mm_setzero_si128(),
          _mm_set1_epi16(255),
          _mm_setr_epi16(1, 5, 2, 0, 0, 0, 0, 0),
          Channels(&DitherColors::Channel::scale, colors),
          Channels(&DitherColors::Channel::rise, colors),
          Channels(&DitherColors::Channel::weight, colors),
          _mm_set1_epi16(1)};
}

/// Lane sums a * b of the low four lanes.
uint32_t Dot(H a, H b) noexcept {
  const H pairs = _mm_madd_epi16(a, b);
  return static_cast<uint32_t>(_mm_cvtsi128_si32(_mm_add_epi32(pairs, _mm_srli_epi64(pairs, 32))));
}

/// The sum of everything that reaches a pixel, divided.
template <Division kDivision>
H Diffused(const void* sums, int32_t x, H error1, H error2, const Constants& c) noexcept {
  if constexpr (kDivision == Division::kWide) {
    H sum = LoadHalf(static_cast<const int32_t*>(sums) + 4 * x);
    sum = _mm_add_epi32(sum, _mm_mullo_epi32(_mm_cvtepi16_epi32(error2), c.left2));
    sum = _mm_add_epi32(sum, _mm_mullo_epi32(_mm_cvtepi16_epi32(error1), c.left1));
    const H size = _mm_srl_epi32(_mm_mullo_epi32(_mm_abs_epi32(sum), c.multiplier), c.shift);
    const H quotient = _mm_sign_epi32(size, sum);
    return _mm_packs_epi32(quotient, quotient);
  } else {
    H sum = LoadLow(static_cast<const int16_t*>(sums) + 4 * x);
    sum = _mm_add_epi16(sum, _mm_mullo_epi16(error2, c.left2));  // known a pixel earlier: off the critical path
    sum = _mm_add_epi16(sum, _mm_mullo_epi16(error1, c.left1));
    if constexpr (kDivision == Division::kPower)  // a negative sum gets divisor - 1 added
      return _mm_sra_epi16(_mm_add_epi16(sum, _mm_srl_epi16(_mm_srai_epi16(sum, 15), c.fill)), c.shift);
    const H size = _mm_srl_epi16(_mm_mulhi_epu16(_mm_abs_epi16(sum), c.multiplier), c.shift);
    return _mm_sign_epi16(size, sum);
  }
}

/// Position of a clamped colour and its component in `chosen`.
template <DitherColors::Rule kRule>
uint32_t Choose(H level, H& chosen, const Constants& c, const DitherColors& colors) noexcept {
  if constexpr (kRule == DitherColors::kSteps) {
    const H step = _mm_mulhi_epu16(level, c.scale);
    chosen = _mm_srli_epi16(_mm_add_epi16(_mm_mullo_epi16(step, c.rise), c.one), 2);
    return Dot(step, c.weight);
  }
  uint32_t position;
  if constexpr (kRule == DitherColors::kTable) {
    const auto word = static_cast<uint32_t>(_mm_cvtsi128_si32(_mm_packus_epi16(level, level)));
    const uint32_t key = _pext_u32(word, colors.mask);
    position = colors.table[key];
    if (position == colors.unknown) [[unlikely]]
      position = colors.resolve(colors.owner, key);
  } else {
    position = (Dot(level, c.gray) + 4) >> (kRule == DitherColors::kGray1 ? 10 : 9);
  }
  chosen = LoadLow(colors.colors[position]);
  return position;
}

/// Walks `count` pixels of kLines blocks, from pixel `start` of each.
template <int kLines, Division kDivision, DitherColors::Rule kRule>
void DiffuseLines(const DitherBlock* const* blocks, const int32_t* start, int32_t count, const Constants& constants,
                  const DitherColors& given) noexcept {
  const Constants c = constants;  // copies: what is stored below cannot change them
  const DitherColors colors = given;
  const uint8_t* pixels[kLines];
  const void* sums[kLines];
  int16_t* errors[kLines];
  uint8_t* indices[kLines];
  H error1[kLines], error2[kLines];
  for (int line = 0; line < kLines; ++line) {
    const DitherBlock& block = *blocks[line];
    const int32_t first = start[line];
    pixels[line] = block.pixels + 4 * first;
    sums[line] = static_cast<const uint8_t*>(block.sums) + first * (kDivision == Division::kWide ? 16 : 8);
    errors[line] = block.errors + 4 * first;
    indices[line] = block.indices + first;
    error1[line] = LoadLow(errors[line] - 4);
    error2[line] = LoadLow(errors[line] - 8);
  }
  for (int32_t x = 0; x < count; ++x) {
#pragma GCC unroll 4
    for (int line = 0; line < kLines; ++line) {
      const H moved = _mm_add_epi16(LoadPixel(pixels[line] + 4 * x),
                                    Diffused<kDivision>(sums[line], x, error1[line], error2[line], c));
      const H level = _mm_min_epi16(_mm_max_epi16(moved, c.least), c.most);
      H chosen;
      const uint32_t position = Choose<kRule>(level, chosen, c, colors);
      error2[line] = error1[line];
      error1[line] = _mm_sub_epi16(level, chosen);
      StoreLow(errors[line] + 4 * x, error1[line]);
      indices[line][x] = colors.indices[position];
    }
  }
}

/// trunc(sum / divisor): the multiplier is a little more than 2^24 / divisor, so that a negative quotient is always
/// rounded down by some and adding the sign mends it.
int32_t Divided(int32_t sum, int64_t multiplier) noexcept {
  return static_cast<int32_t>(sum * multiplier >> 24) + static_cast<int32_t>(static_cast<uint32_t>(sum) >> 31);
}

/// level + trunc(sum / divisor), from -256 on. The chain from pixel to pixel is the shorter for each thing that is
/// added beside it.
template <bool kPower>
uint32_t ValueOf(int32_t level, int32_t sum, int32_t power, int64_t multiplier) noexcept {
  if constexpr (!kPower) return static_cast<uint32_t>(256 + level + Divided(sum, multiplier));
  const auto mend = static_cast<int32_t>(static_cast<uint32_t>(sum) >> (32 - power));  // divisor - 1 when negative
  return static_cast<uint32_t>((((256 + level) << power) + sum + mend) >> power);
}

/// One line, whose channels do not ask for each other: all that becomes of a value is one entry of a table.
template <bool kPower>
void DiffuseSteps(const DitherBlock& block, int32_t start, int32_t count, const DitherKernel& kernel,
                  const DitherColors& colors) noexcept {
  const int32_t power = kernel.divisor == 16 ? 4 : 5;
  const int64_t multiplier = (1 << 24) / kernel.divisor + 1;
  const int32_t left2 = kernel.left[1];
  const uint8_t* const pixels = block.pixels + 4 * start;
  const auto* const sums = static_cast<const int16_t*>(block.sums) + 4 * start;
  int16_t* const errors = block.errors + 4 * start;
  uint8_t* const indices = block.indices + start;
  int32_t carried[3], error1[3], error2[3];
  for (int c = 0; c < 3; ++c) {
    error1[c] = errors[c - 4];
    error2[c] = errors[c - 8];
    carried[c] = kernel.left[0] * error1[c];
  }
  const DitherStep* const steps[3] = {colors.steps[0], colors.steps[1], colors.steps[2]};
  const uint8_t* const names = colors.indices;
  for (int64_t x = 0; x < count; ++x) {
    uint32_t position = 0;
#pragma GCC unroll 3
    for (int c = 0; c < 3; ++c) {
      const int32_t sum = sums[4 * x + c] + left2 * error2[c] + carried[c];
      const DitherStep& step = steps[c][ValueOf<kPower>(pixels[4 * x + c], sum, power, multiplier)];
      carried[c] = step.carried;
      error2[c] = error1[c];
      error1[c] = step.error;
      errors[4 * x + c] = step.error;
      position += step.share;
    }
    indices[x] = names[position];
  }
}

/// Walks blocks of any lengths: as many beside each other as there are.
template <class Walk>
void Together(const DitherBlock* blocks, int lines, Walk walk) noexcept {
  const DitherBlock* open[kDitherGroup];
  int32_t start[kDitherGroup];
  int left = 0;
  for (int line = 0; line < lines; ++line) {
    open[left] = blocks + line;
    start[left++] = 0;
  }
  while (left > 0) {
    int32_t count = open[0]->count - start[0];
    for (int line = 1; line < left; ++line) {
      const int32_t rest = open[line]->count - start[line];
      count = rest < count ? rest : count;
    }
    walk(left, open, start, count);
    int kept = 0;
    for (int line = 0; line < left; ++line) {
      const int32_t done = start[line] + count;
      if (done == open[line]->count) continue;
      open[kept] = open[line];
      start[kept++] = done;
    }
    left = kept;
  }
}

template <Division kDivision, DitherColors::Rule kRule>
void DiffuseBy(const DitherBlock* blocks, int lines, const DitherKernel& kernel, const DitherColors& colors) noexcept {
  const Constants c = ConstantsOf(kernel, colors);
  Together(blocks, lines,
           [&](int together, const DitherBlock* const* open, const int32_t* start, int32_t count) noexcept {
             switch (together) {
               case 1:
                 if constexpr (kRule == DitherColors::kSteps && kDivision != Division::kWide)
                   return DiffuseSteps<kDivision == Division::kPower>(*open[0], start[0], count, kernel, colors);
                 return DiffuseLines<1, kDivision, kRule>(open, start, count, c, colors);
               case 2:
                 return DiffuseLines<2, kDivision, kRule>(open, start, count, c, colors);
               case 3:
                 return DiffuseLines<3, kDivision, kRule>(open, start, count, c, colors);
               default:
                 return DiffuseLines<4, kDivision, kRule>(open, start, count, c, colors);
             }
           });
}

template <Division kDivision>
void DiffuseTo(const DitherBlock* blocks, int lines, const DitherKernel& kernel, const DitherColors& colors) noexcept {
  switch (colors.rule) {
    case DitherColors::kTable:
      return DiffuseBy<kDivision, DitherColors::kTable>(blocks, lines, kernel, colors);
    case DitherColors::kSteps:
      return DiffuseBy<kDivision, DitherColors::kSteps>(blocks, lines, kernel, colors);
    case DitherColors::kGray1:
      return DiffuseBy<kDivision, DitherColors::kGray1>(blocks, lines, kernel, colors);
    default:  // kGray2
      return DiffuseBy<kDivision, DitherColors::kGray2>(blocks, lines, kernel, colors);
  }
}

void Diffuse(const DitherBlock* blocks, int lines, const DitherKernel& kernel, const DitherColors& colors) noexcept {
  if (kernel.wide) return DiffuseTo<Division::kWide>(blocks, lines, kernel, colors);
  if (kernel.divisor == 16 || kernel.divisor == 32) return DiffuseTo<Division::kPower>(blocks, lines, kernel, colors);
  return DiffuseTo<Division::kNarrow>(blocks, lines, kernel, colors);
}

// ---- Gray ----

/// Steps of the ramps; the share is the index. Carried is what Floyd and Steinberg carry.
struct GrayTable {
  DitherStep steps[2][kStepValues];
};
constexpr GrayTable MakeGrayTable() noexcept {
  GrayTable table{};
  for (int bits = 1; bits <= 2; ++bits) {
    for (int i = 0; i < kStepValues; ++i) {
      const int level = i < 256 ? 0 : i > 511 ? 255 : i - 256;
      const int index = level >> (8 - bits);
      const int error = level - index * (bits == 1 ? 255 : 85);
      table.steps[bits - 1][i] = {static_cast<int16_t>(7 * error), static_cast<int16_t>(error),
                                  static_cast<uint16_t>(index), 0};
    }
  }
  return table;
}
constexpr GrayTable kGrayTable = MakeGrayTable();

template <int kLines, bool kPower, bool kCarried>
void DiffuseGrayLines(const DitherBlock* const* blocks, const int32_t* start, int32_t count, const DitherKernel& kernel,
                      const DitherStep* steps) noexcept {
  const int32_t left1 = kernel.left[0], left2 = kernel.left[1];
  const int64_t multiplier = (1 << 24) / kernel.divisor + 1;
  const int32_t power = kernel.divisor == 16 ? 4 : 5;
  const uint8_t* pixels[kLines];
  const int16_t* sums[kLines];
  int16_t* errors[kLines];
  uint8_t* indices[kLines];
  int32_t error1[kLines], error2[kLines], carried[kLines];
  for (int line = 0; line < kLines; ++line) {
    const DitherBlock& block = *blocks[line];
    const int32_t first = start[line];
    pixels[line] = block.pixels + first;
    sums[line] = static_cast<const int16_t*>(block.sums) + first;
    errors[line] = block.errors + first;
    indices[line] = block.indices + first;
    error1[line] = errors[line][-1];
    error2[line] = errors[line][-2];
    carried[line] = left1 * error1[line];
  }
  for (int32_t x = 0; x < count; ++x) {
#pragma GCC unroll 4
    for (int line = 0; line < kLines; ++line) {
      const int32_t before = kCarried ? sums[line][x] : sums[line][x] + left2 * error2[line];
      const int32_t sum = before + carried[line];
      const DitherStep& step = steps[ValueOf<kPower>(pixels[line][x], sum, power, multiplier)];
      carried[line] = kCarried ? step.carried : left1 * step.error;
      error2[line] = error1[line];
      error1[line] = step.error;
      errors[line][x] = step.error;
      indices[line][x] = static_cast<uint8_t>(step.share);
    }
  }
}

template <bool kPower, bool kCarried>
void DiffuseGrayBy(const DitherBlock* blocks, int lines, const DitherKernel& kernel, const DitherStep* steps) noexcept {
  Together(blocks, lines,
           [&](int together, const DitherBlock* const* open, const int32_t* start, int32_t count) noexcept {
             switch (together) {
               case 1:
                 return DiffuseGrayLines<1, kPower, kCarried>(open, start, count, kernel, steps);
               case 2:
                 return DiffuseGrayLines<2, kPower, kCarried>(open, start, count, kernel, steps);
               case 3:
                 return DiffuseGrayLines<3, kPower, kCarried>(open, start, count, kernel, steps);
               default:
                 return DiffuseGrayLines<4, kPower, kCarried>(open, start, count, kernel, steps);
             }
           });
}

void DiffuseGray(const DitherBlock* blocks, int lines, const DitherKernel& kernel, uint32_t bits) noexcept {
  const DitherStep* const steps = kGrayTable.steps[bits - 1];
  if (kernel.divisor == 16) return DiffuseGrayBy<true, true>(blocks, lines, kernel, steps);
  if (kernel.divisor == 32) return DiffuseGrayBy<true, false>(blocks, lines, kernel, steps);
  return DiffuseGrayBy<false, false>(blocks, lines, kernel, steps);
}

// ---- Without diffusion ----

/// Eight offsets or limits as bytes of eight pixels, the fourth lane 0.
V Lanes(const uint8_t* bytes) noexcept {
  const V spread = _mm256_setr_epi8(0, 0, 0, -1, 1, 1, 1, -1, 2, 2, 2, -1, 3, 3, 3, -1, 4, 4, 4, -1, 5, 5, 5, -1, 6, 6,
                                    6, -1, 7, 7, 7, -1);
  return _mm256_shuffle_epi8(_mm256_broadcastsi128_si256(LoadLow(bytes)), spread);
}

/// Keys of eight colours in words of 32 bits.
V Keys(V colors) noexcept {
  const V top = _mm256_and_si256(_mm256_srli_epi32(colors, 3), _mm256_set1_epi32(0x1F1F1F));
  const V pairs = _mm256_maddubs_epi16(top, _mm256_set1_epi32(0x00402001));  // blue + 32 green; 64 red
  return _mm256_madd_epi16(pairs, _mm256_set1_epi32(0x00100001));
}

/// First all that is known is looked up without a question, then what was not known is asked for.
void OrderedByTable(uint8_t* indices, const uint8_t* pixels, int64_t count, V up, V down,
                    const DitherColors& colors) noexcept {
  const auto moved = [=](int64_t x) { return _mm256_subs_epu8(_mm256_adds_epu8(Load(pixels + 4 * x), up), down); };
  const uint8_t* const table = colors.table;
  for (int64_t x = 0; x < count; x += 8) {
    alignas(32) uint32_t keys[8];
    _mm256_store_si256(reinterpret_cast<V*>(keys), Keys(moved(x)));
    for (int i = 0; i < 8; ++i) indices[x + i] = table[keys[i]];
  }
  for (int64_t x = 0; x < count && colors.unknown == kUnknown; x += 8) {
    uint64_t eight;
    __builtin_memcpy(&eight, indices + x, 8);
    const H unknown = _mm_cmpeq_epi8(_mm_cvtsi64_si128(static_cast<int64_t>(eight)), _mm_set1_epi8(-1));
    const auto which = static_cast<uint32_t>(_mm_movemask_epi8(unknown)) & 255;
    if (which == 0) [[likely]]
      continue;
    alignas(32) uint32_t keys[8];
    _mm256_store_si256(reinterpret_cast<V*>(keys), Keys(moved(x)));
    for (int i = 0; i < 8; ++i) {
      if (which >> i & 1) indices[x + i] = static_cast<uint8_t>(colors.resolve(colors.owner, keys[i]));
    }
  }
  if (!colors.renamed) return;
  for (int64_t x = 0; x < count; ++x) indices[x] = colors.indices[indices[x]];
}

template <DitherColors::Rule kRule>
void OrderedBy(uint8_t* indices, const uint8_t* pixels, int64_t count, V up, V down,
               const DitherColors& colors) noexcept {
  for (int64_t x = 0; x < count; x += 8, pixels += 32) {
    const V moved = _mm256_subs_epu8(_mm256_adds_epu8(Load(pixels), up), down);
    const V zero = _mm256_setzero_si256();
    V low = _mm256_unpacklo_epi8(moved, zero), high = _mm256_unpackhi_epi8(moved, zero);
    V weights = _mm256_set1_epi64x(0x0000000200050001);
    if constexpr (kRule == DitherColors::kSteps) {
      const V scale = _mm256_broadcastq_epi64(Channels(&DitherColors::Channel::scale, colors));
      low = _mm256_mulhi_epu16(low, scale);
      high = _mm256_mulhi_epu16(high, scale);
      weights = _mm256_broadcastq_epi64(Channels(&DitherColors::Channel::weight, colors));
    }
    V sums = _mm256_hadd_epi32(_mm256_madd_epi16(low, weights), _mm256_madd_epi16(high, weights));
    if constexpr (kRule != DitherColors::kSteps)
      sums = _mm256_srli_epi32(_mm256_add_epi32(sums, _mm256_set1_epi32(4)), kRule == DitherColors::kGray1 ? 10 : 9);
    const V bytes = _mm256_packus_epi16(_mm256_packus_epi32(sums, sums), sums);
    const auto first = static_cast<uint32_t>(_mm256_extract_epi32(bytes, 0));
    const auto second = static_cast<uint32_t>(_mm256_extract_epi32(bytes, 4));
    for (int i = 0; i < 4; ++i) {
      indices[x + i] = colors.indices[first >> 8 * i & 255];
      indices[x + 4 + i] = colors.indices[second >> 8 * i & 255];
    }
  }
}

void Ordered(uint8_t* indices, const uint8_t* pixels, int64_t count, const int16_t* offsets,
             const DitherColors& colors) noexcept {
  uint8_t ups[8], downs[8];
  for (int i = 0; i < 8; ++i) {
    ups[i] = static_cast<uint8_t>(offsets[i] > 0 ? offsets[i] : 0);
    downs[i] = static_cast<uint8_t>(offsets[i] < 0 ? -offsets[i] : 0);
  }
  const V up = Lanes(ups), down = Lanes(downs);
  const int64_t whole = count & ~int64_t{7};
  switch (colors.rule) {
    case DitherColors::kTable:
      OrderedByTable(indices, pixels, whole, up, down, colors);
      break;
    case DitherColors::kGray1:
      OrderedBy<DitherColors::kGray1>(indices, pixels, whole, up, down, colors);
      break;
    default:  // kGray2
      OrderedBy<DitherColors::kGray2>(indices, pixels, whole, up, down, colors);
      break;
    case DitherColors::kSteps:
      OrderedBy<DitherColors::kSteps>(indices, pixels, whole, up, down, colors);
      break;
  }
  kDitherPortable.ordered(indices + whole, pixels + 4 * whole, count - whole, offsets, colors);
}

void Threshold(uint8_t* indices, const uint8_t* levels, int64_t count, const uint8_t* limits) noexcept {
  const V limit = _mm256_broadcastq_epi64(LoadLow(limits));
  const V one = _mm256_set1_epi8(1);
  int64_t x = 0;
  for (; x + 32 <= count; x += 32) Store(indices + x, _mm256_min_epu8(_mm256_subs_epu8(Load(levels + x), limit), one));
  kDitherPortable.threshold(indices + x, levels + x, count - x, limits);
}

void Thresholds(uint8_t* indices, const uint8_t* pixels, int64_t count, const uint8_t* limits,
                const uint8_t* map) noexcept {
  const V limit = Lanes(limits);
  int64_t x = 0;
  for (; x + 8 <= count; x += 8, pixels += 32) {
    const V above = _mm256_subs_epu8(Load(pixels), limit);
    const auto below = static_cast<uint32_t>(_mm256_movemask_epi8(_mm256_cmpeq_epi8(above, _mm256_setzero_si256())));
    for (int i = 0; i < 8; ++i) {
      const uint32_t bits = ~(below >> 4 * i) & 7;  // blue, green, red
      indices[x + i] = map[bits >> 2 | (bits & 2) | (bits & 1) << 2];
    }
  }
  kDitherPortable.thresholds(indices + x, pixels, count - x, limits, map);
}

}  // namespace

constinit const DitherKernels kDitherAvx2 = {.above = Above,
                                             .diffuse = Diffuse,
                                             .aboveGray = AboveGray,
                                             .diffuseGray = DiffuseGray,
                                             .walk = WalkWave_Avx2,
                                             .walkGray = WalkGrayWave_Avx2,
                                             .ordered = Ordered,
                                             .threshold = Threshold,
                                             .thresholds = Thresholds};

}  // namespace tarn
