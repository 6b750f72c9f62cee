// The run lengths of 4- and 8-bit device-independent bitmaps.
//
//   count 1..255, value     that many pixels of one index; at 4 bits the value's two halves take turns
//   0, 0                    the row ends
//   0, 1                    the picture ends
//   0, 2, right, up         goes on at another place
//   0, count 3..255, ...    that many indices as they are, padded to 16 bits

#include <cstring>

#include "Common/Internal/Dib.h"
#include "Kernels/Kernels.h"

namespace tarn {

uint32_t DibRunReader::Inside(uint32_t count) const noexcept {
  if (column_ >= width_) return 0;
  const uint64_t room = width_ - column_;
  return count < room ? count : static_cast<uint32_t>(room);
}

void DibRunReader::Run(uint8_t* line, uint32_t count, uint8_t value) const noexcept {
  const uint32_t inside = Inside(count);
  if (bits_ == 8) {
    if (inside) std::memset(line + column_, value, inside);
    return;
  }
  uint8_t pattern[128];
  std::memset(pattern, value, (inside + 1) / 2);
  Kernels().shiftBits(line + column_ / 2, static_cast<uint32_t>(column_ % 2) * 4, pattern, 0, uint64_t{inside} * 4);
}

void DibRunReader::Literal(uint8_t* line, uint32_t count) noexcept {
  const uint64_t bytes = (uint64_t{count} * bits_ + 7) / 8;
  const uint64_t padded = bytes + bytes % 2;
  const uint64_t have = Left() < bytes ? Left() : bytes;
  const auto held = static_cast<uint32_t>(have * 8 / bits_);
  const uint32_t inside = Inside(held < count ? held : count);
  if (bits_ == 8) {
    if (inside) std::memcpy(line + column_, at_, inside);
  } else {
    Kernels().shiftBits(line + column_ / 2, static_cast<uint32_t>(column_ % 2) * 4, at_, 0, uint64_t{inside} * 4);
  }
  at_ += Left() < padded ? Left() : padded;
  column_ += count;
}

// False: the row is done.
bool DibRunReader::Escape(uint8_t* line, uint8_t code) noexcept {
  switch (code) {
    case 0:
      column_ = 0;
      return false;
    case 1:
      ended_ = true;
      return false;
    case 2:
      if (Left() < 2) {
        ended_ = true;
        return false;
      }
      column_ += at_[0];
      skipped_ = at_[1];
      at_ += 2;
      return skipped_ == 0;
    default:
      Literal(line, code);
      return true;
  }
}

void DibRunReader::Row(uint8_t* line) noexcept {
  if (ended_ || (skipped_ > 0 && --skipped_ > 0)) return;
  while (Left() >= 2) {
    const uint8_t count = at_[0];
    const uint8_t value = at_[1];
    at_ += 2;
    if (count == 0) {
      if (!Escape(line, value)) return;
    } else {
      Run(line, count, value);
      column_ += count;
    }
  }
  ended_ = true;
}

}  // namespace tarn
