// Stretches of bits moved from any bit to any bit: both bit orders, by way of 64-bit words.

#include <cstdint>
#include <cstring>

#include "Kernels/Kernels.h"

namespace tarn {
namespace {

uint8_t Merged(uint8_t old, uint8_t fresh, unsigned mask) noexcept {
  return static_cast<uint8_t>((old & ~mask) | (fresh & mask));
}

// Bit 0 of a byte is its most significant one.
struct HighFirst {
  static uint8_t Join(unsigned low, unsigned high, unsigned shift) noexcept {
    return static_cast<uint8_t>(low << shift | high >> (8 - shift));
  }
  static uint64_t Load(const uint8_t* source) noexcept {
    uint64_t word;
    std::memcpy(&word, source, sizeof word);
    return __builtin_bswap64(word);
  }
  static void Store(uint8_t* target, uint64_t word) noexcept {
    word = __builtin_bswap64(word);
    std::memcpy(target, &word, sizeof word);
  }
  static uint64_t Join64(uint64_t word, uint64_t next, unsigned shift) noexcept {
    return word << shift | next >> (8 - shift);
  }
  static unsigned From(unsigned bit) noexcept { return 0xFFu >> bit; }
  static unsigned Before(unsigned bit) noexcept { return ~(0xFFu >> bit) & 0xFF; }
};

// Bit 0 of a byte is its least significant one.
struct LowFirst {
  static uint8_t Join(unsigned low, unsigned high, unsigned shift) noexcept {
    return static_cast<uint8_t>(low >> shift | high << (8 - shift));
  }
  static uint64_t Load(const uint8_t* source) noexcept {
    uint64_t word;
    std::memcpy(&word, source, sizeof word);
    return word;
  }
  static void Store(uint8_t* target, uint64_t word) noexcept { std::memcpy(target, &word, sizeof word); }
  static uint64_t Join64(uint64_t word, uint64_t next, unsigned shift) noexcept {
    return word >> shift | next << (64 - shift);
  }
  static unsigned From(unsigned bit) noexcept { return (0xFFu << bit) & 0xFF; }
  static unsigned Before(unsigned bit) noexcept { return ~(0xFFu << bit) & 0xFF; }
};

// 8 bits of source from `bit` on, of which `count` are wanted: a second byte is touched only if it holds some of them.
template <class Order>
uint8_t Gather(const uint8_t* source, unsigned bit, unsigned count) noexcept {
  return Order::Join(source[0], bit + count > 8 ? source[1] : 0u, bit);
}

template <class Order>
void Shift(uint8_t* target, uint32_t targetBit, const uint8_t* source, uint32_t sourceBit, uint64_t bits) noexcept {
  if (bits == 0) return;
  if (targetBit != 0) {
    const unsigned room = 8 - targetBit;
    const unsigned count = bits < room ? static_cast<unsigned>(bits) : room;
    const uint8_t fresh = Gather<Order>(source, sourceBit, count);
    // The bits move on to where the target wants them: towards the end of the byte.
    const uint8_t moved = Order::Join(0, fresh, room);
    const unsigned mask = Order::From(targetBit) & Order::Before(targetBit + count);
    target[0] = Merged(target[0], moved, mask);
    bits -= count;
    ++target;
    sourceBit += count;
    source += sourceBit / 8;
    sourceBit %= 8;
  }
  const uint64_t bytes = bits / 8;
  uint64_t at = 0;
  if (sourceBit == 0) {
    std::memcpy(target, source, bytes);
    at = bytes;
  }
  for (; at + 8 <= bytes; at += 8)
    Order::Store(target + at, Order::Join64(Order::Load(source + at), source[at + 8], sourceBit));
  for (; at < bytes; ++at) target[at] = Order::Join(source[at], source[at + 1], sourceBit);
  if (const unsigned rest = bits % 8) {
    const uint8_t fresh = Gather<Order>(source + bytes, sourceBit, rest);
    target[bytes] = Merged(target[bytes], fresh, Order::Before(rest));
  }
}

}  // namespace

void ShiftBits_Portable(uint8_t* target, uint32_t targetBit, const uint8_t* source, uint32_t sourceBit,
                        uint64_t bits) noexcept {
  Shift<HighFirst>(target, targetBit, source, sourceBit, bits);
}

void ShiftLowBits_Portable(uint8_t* target, uint32_t targetBit, const uint8_t* source, uint32_t sourceBit,
                           uint64_t bits) noexcept {
  Shift<LowFirst>(target, targetBit, source, sourceBit, bits);
}

}  // namespace tarn
