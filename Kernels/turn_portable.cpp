// Pixels exchanged, mirrored and transposed, one at a time or a word at a time.

#include <cstring>

#include "Kernels/Turn.h"

namespace tarn {
namespace {

void Exchange(uint8_t* a, uint8_t* b, uint64_t bytes, int64_t) noexcept {
  constexpr uint64_t kLine = 64;
  uint64_t at = 0;
  uint8_t first[kLine], second[kLine];
  for (; at + kLine <= bytes; at += kLine) {
    std::memcpy(first, a + at, kLine);
    std::memcpy(second, b + at, kLine);
    std::memcpy(b + at, first, kLine);
    std::memcpy(a + at, second, kLine);
  }
  for (; at < bytes; ++at) {
    const uint8_t byte = a[at];
    a[at] = b[at];
    b[at] = byte;
  }
}

/// From both ends, so that target may be source.
template <int kBytes>
void Mirror(uint8_t* target, const uint8_t* source, int64_t pixels, int64_t) noexcept {
  int64_t left = 0, right = pixels - 1;
  for (; left <= right; ++left, --right) {
    uint8_t first[kBytes], last[kBytes];
    std::memcpy(first, source + left * kBytes, kBytes);
    std::memcpy(last, source + right * kBytes, kBytes);
    std::memcpy(target + left * kBytes, last, kBytes);
    std::memcpy(target + right * kBytes, first, kBytes);
  }
}

uint64_t Load(const uint8_t* at) noexcept {
  uint64_t value;
  std::memcpy(&value, at, 8);
  return value;
}
void Store(uint8_t* at, uint64_t value) noexcept { std::memcpy(at, &value, 8); }

/// The pixels within each byte in reverse order.
uint64_t TurnBytes(uint64_t bytes, int32_t bits) noexcept {
  bytes = (bytes >> 4 & 0x0F0F0F0F0F0F0F0F) | (bytes & 0x0F0F0F0F0F0F0F0F) << 4;
  if (bits <= 2) bytes = (bytes >> 2 & 0x3333333333333333) | (bytes & 0x3333333333333333) << 2;
  if (bits == 1) bytes = (bytes >> 1 & 0x5555555555555555) | (bytes & 0x5555555555555555) << 1;
  return bytes;
}

void MirrorBits(uint8_t* line, int64_t pixels, int32_t bits, int64_t) noexcept {
  if (pixels <= 0) return;
  const int64_t bytes = (pixels * bits + 7) / 8;
  const auto spare = static_cast<uint32_t>(8 * bytes - pixels * bits);
  const uint32_t kept = line[bytes - 1] & ((1u << spare) - 1);
  int64_t left = 0, right = bytes;
  for (; right - left >= 16; left += 8, right -= 8) {
    const uint64_t first = TurnBytes(__builtin_bswap64(Load(line + left)), bits);
    const uint64_t last = TurnBytes(__builtin_bswap64(Load(line + right - 8)), bits);
    Store(line + left, last);
    Store(line + right - 8, first);
  }
  for (--right; left <= right; ++left, --right) {
    const uint64_t first = TurnBytes(line[left], bits), last = TurnBytes(line[right], bits);
    line[left] = static_cast<uint8_t>(last);
    line[right] = static_cast<uint8_t>(first);
  }
  if (spare == 0) return;
  // What was behind the last pixel is in front now and moves out.
  int64_t at = 0;
  for (; at + 8 < bytes; at += 8) {
    const uint64_t word = __builtin_bswap64(Load(line + at)) << spare | line[at + 8] >> (8 - spare);
    Store(line + at, __builtin_bswap64(word));
  }
  for (; at + 1 < bytes; ++at) line[at] = static_cast<uint8_t>(line[at] << spare | line[at + 1] >> (8 - spare));
  line[at] = static_cast<uint8_t>(line[at] << spare | kept);
}

// Squares of pixels, so that lines of the target are written a cache line at a time.
template <int kBytes>
void Transpose(uint8_t* target, int64_t targetStride, const uint8_t* source, int64_t sourceStride, int64_t pixels,
               int64_t lines, const TurnOn&) noexcept {
  constexpr int64_t kSide = 32;
  for (int64_t top = 0; top < lines; top += kSide) {
    const int64_t bottom = top + kSide < lines ? top + kSide : lines;
    for (int64_t x = 0; x < pixels; ++x) {
      const uint8_t* from = source + top * sourceStride + x * kBytes;
      uint8_t* to = target + x * targetStride + top * kBytes;
      for (int64_t y = top; y < bottom; ++y, from += sourceStride, to += kBytes) std::memcpy(to, from, kBytes);
    }
  }
}

/// Eight bytes of eight bits, the first byte lowest: bit 7 - i of byte j and bit 7 - j of byte i change places.
uint64_t TransposeBits(uint64_t x) noexcept {
  uint64_t t = (x ^ x >> 7) & 0x00AA00AA00AA00AA;
  x ^= t ^ t << 7;
  t = (x ^ x >> 14) & 0x0000CCCC0000CCCC;
  x ^= t ^ t << 14;
  t = (x ^ x >> 28) & 0x00000000F0F0F0F0;
  return x ^ t ^ t << 28;
}

void Transpose1(uint8_t* target, int64_t targetStride, const uint8_t* source, int64_t sourceStride, int64_t pixels,
                int64_t lines, const TurnOn&) noexcept {
  for (int64_t y = 0; y < lines; y += 8) {
    const int64_t rows = lines - y < 8 ? lines - y : 8;
    for (int64_t x = 0; x < pixels; x += 8) {
      // Bytes in reverse order exchange across the other diagonal, as most significant bits first wants it.
      const uint8_t* from = source + y * sourceStride + x / 8;
      uint64_t square = 0;
      for (int64_t i = 0; i < rows; ++i, from += sourceStride) square |= uint64_t{*from} << 8 * (7 - i);
      square = TransposeBits(square);
      uint8_t* to = target + x * targetStride + y / 8;
      const int64_t columns = pixels - x < 8 ? pixels - x : 8;
      for (int64_t i = 0; i < columns; ++i, to += targetStride) *to = static_cast<uint8_t>(square >> 8 * (7 - i));
    }
  }
}

}  // namespace

constinit const TurnKernels kTurnPortable = {.exchange = Exchange,
                                             .mirror8 = Mirror<1>,
                                             .mirror16 = Mirror<2>,
                                             .mirror24 = Mirror<3>,
                                             .mirror32 = Mirror<4>,
                                             .mirror48 = Mirror<6>,
                                             .mirror64 = Mirror<8>,
                                             .mirrorBits = MirrorBits,
                                             .transpose8 = Transpose<1>,
                                             .transpose16 = Transpose<2>,
                                             .transpose24 = Transpose<3>,
                                             .transpose32 = Transpose<4>,
                                             .transpose48 = Transpose<6>,
                                             .transpose64 = Transpose<8>,
                                             .transpose1 = Transpose1};

}  // namespace tarn
