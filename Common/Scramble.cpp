// A rectangle's pixels exchanged and masked block by block under a key, and back.

#include "tarn/scramble.h"

#include <cstring>

#include "Common/Internal/Checks.h"
#include "Common/Internal/EditRows.h"
#include "Common/Internal/Geometry.h"
#include "Common/Internal/LinesInto.h"
#include "Common/Internal/PackedPixels.h"
#include "Common/Internal/Rows.h"
#include "Common/Internal/TrackedBuffer.h"

namespace tarn {
namespace {

constexpr int64_t kBlockRows = 16;
constexpr int64_t kBlockColumns = 4096;

/// splitmix64.
class Generator {
 public:
  Generator(uint64_t block, uint32_t key) noexcept : state_(block) {
    state_ = Next() ^ key;
    state_ = Next();
  }
  uint64_t Next() noexcept {
    uint64_t z = state_ += 0x9E3779B97F4A7C15;
    z = (z ^ z >> 30) * 0xBF58476D1CE4E5B9;
    z = (z ^ z >> 27) * 0x94D049BB133111EB;
    return z ^ z >> 31;
  }

 private:
  uint64_t state_;
};

template <int kBytes>
void Exchange(uint8_t* pixels, uint32_t a, uint32_t b) noexcept {
  uint8_t held[kBytes];
  std::memcpy(held, pixels + size_t{a} * kBytes, kBytes);
  std::memmove(pixels + size_t{a} * kBytes, pixels + size_t{b} * kBytes, kBytes);  // may be the same
  std::memcpy(pixels + size_t{b} * kBytes, held, kBytes);
}

/// partners[i]: what pixel i changes places with, i from count - 1 down to 1.
template <int kBytes>
void ExchangeAll(uint8_t* pixels, const uint32_t* partners, uint32_t count, bool back) noexcept {
  if (back) {
    for (uint32_t i = 1; i < count; ++i) Exchange<kBytes>(pixels, i, partners[i]);
  } else {
    for (uint32_t i = count; i-- > 1;) Exchange<kBytes>(pixels, i, partners[i]);
  }
}

using Exchanger = void (*)(uint8_t* pixels, const uint32_t* partners, uint32_t count, bool back) noexcept;

Exchanger ExchangerOf(int64_t unit) noexcept {
  switch (unit) {
    case 1:
      return ExchangeAll<1>;
    case 2:
      return ExchangeAll<2>;
    case 3:
      return ExchangeAll<3>;
    case 4:
      return ExchangeAll<4>;
    case 6:
      return ExchangeAll<6>;
    default:
      return ExchangeAll<8>;
  }
}

/// The rectangle, a band of blocks at a time: all of its rows are read before the first of them changes.
class Scrambler {
 public:
  Scrambler(BitmapHandle& bitmap, int64_t column, int64_t row, int64_t width, int64_t height, uint32_t key,
            bool back) noexcept
      : reader_(bitmap, TARN_HERE),
        bits_(bitmap.BitsPerPixel),
        unit_(bits_ < 8     ? 1
              : bits_ == 12 ? 2
                            : bits_ / 8),
        top_(row),
        width_(width),
        height_(height),
        firstBit_(static_cast<uint64_t>(column) * static_cast<uint32_t>(bits_)),
        countBits_(static_cast<uint64_t>(width) * static_cast<uint32_t>(bits_)),
        key_(key),
        back_(back),
        exchange_(ExchangerOf(unit_)) {}

  Status Open() noexcept {
    TARN_TRY(reader_.Open());
    const auto rows = static_cast<uint64_t>(height_ < kBlockRows ? height_ : kBlockRows);
    const auto columns = static_cast<uint64_t>(width_ < kBlockColumns ? width_ : kBlockColumns);
    band_ = TrackedBuffer<uint8_t>(rows * static_cast<uint64_t>(width_ * unit_), TARN_HERE);
    block_ = TrackedBuffer<uint8_t>(rows * columns * static_cast<uint64_t>(unit_), TARN_HERE);
    partners_ = TrackedBuffer<uint32_t>(rows * columns, TARN_HERE);
    packed_ = TrackedBuffer<uint8_t>::Zeroed(PartBytes() + 8, TARN_HERE);
    return band_ && block_ && partners_ && packed_ ? SUCCESS : ERR_NO_MEMORY;
  }

  Status Edit(BitmapHandle& bitmap, bool sure) noexcept {
    const RowBand band{static_cast<int32_t>(top_), static_cast<int32_t>(height_), firstBit_ / 8, PartBytes()};
    return EditRows(bitmap, band, {.sure = sure}, *this);
  }

  Status Change(uint8_t* row, int32_t number) noexcept {
    const int64_t at = number - top_;
    if (at % kBlockRows == 0) TARN_TRY(MakeBand(at));
    const uint8_t* const line = band_.data() + at % kBlockRows * width_ * unit_;
    uint8_t* const target = row + firstBit_ / 8;
    if (SharesBytes(bits_)) {
      PackPixels(packed_.data(), line, width_, bits_);
      ShiftFor(bits_)(target, static_cast<uint32_t>(firstBit_ % 8), packed_.data(), 0, countBits_);
    } else {
      std::memcpy(target, line, PartBytes());
    }
    return SUCCESS;
  }

 private:
  [[nodiscard]] uint64_t PartBytes() const noexcept { return (firstBit_ + countBits_ + 7) / 8 - firstBit_ / 8; }

  Status MakeBand(int64_t first) noexcept {
    const int64_t rows = first + kBlockRows < height_ ? kBlockRows : height_ - first;
    for (int64_t i = 0; i < rows; ++i) {
      const uint8_t* part = reader_.Part(static_cast<int32_t>(top_ + first + i), firstBit_ / 8, PartBytes());
      if (!part) return reader_.status();
      uint8_t* const line = band_.data() + i * width_ * unit_;
      if (!SharesBytes(bits_)) {
        std::memcpy(line, part, PartBytes());
        continue;
      }
      ShiftFor(bits_)(packed_.data(), 0, part, static_cast<uint32_t>(firstBit_ % 8), countBits_);
      UnpackPixels(line, packed_.data(), width_, bits_);
    }
    const int64_t across = (width_ + kBlockColumns - 1) / kBlockColumns;
    for (int64_t i = 0; i < across; ++i) {
      const int64_t left = i * kBlockColumns;
      const int64_t columns = left + kBlockColumns < width_ ? kBlockColumns : width_ - left;
      ChangeBlock(static_cast<uint64_t>(first / kBlockRows * across + i), left, rows, columns);
    }
    return SUCCESS;
  }

  void ChangeBlock(uint64_t number, int64_t left, int64_t rows, int64_t columns) noexcept {
    const auto rowBytes = static_cast<size_t>(columns * unit_);
    uint8_t* const pixels = block_.data();
    for (int64_t i = 0; i < rows; ++i)
      std::memcpy(pixels + static_cast<size_t>(i) * rowBytes, band_.data() + (i * width_ + left) * unit_, rowBytes);
    Generator generator(number, key_);
    const auto count = static_cast<uint32_t>(rows * columns);
    DrawPartners(generator, count);
    if (!back_) exchange_(pixels, partners_.data(), count, false);
    Mask(generator, pixels, uint64_t{count} * static_cast<uint64_t>(unit_));
    if (back_) exchange_(pixels, partners_.data(), count, true);
    for (int64_t i = 0; i < rows; ++i)
      std::memcpy(band_.data() + (i * width_ + left) * unit_, pixels + static_cast<size_t>(i) * rowBytes, rowBytes);
  }

  void DrawPartners(Generator& generator, uint32_t count) noexcept {
    uint64_t drawn = 0;
    bool half = false;  // of the number is left
    for (uint32_t i = count; i-- > 1;) {
      if (!half) drawn = generator.Next();
      const uint64_t u = half ? drawn & 0xFFFFFFFF : drawn >> 32;
      partners_[i] = static_cast<uint32_t>((u * (i + 1)) >> 32);
      half = !half;
    }
  }

  /// Bits that a pixel of less than whole bytes does not have stay 0.
  void Mask(Generator& generator, uint8_t* pixels, uint64_t bytes) const noexcept {
    const uint64_t bits = bits_ < 8     ? ((1u << bits_) - 1) * UINT64_C(0x0101010101010101)
                          : bits_ == 12 ? UINT64_C(0x0FFF0FFF0FFF0FFF)
                                        : ~UINT64_C(0);
    for (uint64_t at = 0; at < bytes; at += 8) {
      const size_t step = bytes - at < 8 ? bytes - at : 8;
      uint64_t word = 0;
      std::memcpy(&word, pixels + at, step);
      word ^= generator.Next() & bits;
      std::memcpy(pixels + at, &word, step);
    }
  }

  RowReader reader_;
  int32_t bits_;
  int64_t unit_;
  int64_t top_, width_, height_;
  uint64_t firstBit_, countBits_;
  uint32_t key_;
  bool back_;
  Exchanger exchange_;
  TrackedBuffer<uint8_t> band_;   // pixels in whole bytes
  TrackedBuffer<uint8_t> block_;  // those of one block
  TrackedBuffer<uint32_t> partners_;
  TrackedBuffer<uint8_t> packed_;
};

}  // namespace
}  // namespace tarn

using namespace tarn;

int32_t T_ScrambleBitmap(BitmapHandle* bitmap, int32_t column, int32_t row, int32_t width, int32_t height, uint32_t key,
                         uint32_t flags) noexcept {
  TARN_TRY(RequireAllocatedThenSize(bitmap, ERR_NO_BITMAP));
  if (flags != T_SCRAMBLE_SCRAMBLE && flags != T_SCRAMBLE_RESTORE) return ERR_INVALID_PARAMETER;
  if (!GeometryHolds(*bitmap) || column < 0 || row < 0 || width < 1 || height < 1 ||
      int64_t{column} + width > bitmap->Width || int64_t{row} + height > bitmap->Height)
    return ERR_INVALID_PARAMETER;
  const BitmapLock lock(*bitmap);
  Scrambler scrambler(*bitmap, column, row, width, height, key, flags == T_SCRAMBLE_RESTORE);
  TARN_TRY(scrambler.Open());
  return scrambler.Edit(*bitmap, LiesInMemory(*bitmap)).code;
}
