// Pixels exchanged and mirrored, one at a time or a word at a time.

#include <cstring>

#include "Kernels/Turn.h"

namespace tarn {
namespace {

void Exchange(uint8_t* a, uint8_t* b, uint64_t bytes) noexcept {
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
void Mirror(uint8_t* target, const uint8_t* source, int64_t pixels) noexcept {
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

void MirrorBits(uint8_t* line, int64_t pixels, int32_t bits) noexcept {
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

}  // namespace

constinit const TurnKernels kTurnPortable = {.exchange = Exchange,
                                             .mirror8 = Mirror<1>,
                                             .mirror16 = Mirror<2>,
                                             .mirror24 = Mirror<3>,
                                             .mirror32 = Mirror<4>,
                                             .mirror48 = Mirror<6>,
                                             .mirror64 = Mirror<8>,
                                             .mirrorBits = MirrorBits};

}  // namespace tarn
