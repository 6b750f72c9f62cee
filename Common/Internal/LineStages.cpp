// Readers, steps and writers: each the one place where its rule is stated.

#include <cstring>

#include "Common/Internal/LineContext.h"

namespace tarn {
namespace {

template <class T>
T Get(const uint8_t* block, int i) noexcept {
  T value;
  std::memcpy(&value, block + static_cast<size_t>(i) * sizeof(T), sizeof(T));
  return value;
}
template <class T>
void Set(uint8_t* block, int i, T value) noexcept {
  std::memcpy(block + static_cast<size_t>(i) * sizeof(T), &value, sizeof(T));
}

// ---- Readers -------------------------------------------------------------------------------------------------------

void ReadPacked(uint8_t* block, const uint8_t* packed, int count, const LineContext& k) noexcept {
  k.kernels->unpackIndices(block, packed, count, k.source.bits);
}

void ReadBytes(uint8_t* block, const uint8_t* packed, int count, const LineContext&) noexcept {
  std::memcpy(block, packed, static_cast<size_t>(count));
}

void ReadGray12(uint8_t* block, const uint8_t* packed, int count, const LineContext&) noexcept {
  int i = 0;
  for (; i + 2 <= count; i += 2, packed += 3) {
    Set<uint32_t>(block, i, packed[0] | (packed[1] & 15u) << 8);
    Set<uint32_t>(block, i + 1, packed[1] >> 4 | packed[2] * 16u);
  }
  if (i < count) Set<uint32_t>(block, i, packed[0] | (packed[1] & 15u) << 8);
}

void ReadGray16(uint8_t* block, const uint8_t* packed, int count, const LineContext&) noexcept {
  for (int i = 0; i < count; ++i) Set<uint32_t>(block, i, Get<uint16_t>(packed, i));
}

void ReadGray32(uint8_t* block, const uint8_t* packed, int count, const LineContext&) noexcept {
  std::memcpy(block, packed, size_t{4} * static_cast<size_t>(count));
}

void Read555(uint8_t* block, const uint8_t* packed, int count, const LineContext& k) noexcept {
  k.kernels->unpack555(block, packed, count, 0, k.source.rgb);
}

void Read24(uint8_t* block, const uint8_t* packed, int count, const LineContext& k) noexcept {
  k.kernels->widen24To32(block, packed, count, 0, k.source.rgb);
}

void Read32(uint8_t* block, const uint8_t* packed, int count, const LineContext& k) noexcept {
  if (k.source.rgb) {
    k.kernels->swap32(block, packed, count);
  } else {
    std::memcpy(block, packed, size_t{4} * static_cast<size_t>(count));
  }
}

void Read48(uint8_t* block, const uint8_t* packed, int count, const LineContext& k) noexcept {
  const int blue = k.source.rgb ? 2 : 0;
  for (int i = 0; i < count; ++i) {
    const uint64_t b = Get<uint16_t>(packed, 3 * i + blue), g = Get<uint16_t>(packed, 3 * i + 1);
    const uint64_t r = Get<uint16_t>(packed, 3 * i + 2 - blue);
    Set<uint64_t>(block, i, b | g << 16 | r << 32);
  }
}

void Read64(uint8_t* block, const uint8_t* packed, int count, const LineContext& k) noexcept {
  if (k.source.rgb) {
    k.kernels->swap64(block, packed, count);
  } else {
    std::memcpy(block, packed, size_t{8} * static_cast<size_t>(count));
  }
}

// ---- Steps ---------------------------------------------------------------------------------------------------------

/// The level of a raw deep sample, as many of its top bits as the form can use.
uint32_t LevelOf(uint32_t raw, const LineContext& k) noexcept { return raw >> k.deep.shift & k.deep.mask; }

/// A level of s significant bits as one of d.
uint32_t Rescale(uint32_t level, int32_t s, int32_t d) noexcept {
  if (s >= d) return level >> (s - d);
  const uint64_t most = (uint64_t{1} << d) - 1, have = (uint64_t{1} << s) - 1;
  const uint64_t product = level * most;
  return static_cast<uint32_t>(product <= UINT32_MAX ? static_cast<uint32_t>(product) / static_cast<uint32_t>(have)
                                                     : product / have);
}

void BytesOfBytes(uint8_t* form, const uint8_t* block, int count, const LineContext& k) noexcept {
  if (k.bytesSame) {
    std::memcpy(form, block, static_cast<size_t>(count));
    return;
  }
  for (int i = 0; i < count; ++i) form[i] = k.bytes[block[i]];
}

void BytesOfDeep(uint8_t* form, const uint8_t* block, int count, const LineContext& k) noexcept {
  for (int i = 0; i < count; ++i) form[i] = static_cast<uint8_t>(LevelOf(Get<uint32_t>(block, i), k));
  if (!k.bytesSame) BytesOfBytes(form, form, count, k);
}

void BytesOfColor8(uint8_t* form, const uint8_t* block, int count, const LineContext& k) noexcept {
  if (k.nearest) {
    k.map.Map(form, block, count);
    return;
  }
  k.kernels->gray32(form, block, count, false);
  if (!k.bytesSame) BytesOfBytes(form, form, count, k);
}

void BytesOfColor16(uint8_t* form, const uint8_t* block, int count, const LineContext& k) noexcept {
  alignas(32) uint8_t high[4 * kLineBlock];
  k.kernels->narrow16To8(high, block, 4 * int64_t{count});
  BytesOfColor8(form, high, count, k);
}

void ValuesOfBytes(uint8_t* form, const uint8_t* block, int count, const LineContext& k) noexcept {
  for (int i = 0; i < count; ++i) Set<uint32_t>(form, i, k.values[block[i]]);
}

void ValuesOfDeep(uint8_t* form, const uint8_t* block, int count, const LineContext& k) noexcept {
  const int32_t s = k.deep.significant, d = k.samples.significant, shift = k.samples.shift;
  for (int i = 0; i < count; ++i) Set<uint32_t>(form, i, Rescale(LevelOf(Get<uint32_t>(block, i), k), s, d) << shift);
}

void ValuesOfColor8(uint8_t* form, const uint8_t* block, int count, const LineContext& k) noexcept {
  uint8_t gray[kLineBlock];
  k.kernels->gray32(gray, block, count, false);
  ValuesOfBytes(form, gray, count, k);
}

void ValuesOfColor16(uint8_t* form, const uint8_t* block, int count, const LineContext& k) noexcept {
  const int32_t d = k.samples.significant, shift = k.samples.shift;
  for (int i = 0; i < count; ++i) {
    const uint32_t b = Get<uint16_t>(block, 4 * i), g = Get<uint16_t>(block, 4 * i + 1);
    const uint32_t r = Get<uint16_t>(block, 4 * i + 2);
    Set<uint32_t>(form, i, Rescale((5 * g + 2 * r + b + 4) >> 3, 16, d) << shift);
  }
}

void Color8OfIndices(uint8_t* form, const uint8_t* block, int count, const LineContext& k) noexcept {
  k.kernels->lookup32(form, block, count, k.colors);
}

void Color8OfLevels(uint8_t* form, const uint8_t* block, int count, const LineContext& k) noexcept {
  k.kernels->spread8To32(form, block, count, 0);
}

void Color8OfDeep(uint8_t* form, const uint8_t* block, int count, const LineContext& k) noexcept {
  for (int i = 0; i < count; ++i) Set<uint32_t>(form, i, LevelOf(Get<uint32_t>(block, i), k) * 0x010101u);
}

void Color8OfColor16(uint8_t* form, const uint8_t* block, int count, const LineContext& k) noexcept {
  k.kernels->narrow16To8(form, block, 4 * int64_t{count});
}

void Color16OfColor8(uint8_t* form, const uint8_t* block, int count, const LineContext& k) noexcept {
  k.kernels->widen8To16(form, block, 4 * int64_t{count});
}

void Color16OfIndices(uint8_t* form, const uint8_t* block, int count, const LineContext& k) noexcept {
  alignas(32) uint8_t colors[4 * kLineBlock];
  Color8OfIndices(colors, block, count, k);
  Color16OfColor8(form, colors, count, k);
}

void Color16OfLevels(uint8_t* form, const uint8_t* block, int count, const LineContext& k) noexcept {
  alignas(32) uint8_t colors[4 * kLineBlock];
  Color8OfLevels(colors, block, count, k);
  Color16OfColor8(form, colors, count, k);
}

void Color16OfDeep(uint8_t* form, const uint8_t* block, int count, const LineContext& k) noexcept {
  for (int i = 0; i < count; ++i) {
    const uint64_t level = Rescale(LevelOf(Get<uint32_t>(block, i), k), k.deep.significant, 16);
    Set<uint64_t>(form, i, level * UINT64_C(0x100010001));
  }
}

// ---- Writers -------------------------------------------------------------------------------------------------------

void WriteBytes(uint8_t* packed, const uint8_t* form, int count, const LineContext&) noexcept {
  std::memcpy(packed, form, static_cast<size_t>(count));
}

void WritePacked(uint8_t* packed, const uint8_t* form, int count, const LineContext& k) noexcept {
  k.kernels->packIndices(packed, form, count, k.target.bits);
}

void WriteGray12(uint8_t* packed, const uint8_t* form, int count, const LineContext&) noexcept {
  int i = 0;
  for (; i + 2 <= count; i += 2, packed += 3) {
    const uint32_t both = Get<uint32_t>(form, i) | Get<uint32_t>(form, i + 1) << 12;
    packed[0] = static_cast<uint8_t>(both);
    packed[1] = static_cast<uint8_t>(both >> 8);
    packed[2] = static_cast<uint8_t>(both >> 16);
  }
  if (i < count) Set<uint16_t>(packed, 0, static_cast<uint16_t>(Get<uint32_t>(form, i)));
}

void WriteGray16(uint8_t* packed, const uint8_t* form, int count, const LineContext&) noexcept {
  for (int i = 0; i < count; ++i) Set<uint16_t>(packed, i, static_cast<uint16_t>(Get<uint32_t>(form, i)));
}

void WriteGray32(uint8_t* packed, const uint8_t* form, int count, const LineContext&) noexcept {
  std::memcpy(packed, form, size_t{4} * static_cast<size_t>(count));
}

void Write555(uint8_t* packed, const uint8_t* form, int count, const LineContext& k) noexcept {
  k.kernels->pack555(packed, form, count, k.target.rgb);
}

void Write24(uint8_t* packed, const uint8_t* form, int count, const LineContext& k) noexcept {
  k.kernels->narrow32To24(packed, form, count, k.target.rgb);
}

void Write32(uint8_t* packed, const uint8_t* form, int count, const LineContext& k) noexcept {
  if (k.target.rgb) {
    k.kernels->swap32(packed, form, count);
  } else {
    std::memcpy(packed, form, size_t{4} * static_cast<size_t>(count));
  }
  if (k.keepAlpha) return;
  const uint32_t top = uint32_t{k.alpha} << 24;
  for (int i = 0; i < count; ++i) Set<uint32_t>(packed, i, (Get<uint32_t>(packed, i) & 0xFFFFFF) | top);
}

void Write48(uint8_t* packed, const uint8_t* form, int count, const LineContext& k) noexcept {
  const int blue = k.target.rgb ? 2 : 0;
  for (int i = 0; i < count; ++i) {
    Set<uint16_t>(packed, 3 * i + blue, Get<uint16_t>(form, 4 * i));
    Set<uint16_t>(packed, 3 * i + 1, Get<uint16_t>(form, 4 * i + 1));
    Set<uint16_t>(packed, 3 * i + 2 - blue, Get<uint16_t>(form, 4 * i + 2));
  }
}

void Write64(uint8_t* packed, const uint8_t* form, int count, const LineContext& k) noexcept {
  if (k.target.rgb) {
    k.kernels->swap64(packed, form, count);
  } else {
    std::memcpy(packed, form, size_t{8} * static_cast<size_t>(count));
  }
  if (k.keepAlpha) return;
  const auto alpha = static_cast<uint16_t>(k.alpha * 257);
  for (int i = 0; i < count; ++i) Set<uint16_t>(packed, 4 * i + 3, alpha);
}

// ---- Wide gamut ----------------------------------------------------------------------------------------------------

/// Sums of three products in 1/8192; 65535 * 16846 fits 32 bits.
template <class Sample>
Sample Clamped(int32_t sum) noexcept {
  constexpr int32_t kMost = static_cast<Sample>(~Sample{});
  const int32_t value = sum < 8192 ? 0 : sum >> 13;
  return static_cast<Sample>(value > kMost ? kMost : value);
}

using Matrix = int32_t[3][3];
constexpr Matrix kForward = {{7151, 897, 145}, {394, 7067, 731}, {1067, 2841, 4284}};
constexpr Matrix kInverse = {{9467, -1151, -125}, {-305, 10232, -1735}, {-2156, -6498, 16846}};

template <class Sample>
void Multiply(uint8_t* block, int count, const Matrix& m) noexcept {
  for (int i = 0; i < count; ++i) {
    const int32_t a = Get<Sample>(block, 4 * i), b = Get<Sample>(block, 4 * i + 1), c = Get<Sample>(block, 4 * i + 2);
    for (int row = 0; row < 3; ++row)
      Set<Sample>(block, 4 * i + row, Clamped<Sample>(m[row][0] * a + m[row][1] * b + m[row][2] * c + 4095));
  }
}

void Transform(uint8_t* block, int count, bool words, const Matrix& m) noexcept {
  if (words) {
    Multiply<uint16_t>(block, count, m);
  } else {
    Multiply<uint8_t>(block, count, m);
  }
}

// Domains by forms.
constexpr LineStep kSteps[5][4] = {
    {BytesOfBytes, ValuesOfBytes, Color8OfIndices, Color16OfIndices},
    {BytesOfBytes, ValuesOfBytes, Color8OfLevels, Color16OfLevels},
    {BytesOfDeep, ValuesOfDeep, Color8OfDeep, Color16OfDeep},
    {BytesOfColor8, ValuesOfColor8, nullptr, Color16OfColor8},
    {BytesOfColor16, ValuesOfColor16, Color8OfColor16, nullptr},
};

}  // namespace

LineRead LineReader(int32_t storedBits, bool color) noexcept {
  switch (storedBits) {
    case 8:
      return ReadBytes;
    case 12:
      return ReadGray12;
    case 16:
      return color ? Read555 : ReadGray16;
    case 24:
      return Read24;
    case 32:
      return color ? Read32 : ReadGray32;
    case 48:
      return Read48;
    case 64:
      return Read64;
    default:
      return ReadPacked;
  }
}

LineStep LineStepOf(Domain domain, Form form) noexcept {
  return kSteps[static_cast<size_t>(domain)][static_cast<size_t>(form)];
}

LineWrite LineWriter(int32_t storedBits, bool color) noexcept {
  switch (storedBits) {
    case 8:
      return WriteBytes;
    case 12:
      return WriteGray12;
    case 16:
      return color ? Write555 : WriteGray16;
    case 24:
      return Write24;
    case 32:
      return color ? Write32 : WriteGray32;
    case 48:
      return Write48;
    case 64:
      return Write64;
    default:
      return WritePacked;
  }
}

void ToWideGamut(uint8_t* block, int count, bool words) noexcept { Transform(block, count, words, kForward); }
void FromWideGamut(uint8_t* block, int count, bool words) noexcept { Transform(block, count, words, kInverse); }

}  // namespace tarn
