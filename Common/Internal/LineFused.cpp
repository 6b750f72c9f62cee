// Pairs of formats that one kernel converts: those that scans, photographs and screens are made of.

#include <cstring>

#include "Common/Internal/LineContext.h"

namespace tarn {
namespace {

bool Swapped(const LineContext& k) noexcept { return !k.SameOrder(); }

// ---- Colour to colour ----

void Swap24(uint8_t* t, const uint8_t* s, int64_t n, const LineContext& k) noexcept { k.kernels->swap24(t, s, n); }
void Swap32(uint8_t* t, const uint8_t* s, int64_t n, const LineContext& k) noexcept { k.kernels->swap32(t, s, n); }
void Swap48(uint8_t* t, const uint8_t* s, int64_t n, const LineContext& k) noexcept { k.kernels->swap48(t, s, n); }
void Swap64(uint8_t* t, const uint8_t* s, int64_t n, const LineContext& k) noexcept { k.kernels->swap64(t, s, n); }

void Swap555(uint8_t* t, const uint8_t* s, int64_t n, const LineContext&) noexcept {
  for (int64_t i = 0; i < n; ++i) {
    uint16_t word;
    std::memcpy(&word, s + 2 * i, 2);
    word = static_cast<uint16_t>((word & 0x83E0) | (word >> 10 & 31) | (word & 31) << 10);  // bit 15 stays
    std::memcpy(t + 2 * i, &word, 2);
  }
}

void From24To32(uint8_t* t, const uint8_t* s, int64_t n, const LineContext& k) noexcept {
  k.kernels->widen24To32(t, s, n, k.alpha, Swapped(k));
}
void From32To24(uint8_t* t, const uint8_t* s, int64_t n, const LineContext& k) noexcept {
  k.kernels->narrow32To24(t, s, n, Swapped(k));
}
void From32To16(uint8_t* t, const uint8_t* s, int64_t n, const LineContext& k) noexcept {
  k.kernels->pack555(t, s, n, Swapped(k));
}
void From24To16(uint8_t* t, const uint8_t* s, int64_t n, const LineContext& k) noexcept {
  k.kernels->pack24To555(t, s, n, Swapped(k));
}
void From16To24(uint8_t* t, const uint8_t* s, int64_t n, const LineContext& k) noexcept {
  k.kernels->unpack555To24(t, s, n, Swapped(k));
}
void From16To32(uint8_t* t, const uint8_t* s, int64_t n, const LineContext& k) noexcept {
  k.kernels->unpack555(t, s, n, k.alpha, Swapped(k));
}
void From24To48(uint8_t* t, const uint8_t* s, int64_t n, const LineContext& k) noexcept {
  k.kernels->widen8To16(t, s, 3 * n);
  if (Swapped(k)) k.kernels->swap48(t, t, n);
}
void From48To24(uint8_t* t, const uint8_t* s, int64_t n, const LineContext& k) noexcept {
  k.kernels->narrow16To8(t, s, 3 * n);
  if (Swapped(k)) k.kernels->swap24(t, t, n);
}

// ---- Gray ----

void From24ToGray(uint8_t* t, const uint8_t* s, int64_t n, const LineContext& k) noexcept {
  k.kernels->gray24(t, s, n, k.source.rgb);
}
void From32ToGray(uint8_t* t, const uint8_t* s, int64_t n, const LineContext& k) noexcept {
  k.kernels->gray32(t, s, n, k.source.rgb);
}
void FromGrayTo24(uint8_t* t, const uint8_t* s, int64_t n, const LineContext& k) noexcept {
  k.kernels->spread8To24(t, s, n);
}
void FromGrayTo32(uint8_t* t, const uint8_t* s, int64_t n, const LineContext& k) noexcept {
  k.kernels->spread8To32(t, s, n, k.alpha);
}
void Gray8To16(uint8_t* t, const uint8_t* s, int64_t n, const LineContext& k) noexcept {
  k.kernels->widen8To16(t, s, n);
}
void Gray16To8(uint8_t* t, const uint8_t* s, int64_t n, const LineContext& k) noexcept {
  k.kernels->narrow16To8(t, s, n);
}

// ---- Indices ----

void BitsTo8(uint8_t* t, const uint8_t* s, int64_t n, const LineContext& k) noexcept {
  k.kernels->expandBitsTo8(t, s, n, k.bytes[0], k.bytes[1]);
}
void BitsTo24(uint8_t* t, const uint8_t* s, int64_t n, const LineContext& k) noexcept {
  k.kernels->expandBitsTo24(t, s, n, k.packed[0], k.packed[1]);
}
void BitsTo32(uint8_t* t, const uint8_t* s, int64_t n, const LineContext& k) noexcept {
  k.kernels->expandBitsTo32(t, s, n, k.packed[0], k.packed[1]);
}
void IndicesTo24(uint8_t* t, const uint8_t* s, int64_t n, const LineContext& k) noexcept {
  k.kernels->lookup24(t, s, n, k.packed);
}
void IndicesTo32(uint8_t* t, const uint8_t* s, int64_t n, const LineContext& k) noexcept {
  k.kernels->lookup32(t, s, n, k.packed);
}

void PackColors(LineContext& k) noexcept {
  const uint32_t top = k.target.bits == 32 ? uint32_t{k.alpha} << 24 : 0;
  const int count = 1 << k.source.bits;
  if (k.target.rgb) {
    for (int i = 0; i < count; ++i) {
      const uint32_t color = k.colors[i];
      k.packed[i] = (color & 0xFF00) | (color >> 16 & 255) | (color & 255) << 16 | top;
    }
  } else {
    for (int i = 0; i < count; ++i) k.packed[i] = (k.colors[i] & 0xFFFFFF) | top;
  }
}

LineWhole FuseColors(const LineContext& k) noexcept {
  const bool keeps = k.keepAlpha;
  switch (k.source.bits << 8 | k.target.bits) {
    case 16 << 8 | 16:
      return Swap555;
    case 24 << 8 | 24:
      return Swap24;
    case 32 << 8 | 32:
      return keeps ? Swap32 : nullptr;
    case 48 << 8 | 48:
      return Swap48;
    case 64 << 8 | 64:
      return keeps ? Swap64 : nullptr;
    case 24 << 8 | 32:
      return From24To32;
    case 32 << 8 | 24:
      return From32To24;
    case 32 << 8 | 16:
      return From32To16;
    case 24 << 8 | 16:
      return From24To16;
    case 16 << 8 | 24:
      return From16To24;
    case 16 << 8 | 32:
      return From16To32;
    case 24 << 8 | 48:
      return From24To48;
    case 48 << 8 | 24:
      return From48To24;
    default:
      return nullptr;
  }
}

/// To 24 or 32 bits of colour.
LineWhole FuseLevels(LineContext& k) noexcept {
  const bool to24 = k.target.bits == 24;
  if (k.domain == Domain::kLevel8) return to24 ? FromGrayTo24 : FromGrayTo32;
  if (k.domain != Domain::kIndex || (k.source.bits != 1 && k.source.bits != 8)) return nullptr;
  PackColors(k);
  if (k.source.bits == 1) return to24 ? BitsTo24 : BitsTo32;
  return to24 ? IndicesTo24 : IndicesTo32;
}

}  // namespace

LineWhole FuseLine(LineContext& k) noexcept {
  if (k.toWide || k.fromWide) return nullptr;
  const int32_t from = k.source.bits, to = k.target.bits;
  if (k.source.color && k.target.color) return FuseColors(k);
  if (k.form == Form::kColor8 && to >= 24) return FuseLevels(k);
  if (k.form == Form::kValues) {
    const bool plain = to == 16 && !k.target.ranged && k.domain == Domain::kLevel8;
    return plain ? Gray8To16 : nullptr;
  }
  if (k.form != Form::kBytes || to != 8) return nullptr;
  if (from == 1) return BitsTo8;
  if (k.nearest || !k.bytesSame) return nullptr;
  if (k.source.color && from == 24) return From24ToGray;
  if (k.source.color && from == 32) return From32ToGray;
  if (k.domain == Domain::kDeep && from == 16 && !k.source.ranged) return Gray16To8;
  return nullptr;
}

}  // namespace tarn
