#include "ConvertReference.h"

#include <algorithm>

#include "tarn/palette.h"

namespace convertref {
namespace {

using Bytes = std::vector<uint8_t>;

constexpr unsigned kGray = 2, kWide = 5;

bool IsDepth(int bits) {
  for (const int known : {0, 1, 2, 3, 4, 5, 6, 7, 8, 12, 16, 24, 32, 48, 64})
    if (bits == known) return true;
  return false;
}
int Stored(int bits) { return bits == 0 ? 8 : bits; }
bool IsColor(const Side& side) { return side.bits >= 16 && side.order != kGray; }

/// First and last significant bit of a gray sample.
struct Range {
  int low, high;
  int Bits() const { return high - low + 1; }
};
Range RangeOf(const Side& side, const Options& options, unsigned flag) {
  const int last = Stored(side.bits) - 1;
  if (!(options.flags & flag)) return {0, last};
  return {std::max(options.low, 0), options.high < 0 ? last : options.high};
}

// ---- A pixel of any kind -------------------------------------------------------------------------------------------

struct Pixel {
  enum Kind { kLevel, kDeep, kColor } kind;
  uint64_t level = 0;  // 0..255, or of a deep sample the raw one
  int64_t r = 0, g = 0, b = 0;
  int sampleBits = 8;  // of r, g, b, alpha: 8 or 16
  bool hasAlpha = false;
  int64_t alpha = 0;
  int index = -1;  // of a palette
};

uint64_t LittleEndian(const Bytes& line, size_t at, int bytes) {
  uint64_t value = 0;
  for (int i = 0; i < bytes; ++i) value |= uint64_t{line[at + static_cast<size_t>(i)]} << 8 * i;
  return value;
}
void PutLittleEndian(Bytes& line, size_t at, int bytes, uint64_t value) {
  for (int i = 0; i < bytes; ++i) line[at + static_cast<size_t>(i)] = static_cast<uint8_t>(value >> 8 * i);
}

uint64_t PackedBits(const Bytes& line, size_t first, int bits) {
  uint64_t value = 0;
  for (size_t bit = first; bit < first + static_cast<size_t>(bits); ++bit)
    value = value << 1 | (line[bit / 8] >> (7 - bit % 8) & 1);
  return value;
}

Palette PaletteOf(const Side& side) {
  if (side.palette) return *side.palette;
  T_PaletteEntry fixed[256];
  T_GetFixedPalette(fixed, static_cast<uint32_t>(side.bits));
  Palette palette;
  for (int i = 0; i < 1 << side.bits; ++i)
    palette.push_back({fixed[i].Blue, fixed[i].Green, fixed[i].Red, fixed[i].Reserved});
  return palette;
}

void Inverse(Pixel& p) {
  const int64_t most = p.sampleBits == 8 ? 255 : 65535;
  const int64_t first = p.b, second = p.g, third = p.r;
  const auto clamped = [most](int64_t sum) { return std::clamp<int64_t>(sum / 8192, 0, most); };
  p.b = clamped(9467 * first - 1151 * second - 125 * third + 4095);
  p.g = clamped(-305 * first + 10232 * second - 1735 * third + 4095);
  p.r = clamped(-2156 * first - 6498 * second + 16846 * third + 4095);
}

Pixel Read(const Bytes& line, int i, const Side& side, const Palette& palette, const Range& range) {
  const auto at = static_cast<size_t>(i);
  const int bits = side.bits;
  Pixel p{};
  if (bits <= 8) {
    const uint64_t value = PackedBits(line, at * static_cast<size_t>(Stored(bits)), Stored(bits));
    if (side.order == kGray) {
      const uint64_t most = (1u << range.Bits()) - 1;
      p.kind = Pixel::kLevel;
      p.level = (value >> range.low & most) * 255 / most;
      p.r = p.g = p.b = static_cast<int64_t>(p.level);
    } else if (bits == 0) {
      p.kind = Pixel::kLevel;
      p.level = value;
      p.r = p.g = p.b = static_cast<int64_t>(value);
    } else {
      const Entry& entry = palette[value];
      p.kind = Pixel::kColor;
      p.index = static_cast<int>(value);
      p.r = entry.red, p.g = entry.green, p.b = entry.blue;
    }
    return p;
  }
  if (!IsColor(side)) {
    p.kind = Pixel::kDeep;
    if (bits == 12) {
      const uint64_t pair = LittleEndian(line, at * 3 / 2, 2);
      p.level = i % 2 ? pair >> 4 : pair & 4095;
    } else {
      p.level = LittleEndian(line, at * static_cast<size_t>(bits / 8), bits / 8);
    }
    return p;
  }
  p.kind = Pixel::kColor;
  if (bits == 16) {
    const uint64_t word = LittleEndian(line, 2 * at, 2);
    const auto channel = [word](int low) {
      return static_cast<int64_t>((word >> low & 31) * 8 + (word >> low & 31) / 4);
    };
    p.r = channel(10), p.g = channel(5), p.b = channel(0);
  } else {
    p.sampleBits = bits >= 48 ? 16 : 8;
    const int sample = p.sampleBits / 8;
    const size_t start = at * static_cast<size_t>(bits / 8);
    const auto read = [&](size_t k) {
      return static_cast<int64_t>(LittleEndian(line, start + k * static_cast<size_t>(sample), sample));
    };
    p.b = read(0), p.g = read(1), p.r = read(2);
    p.hasAlpha = bits == 32 || bits == 64;
    if (p.hasAlpha) p.alpha = read(3);
  }
  if (side.order == 0) std::swap(p.r, p.b);
  return p;
}

// ---- Rules ---------------------------------------------------------------------------------------------------------

struct Level {
  uint64_t value;
  int bits;
};
/// The top bits of a raw sample's range, `most` of them at the most.
Level Top(const Pixel& p, const Range& range, int most) {
  const int bits = std::min(range.Bits(), most);
  return {p.level >> (range.high - bits + 1) & ((uint64_t{1} << bits) - 1), bits};
}
uint64_t Rescaled(const Level& level, int bits) {
  if (bits <= level.bits) return level.value >> (level.bits - bits);
  return level.value * ((uint64_t{1} << bits) - 1) / ((uint64_t{1} << level.bits) - 1);
}

int64_t HighByte(const Pixel& p, int64_t sample) { return p.sampleBits == 16 ? sample >> 8 : sample; }
int64_t Word(const Pixel& p, int64_t sample) { return p.sampleBits == 16 ? sample : sample * 257; }
int64_t Weighted(int64_t r, int64_t g, int64_t b) { return (5 * g + 2 * r + b + 4) / 8; }

uint64_t Gray8(const Pixel& p, const Range& range) {
  if (p.kind == Pixel::kLevel) return p.level;
  if (p.kind == Pixel::kDeep) return Top(p, range, 8).value;
  return static_cast<uint64_t>(Weighted(HighByte(p, p.r), HighByte(p, p.g), HighByte(p, p.b)));
}

/// A gray sample of the target, where it belongs in the stored value.
uint64_t GraySample(const Pixel& p, const Range& from, const Range& to, bool bothThirtyTwo) {
  const int bits = to.Bits();
  if (p.kind == Pixel::kDeep) return Rescaled(Top(p, from, bothThirtyTwo ? 32 : 16), bits) << to.low;
  if (p.kind == Pixel::kColor && p.sampleBits == 16)
    return Rescaled({static_cast<uint64_t>(Weighted(p.r, p.g, p.b)), 16}, bits) << to.low;
  const uint64_t gray = Gray8(p, from);
  return (bits >= 8 ? ((gray << bits) - gray) / 255 : gray >> (8 - bits)) << to.low;
}

void Forward(Pixel& p) {
  const int64_t most = p.sampleBits == 8 ? 255 : 65535;
  const int64_t b = p.b, g = p.g, r = p.r;
  p.b = std::min((7151 * b + 897 * g + 145 * r + 4095) >> 13, most);
  p.g = std::min((394 * b + 7067 * g + 731 * r + 4095) >> 13, most);
  p.r = std::min((1067 * b + 2841 * g + 4284 * r + 4095) >> 13, most);
}

/// The pixel as a colour of the target's samples.
Pixel Colored(const Pixel& p, const Range& from, int sampleBits) {
  Pixel c = p;
  c.kind = Pixel::kColor;
  c.sampleBits = sampleBits;
  if (p.kind == Pixel::kDeep) {
    const uint64_t level = sampleBits == 8 ? Top(p, from, 8).value : Rescaled(Top(p, from, 16), 16);
    c.r = c.g = c.b = static_cast<int64_t>(level);
    return c;
  }
  for (int64_t Pixel::*sample : {&Pixel::r, &Pixel::g, &Pixel::b, &Pixel::alpha})
    c.*sample = sampleBits == 8 ? HighByte(p, p.*sample) : Word(p, p.*sample);
  return c;
}

void WriteColor(Bytes& line, int i, const Side& side, Pixel c, const Options& options) {
  if (side.order == 0) std::swap(c.r, c.b);
  const auto at = static_cast<size_t>(i);
  if (side.bits == 16) {
    PutLittleEndian(line, 2 * at, 2, static_cast<uint64_t>(c.r / 8 << 10 | c.g / 8 << 5 | c.b / 8));
    return;
  }
  const int sample = c.sampleBits / 8;
  const size_t start = at * static_cast<size_t>(side.bits / 8);
  int64_t samples[4] = {c.b, c.g, c.r, c.hasAlpha ? c.alpha : 0};
  if (options.flags & 48) samples[3] = c.sampleBits == 8 ? 255 : 65535;
  for (size_t k = 0; k < (side.bits == 32 || side.bits == 64 ? 4 : 3); ++k)
    PutLittleEndian(line, start + k * static_cast<size_t>(sample), sample, static_cast<uint64_t>(samples[k]));
}

void WriteBits(Bytes& line, int i, int bits, uint64_t value) {
  const size_t first = static_cast<size_t>(i) * static_cast<size_t>(bits);
  for (int bit = 0; bit < bits; ++bit)
    if (value >> (bits - 1 - bit) & 1)
      line[(first + static_cast<size_t>(bit)) / 8] |=
          static_cast<uint8_t>(0x80 >> (first + static_cast<size_t>(bit)) % 8);
}

uint64_t IndexOf(const Pixel& p, const Range& from, const Palette& source, const Palette& target) {
  if (p.index >= 0 && target.size() >= source.size() &&
      std::equal(source.begin(), source.end(), target.begin(), [](const Entry& a, const Entry& b) {
        return a.red == b.red && a.green == b.green && a.blue == b.blue && a.reserved == b.reserved;
      }))
    return static_cast<uint64_t>(p.index);
  const Pixel c = Colored(p, from, 8);
  return T_FindPaletteIndex(reinterpret_cast<const T_PaletteEntry*>(target.data()),
                            static_cast<uint32_t>(target.size()), static_cast<uint8_t>(c.r), static_cast<uint8_t>(c.g),
                            static_cast<uint8_t>(c.b));
}

}  // namespace

bool Accepts(const Side& source, const Side& target, const Options& options) {
  Options o = options;
  if (source.order != kGray) o.flags &= ~4u;
  if ((o.flags & 12) == 12 || ((o.flags & 8) && target.order != kGray)) return false;
  for (const Side* side : {&source, &target}) {
    if (!IsDepth(side->bits)) return false;
    if (side->bits == 12 && side->order != kGray) return false;
    if (side->order == kWide && side->bits != 24 && side->bits != 48) return false;
    if (side->order == kGray && (side->bits == 24 || side->bits == 48 || side->bits == 64)) return false;
  }
  const auto named = [](unsigned order) { return order == 0 || order == 1 || order == kWide; };
  if (source.bits == 24 && !named(source.order)) return false;
  if (IsColor(source) && IsColor(target) && !named(target.order)) return false;
  if (!(o.flags & 12)) return true;
  const int last = Stored(o.flags & 4 ? source.bits : target.bits) - 1;
  const int high = o.high < 0 ? last : o.high;
  return std::max(o.low, 0) <= high && high <= last;
}

std::vector<uint8_t> Convert(const std::vector<uint8_t>& line, int width, const Side& source, const Side& target,
                             const Options& options) {
  Options o = options;
  if (source.order != kGray) o.flags &= ~4u;
  const Range from = RangeOf(source, o, 4), to = RangeOf(target, o, 8);
  const bool paletteSource = source.bits >= 1 && source.bits <= 8 && source.order != kGray;
  const bool paletteTarget = target.bits >= 1 && target.bits <= 8 && target.order != kGray;
  const Palette sourcePalette = paletteSource ? PaletteOf(source) : Palette();
  const Palette targetPalette = paletteTarget ? PaletteOf(target) : Palette();
  Bytes result((static_cast<size_t>(width) * static_cast<size_t>(Stored(target.bits)) + 7) / 8 + 1);
  for (int i = 0; i < width; ++i) {
    Pixel p = Read(line, i, source, sourcePalette, from);
    if (source.order == kWide && target.order != kWide) Inverse(p);
    if (IsColor(target)) {
      Pixel c = Colored(p, from, target.bits >= 48 ? 16 : 8);
      if (target.order == kWide && source.order != kWide) Forward(c);
      if (source.bits == 16 && IsColor(source) && target.bits == 16) {  // the unused bit stays
        WriteColor(result, i, target, c, o);
        result[static_cast<size_t>(i) * 2 + 1] |= line[static_cast<size_t>(i) * 2 + 1] & 0x80;
      } else {
        WriteColor(result, i, target, c, o);
      }
    } else if (paletteTarget) {
      WriteBits(result, i, target.bits, IndexOf(p, from, sourcePalette, targetPalette));
    } else {
      const bool bytes = target.bits <= 8;
      Pixel gray = p;
      if (bytes) gray.kind = Pixel::kLevel, gray.level = Gray8(p, from);
      const uint64_t sample = GraySample(gray, from, to, source.bits == 32 && target.bits == 32);
      if (bytes) {
        WriteBits(result, i, Stored(target.bits), sample);
      } else if (target.bits == 12) {
        const size_t at = static_cast<size_t>(i) * 3 / 2;
        const uint64_t held = LittleEndian(result, at, 2);
        PutLittleEndian(result, at, 2, i % 2 ? held | sample << 4 : held | sample);
      } else {
        PutLittleEndian(result, static_cast<size_t>(i) * static_cast<size_t>(target.bits / 8), target.bits / 8, sample);
      }
    }
  }
  result.resize((static_cast<size_t>(width) * static_cast<size_t>(Stored(target.bits)) + 7) / 8);
  return result;
}

}  // namespace convertref
