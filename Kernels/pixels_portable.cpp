// Layout of pixels, one at a time.

#include <cstring>

#include "Kernels/Pixels.h"

namespace tarn {
namespace {

uint32_t Load16(const uint8_t* at) noexcept { return static_cast<uint32_t>(at[0] | at[1] << 8); }

void Store16(uint8_t* at, uint32_t value) noexcept {
  at[0] = static_cast<uint8_t>(value);
  at[1] = static_cast<uint8_t>(value >> 8);
}

void Store32(uint8_t* at, uint32_t value) noexcept { std::memcpy(at, &value, 4); }

void Store24(uint8_t* at, uint32_t value) noexcept {
  Store16(at, value);
  at[2] = static_cast<uint8_t>(value >> 16);
}

/// Calls convert(i) for all pixels: from the last one on where a wider target begins in its source.
template <class Convert>
void EachPixel(const uint8_t* target, const uint8_t* source, int64_t sourceBytes, int64_t pixels,
               Convert convert) noexcept {
  const bool inside =
      reinterpret_cast<uintptr_t>(target) - reinterpret_cast<uintptr_t>(source) < static_cast<uintptr_t>(sourceBytes);
  if (inside) {
    for (int64_t i = pixels - 1; i >= 0; --i) convert(i);
  } else {
    for (int64_t i = 0; i < pixels; ++i) convert(i);
  }
}

void Widen24To32(uint8_t* target, const uint8_t* source, int64_t pixels, uint8_t alpha, bool swap) noexcept {
  const uint32_t top = uint32_t{alpha} << 24;
  const int lowest = swap ? 16 : 0;
  EachPixel(target, source, 3 * pixels, pixels, [=](int64_t i) {
    const uint8_t* const s = source + 3 * i;
    const uint32_t first = s[0], second = s[1], third = s[2];
    Store32(target + 4 * i, first << lowest | second << 8 | third << (16 - lowest) | top);
  });
}

void Narrow32To24(uint8_t* target, const uint8_t* source, int64_t pixels, bool swap) noexcept {
  const int first = swap ? 2 : 0;
  for (int64_t i = 0; i < pixels; ++i, target += 3, source += 4) {
    const uint8_t a = source[first], b = source[1], c = source[2 - first];
    target[0] = a;
    target[1] = b;
    target[2] = c;
  }
}

/// Pixels of `kSamples` samples of `kBytes` bytes; the rest of a pixel is copied.
template <int kBytes, int kSamples>
void Swap(uint8_t* target, const uint8_t* source, int64_t pixels) noexcept {
  constexpr int kPixel = kBytes * kSamples;
  for (int64_t i = 0; i < pixels; ++i, target += kPixel, source += kPixel) {
    uint8_t pixel[kPixel];
    std::memcpy(pixel, source + 2 * kBytes, kBytes);
    std::memcpy(pixel + kBytes, source + kBytes, kBytes);
    std::memcpy(pixel + 2 * kBytes, source, kBytes);
    if constexpr (kSamples > 3) std::memcpy(pixel + 3 * kBytes, source + 3 * kBytes, kBytes);
    std::memcpy(target, pixel, kPixel);
  }
}

template <int kPixel>
void Gray(uint8_t* target, const uint8_t* source, int64_t pixels, bool swap) noexcept {
  const int blue = swap ? 2 : 0;
  for (int64_t i = 0; i < pixels; ++i, source += kPixel)
    target[i] = static_cast<uint8_t>((5 * source[1] + 2 * source[2 - blue] + source[blue] + 4) >> 3);
}

void Spread8To24(uint8_t* target, const uint8_t* source, int64_t pixels) noexcept {
  EachPixel(target, source, pixels, pixels, [=](int64_t i) { Store24(target + 3 * i, source[i] * 0x010101u); });
}

void Spread8To32(uint8_t* target, const uint8_t* source, int64_t pixels, uint8_t alpha) noexcept {
  const uint32_t top = uint32_t{alpha} << 24;
  EachPixel(target, source, pixels, pixels, [=](int64_t i) { Store32(target + 4 * i, source[i] * 0x010101u | top); });
}

/// Pixels of kBytes bytes; the fourth does not count.
template <int kBytes>
void Pack555(uint8_t* target, const uint8_t* source, int64_t pixels, bool swap) noexcept {
  const int low = swap ? 2 : 0;
  for (int64_t i = 0; i < pixels; ++i, target += 2, source += kBytes)
    Store16(target, static_cast<uint32_t>(source[2 - low] >> 3 << 10 | source[1] >> 3 << 5 | source[low] >> 3));
}

uint32_t Unpacked555(const uint8_t* source, bool swap) noexcept {
  const uint32_t word = Load16(source);
  const auto widened = [word](int shift) {
    const uint32_t channel = word >> shift & 31;
    return channel << 3 | channel >> 2;
  };
  return widened(swap ? 10 : 0) | widened(5) << 8 | widened(swap ? 0 : 10) << 16;
}

void Unpack555(uint8_t* target, const uint8_t* source, int64_t pixels, uint8_t alpha, bool swap) noexcept {
  const uint32_t top = uint32_t{alpha} << 24;
  EachPixel(target, source, 2 * pixels, pixels,
            [=](int64_t i) { Store32(target + 4 * i, Unpacked555(source + 2 * i, swap) | top); });
}

void Unpack555To24(uint8_t* target, const uint8_t* source, int64_t pixels, bool swap) noexcept {
  EachPixel(target, source, 2 * pixels, pixels,
            [=](int64_t i) { Store24(target + 3 * i, Unpacked555(source + 2 * i, swap)); });
}

void Widen8To16(uint8_t* target, const uint8_t* source, int64_t samples) noexcept {
  EachPixel(target, source, samples, samples, [=](int64_t i) { Store16(target + 2 * i, source[i] * 257u); });
}

void Narrow16To8(uint8_t* target, const uint8_t* source, int64_t samples) noexcept {
  for (int64_t i = 0; i < samples; ++i) target[i] = source[2 * i + 1];
}

void UnpackIndices(uint8_t* target, const uint8_t* source, int64_t pixels, int32_t bits) noexcept {
  const uint32_t mask = (1u << bits) - 1;
  uint32_t held = 0;  // the last `count` bits of source read and not yet given out, and some before them
  int32_t count = 0;
  for (int64_t i = 0; i < pixels; ++i) {
    if (count < bits) {
      held = held << 8 | *source++;
      count += 8;
    }
    count -= bits;
    target[i] = static_cast<uint8_t>(held >> count & mask);
  }
}

void PackIndices(uint8_t* target, const uint8_t* source, int64_t pixels, int32_t bits) noexcept {
  uint32_t held = 0;
  int32_t count = 0;
  for (int64_t i = 0; i < pixels; ++i) {
    held = held << bits | source[i];
    count += bits;
    if (count >= 8) {
      count -= 8;
      *target++ = static_cast<uint8_t>(held >> count);
    }
  }
  if (count > 0) *target = static_cast<uint8_t>(held << (8 - count));
}

bool BitOf(const uint8_t* source, int64_t i) noexcept { return source[i >> 3] >> (7 - (i & 7)) & 1; }

void ExpandBitsTo8(uint8_t* target, const uint8_t* source, int64_t pixels, uint8_t zero, uint8_t one) noexcept {
  EachPixel(target, source, (pixels + 7) / 8, pixels, [=](int64_t i) { target[i] = BitOf(source, i) ? one : zero; });
}

void ExpandBitsTo24(uint8_t* target, const uint8_t* source, int64_t pixels, uint32_t zero, uint32_t one) noexcept {
  EachPixel(target, source, (pixels + 7) / 8, pixels,
            [=](int64_t i) { Store24(target + 3 * i, BitOf(source, i) ? one : zero); });
}

void ExpandBitsTo32(uint8_t* target, const uint8_t* source, int64_t pixels, uint32_t zero, uint32_t one) noexcept {
  EachPixel(target, source, (pixels + 7) / 8, pixels,
            [=](int64_t i) { Store32(target + 4 * i, BitOf(source, i) ? one : zero); });
}

uint64_t Load64(const uint8_t* at) noexcept {
  uint64_t value;
  std::memcpy(&value, at, 8);
  return value;
}
void Store64(uint8_t* at, uint64_t value) noexcept { std::memcpy(at, &value, 8); }

/// Calls eight(i) for pixels i.. in whole eights and one(i) for the rest, in the order of EachPixel.
template <class Eight, class One>
void EachEight(const uint8_t* target, const uint8_t* source, int64_t pixels, Eight eight, One one) noexcept {
  const int64_t eights = pixels / 8, done = 8 * eights;
  const bool inPlace = target == source;
  const auto rest = [=] {
    for (int64_t i = 0; i < pixels - done; ++i) one(inPlace ? pixels - 1 - i : done + i);
  };
  if (inPlace) rest();
  EachPixel(target, source, pixels, eights, [=](int64_t i) { eight(8 * i); });
  if (!inPlace) rest();
}

void Lookup24(uint8_t* target, const uint8_t* source, int64_t pixels, const uint32_t* table) noexcept {
  const auto eight = [=](int64_t i) {  // in three words of 64 bits
    const uint64_t indices = Load64(source + i);
    const auto color = [indices, table](int at) -> uint64_t { return table[indices >> 8 * at & 255]; };
    const uint64_t third = color(2), sixth = color(5);
    uint8_t* const to = target + 3 * i;
    Store64(to, color(0) | color(1) << 24 | third << 48);
    Store64(to + 8, third >> 16 | color(3) << 8 | color(4) << 32 | sixth << 56);
    Store64(to + 16, sixth >> 8 | color(6) << 16 | color(7) << 40);
  };
  EachEight(target, source, pixels, eight, [=](int64_t i) { Store24(target + 3 * i, table[source[i]]); });
}

void Lookup32(uint8_t* target, const uint8_t* source, int64_t pixels, const uint32_t* table) noexcept {
  const auto eight = [=](int64_t i) {
    const uint64_t indices = Load64(source + i);
    const auto color = [indices, table](int at) -> uint64_t { return table[indices >> 8 * at & 255]; };
    for (int at = 0; at < 8; at += 2) Store64(target + 4 * (i + at), color(at) | color(at + 1) << 32);
  };
  EachEight(target, source, pixels, eight, [=](int64_t i) { Store32(target + 4 * i, table[source[i]]); });
}

}  // namespace

constinit const PixelKernels kPixelsPortable = {.widen24To32 = Widen24To32,
                                                .narrow32To24 = Narrow32To24,
                                                .swap24 = Swap<1, 3>,
                                                .swap32 = Swap<1, 4>,
                                                .swap48 = Swap<2, 3>,
                                                .swap64 = Swap<2, 4>,
                                                .gray24 = Gray<3>,
                                                .gray32 = Gray<4>,
                                                .spread8To24 = Spread8To24,
                                                .spread8To32 = Spread8To32,
                                                .pack555 = Pack555<4>,
                                                .pack24To555 = Pack555<3>,
                                                .unpack555 = Unpack555,
                                                .unpack555To24 = Unpack555To24,
                                                .widen8To16 = Widen8To16,
                                                .narrow16To8 = Narrow16To8,
                                                .unpackIndices = UnpackIndices,
                                                .packIndices = PackIndices,
                                                .expandBitsTo8 = ExpandBitsTo8,
                                                .expandBitsTo24 = ExpandBitsTo24,
                                                .expandBitsTo32 = ExpandBitsTo32,
                                                .lookup24 = Lookup24,
                                                .lookup32 = Lookup32};

}  // namespace tarn
