#pragma once
// Run lengths of one-bit rows the slow way, one byte or one pixel at a time, and pictures to try them on. Shares no
// code with the library.

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace runref {

using Words = std::vector<uint16_t>;
using Pixels = std::vector<bool>;

/// The byte-wise method: every byte gives its runs; the first one is added to the current run when the values agree,
/// after closing it when the sum would pass 65535.
inline Words Compress(const uint8_t* packed, uint32_t firstBit, uint64_t pixels) {
  Words words;
  int64_t run = -static_cast<int64_t>(firstBit);
  bool ones = false;
  const auto append = [&](int64_t length) { words.push_back(static_cast<uint16_t>(length)); };
  const uint64_t bits = pixels ? firstBit + pixels : 0;
  for (uint64_t byte = 0; 8 * byte < bits; ++byte) {
    const int valid = static_cast<int>(std::min<uint64_t>(8, bits - 8 * byte));
    const int value = byte ? packed[byte] : packed[byte] & (0xFF >> firstBit);
    int lengths[8];
    int number = 0;
    for (int i = 0; i < valid; ++i) {
      const bool same = i && (value >> (7 - i) & 1) == (value >> (8 - i) & 1);
      if (same)
        ++lengths[number - 1];
      else
        lengths[number++] = 1;
    }
    int taken = 0;
    if ((value >> 7 & 1) == (ones ? 1 : 0)) {
      if (run + lengths[0] > 65535) {
        append(run);
        append(0);
        run = 0;
      }
      run += lengths[taken++];
    }
    for (; taken < number; ++taken) {
      append(run);
      run = lengths[taken];
      ones = !ones;
    }
  }
  append(pixels ? run : 0);
  return words;
}

inline std::vector<uint8_t> Pack(const Pixels& pixels, uint32_t firstBit = 0, bool background = false) {
  std::vector<uint8_t> packed((firstBit + pixels.size() + 7) / 8, background ? 0xFF : 0);
  for (size_t i = 0; i < pixels.size(); ++i) {
    const size_t at = firstBit + i;
    const uint8_t bit = static_cast<uint8_t>(0x80 >> at % 8);
    packed[at / 8] = static_cast<uint8_t>(pixels[i] ? packed[at / 8] | bit : packed[at / 8] & ~bit);
  }
  return packed;
}

inline Words Compress(const Pixels& pixels, uint32_t firstBit = 0) {
  return Compress(Pack(pixels, firstBit).data(), firstBit, pixels.size());
}

/// Pixels first .. first + count - 1 of any word list; zeros where it ends.
inline Pixels Expand(const Words& words, uint64_t first, uint64_t count) {
  Pixels pixels(count, false);
  uint64_t at = 0;
  for (size_t i = 0; i < words.size(); at += words[i++]) {
    if (i % 2 == 0) continue;
    const uint64_t from = std::max(at, first);
    const uint64_t to = std::min(at + words[i], first + count);
    for (uint64_t x = from; x < to; ++x) pixels[x - first] = true;
  }
  return pixels;
}

using Random = std::mt19937;

inline uint32_t Below(Random& random, uint32_t bound) { return static_cast<uint32_t>(random() % bound); }

/// Kinds 0..2: zeros, ones, alternating; 3: noise; others: runs of growing mean length.
constexpr int kPictures = 9;
inline Pixels Picture(int kind, uint64_t width, Random& random) {
  static constexpr uint32_t kLongest[] = {0, 0, 0, 0, 9, 80, 1000, 50000, 140000};
  Pixels pixels(width, kind == 1);
  if (kind == 2) {
    for (uint64_t x = random() % 2; x < width; x += 2) pixels[x] = true;
  } else if (kind == 3) {
    for (uint64_t x = 0; x < width; ++x) pixels[x] = random() & 0x100;
  } else if (kind > 3) {
    bool value = random() & 0x100;
    for (uint64_t x = 0; x < width; value = !value) {
      const uint64_t stop = std::min(width, x + 1 + Below(random, kLongest[kind]));
      for (; x < stop; ++x) pixels[x] = value;
    }
  }
  return pixels;
}

/// Words of any content: short, long and zero runs.
inline Words AnyWords(uint32_t count, Random& random) {
  const uint32_t longest[] = {2, 10, 300, 65536};
  const uint32_t bound = longest[Below(random, count > 6 ? 3 : 4)];  // long rows only of few runs, for speed
  Words words(count);
  for (uint16_t& word : words) word = static_cast<uint16_t>(Below(random, 6) ? Below(random, bound) : 0);
  return words;
}

/// Exactly `bytes` bytes at an address of a given remainder modulo 64, with guards on both sides that tell stray
/// writes.
class Guarded {
 public:
  Guarded(size_t bytes, size_t alignment) : bytes_(bytes), block_(new uint8_t[bytes + 3 * kGuard]) {
    std::memset(block_.get(), kFill, bytes + 3 * kGuard);
    const size_t address = reinterpret_cast<size_t>(block_.get()) + kGuard;
    offset_ = kGuard + (alignment + kGuard - address % kGuard) % kGuard;
  }
  uint8_t* data() { return block_.get() + offset_; }
  bool GuardsKept() const {
    for (size_t i = 0; i < bytes_ + 3 * kGuard; ++i) {
      if ((i < offset_ || i >= offset_ + bytes_) && block_[i] != kFill) return false;
    }
    return true;
  }

 private:
  static constexpr size_t kGuard = 64;
  static constexpr uint8_t kFill = 0xA5;
  size_t bytes_;
  size_t offset_;
  std::unique_ptr<uint8_t[]> block_;
};

/// A copy at an address of a given remainder modulo 64 that ends where its memory ends, for the address sanitizer.
class Exact {
 public:
  Exact(const void* from, size_t bytes, size_t alignment) : offset_(alignment % 64), block_(Allocate(bytes)) {
    if (bytes) std::memcpy(data(), from, bytes);
  }
  ~Exact() { ::operator delete (block_, std::align_val_t{64}); }
  Exact(const Exact&) = delete;
  uint8_t* data() { return block_ + offset_; }

 private:
  uint8_t* Allocate(size_t bytes) const {
    return static_cast<uint8_t*>(::operator new (offset_ + bytes, std::align_val_t{64}));
  }
  size_t offset_;
  uint8_t* block_;
};

inline bool Same(const void* a, const void* b, size_t bytes) { return !bytes || std::memcmp(a, b, bytes) == 0; }

inline std::string Text(const Words& words) {
  std::string text;
  for (size_t i = 0; i < words.size() && i < 24; ++i) text += std::to_string(words[i]) + " ";
  return text + "(" + std::to_string(words.size()) + ")";
}

}  // namespace runref
