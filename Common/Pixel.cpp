// Single pixels: where they are, their bytes and their colours.

#include "tarn/pixel.h"

#include <cstring>

#include "Common/Internal/Checks.h"
#include "Common/Internal/Geometry.h"
#include "Common/Internal/Hooks.h"
#include "Common/Internal/KnownExtents.h"
#include "Common/Internal/PixelColor.h"
#include "Common/Internal/RowPlace.h"
#include "tarn/bitmap.h"
#include "tarn/rows.h"

namespace tarn {
namespace {

// ---- Places --------------------------------------------------------------------------------------------------------

/// Makes movable storage addressable for a scope. Other storage needs no lock, and one pixel no call for it.
class PixelLock {
 public:
  explicit PixelLock(BitmapHandle& bitmap) noexcept
      : bitmap_(bitmap), movable_(bitmap.Flags & T_FLAG_HANDLE_DATA), before_(movable_ ? T_LockBitmap(&bitmap) : 1) {}
  ~PixelLock() {
    if (movable_) T_UnlockBitmap(&bitmap_, before_);
  }
  PixelLock(const PixelLock&) = delete;
  PixelLock& operator=(const PixelLock&) = delete;

 private:
  BitmapHandle& bitmap_;
  bool movable_;
  int32_t before_;
};

bool LiesInside(const BitmapHandle& bitmap, int32_t row, int32_t column) noexcept {
  return row >= 0 && row < bitmap.Height && column >= 0 && column < bitmap.Width;
}

/// Bytes that hold any bit of the pixel.
int64_t BytesOfPixel(int32_t bits, int32_t column) noexcept {
  const int64_t wide = column;
  return ((wide + 1) * bits + 7) / 8 - wide * bits / 8;
}

/// Address of bytes of a row that lie in one block; null when they must be moved.
[[gnu::always_inline]] inline uint8_t* InBlock(const BitmapHandle& bitmap, uint32_t row, uint64_t offset,
                                               uint64_t bytes) noexcept {
  constexpr uint32_t kKinds = T_FLAG_IN_MEMORY | T_FLAG_COMPRESSED | T_FLAG_TILED | T_FLAG_SUPER_COMPRESSED;
  if ((bitmap.Flags & kKinds) != T_FLAG_IN_MEMORY) return nullptr;
  uint8_t* const data = bitmap.Data;
  if (!data || int64_t{row} >= bitmap.Height) return nullptr;
  const uint32_t rowBytes = bitmap.BytesPerLine;
  const uint64_t start = static_cast<uint64_t>(row) * rowBytes + offset;
  if (offset + bytes > rowBytes) return nullptr;
  if (knownBlocks.Holds(data, start + bytes)) return data + start;
  const platform::Guard guard(rowSection);
  if (const StorageNode* const node = FindStorageLocked(data)) {
    if (node->kind != StorageKind::kBlock || start + bytes > node->bytes) return nullptr;
    knownBlocks.Remember(data, node->bytes);
  }
  return data + start;
}

// ---- Pixels in their bytes -----------------------------------------------------------------------------------------
// Up to six bytes of a row as one number, the first byte lowest.

constexpr uint64_t kMostBytes = 8;

// Each is moved in pieces that the processor knows: bytes joined in memory would be waited for.
template <class Piece>
uint64_t LoadPiece(const uint8_t* from) noexcept {
  Piece piece;
  std::memcpy(&piece, from, sizeof piece);
  return piece;
}

[[gnu::always_inline]] inline uint64_t Load(const uint8_t* from, uint64_t bytes) noexcept {
  switch (bytes) {
    case 1:
      return *from;
    case 2:
      return LoadPiece<uint16_t>(from);
    case 3:
      return LoadPiece<uint16_t>(from) | uint64_t{from[2]} << 16;
    case 4:
      return LoadPiece<uint32_t>(from);
    case 6:
      return LoadPiece<uint32_t>(from) | LoadPiece<uint16_t>(from + 4) << 32;
    default:
      return LoadPiece<uint64_t>(from);
  }
}

template <class Piece>
void StorePiece(uint8_t* to, uint64_t number) noexcept {
  const auto piece = static_cast<Piece>(number);
  std::memcpy(to, &piece, sizeof piece);
}

void Store(uint8_t* to, uint64_t number, uint64_t bytes) noexcept {
  switch (bytes) {
    case 1:
      *to = static_cast<uint8_t>(number);
      return;
    case 2:
      return StorePiece<uint16_t>(to, number);
    case 3:
      StorePiece<uint16_t>(to, number);
      to[2] = static_cast<uint8_t>(number >> 16);
      return;
    case 4:
      return StorePiece<uint32_t>(to, number);
    default:
      StorePiece<uint32_t>(to, number);
      StorePiece<uint16_t>(to + 4, number >> 32);
  }
}

constexpr uint64_t LowBits(int32_t count) noexcept { return (uint64_t{1} << count) - 1; }

uint64_t SwapPair(uint64_t number) noexcept { return (number >> 8 & 255) | (number & 255) << 8; }

/// Where a pixel's bits are in the number that its bytes make. Pixels of less than 8 bits lie uppermost first: their
/// number is taken with the first byte highest.
struct BitPlace {
  uint64_t bytes;
  int32_t shift;
  bool highFirst;
};

BitPlace PlaceIn(int32_t bits, int32_t column) noexcept {
  const auto bytes = static_cast<uint64_t>(BytesOfPixel(bits, column));
  if (bits < 8) {
    const auto first = static_cast<int32_t>(static_cast<int64_t>(column) * bits % 8);
    return {bytes, static_cast<int32_t>(8 * bytes) - first - bits, bytes == 2};
  }
  return {bytes, bits == 12 && column % 2 ? 4 : 0, false};
}

uint64_t Extract(uint64_t number, const BitPlace& place, int32_t bits) noexcept {
  if (place.highFirst) number = SwapPair(number);
  return bits == 64 ? number : number >> place.shift & LowBits(bits);
}

/// Bits of a pixel that a put replaces: not the alpha of 32 and 64 bits and of 5-5-5.
uint64_t PutBits(const BitmapHandle& bitmap) noexcept {
  const int32_t bits = bitmap.BitsPerPixel;
  const bool gray = bitmap.Order == T_ORDER_GRAY;
  if (bits == 16) return gray ? 0xFFFF : 0x7FFF;
  if (bits == 32) return gray ? 0xFFFFFFFF : 0xFFFFFF;
  return LowBits(bits == 64 ? 48 : bits);
}

uint64_t Merged(uint64_t number, const BitPlace& place, uint64_t pixel, uint64_t mask) noexcept {
  if (place.highFirst) number = SwapPair(number);
  number = (number & ~(mask << place.shift)) | (pixel & mask) << place.shift;
  return place.highFirst ? SwapPair(number) : number;
}

Status MovedAll(int64_t moved, uint64_t bytes, int32_t whenShort) noexcept {
  if (moved == static_cast<int64_t>(bytes)) return SUCCESS;
  return moved < 0 ? static_cast<int32_t>(moved) : whenShort;
}

/// Puts a pixel through the row functions. Kept apart from the few instructions that a pixel in memory takes.
[[gnu::noinline]] Status PutThroughRows(BitmapHandle& bitmap, uint32_t row, uint32_t column, const BitPlace& place,
                                        uint64_t pixel, uint64_t mask, bool whole) noexcept {
  uint8_t buffer[kMostBytes] = {};
  if (!whole) {
    const int64_t got = T_GetBitmapRowCol(&bitmap, buffer, row, column, place.bytes);
    TARN_TRY(MovedAll(got, place.bytes, ERR_FILE_READ));
  }
  Store(buffer, Merged(Load(buffer, place.bytes), place, pixel, mask), place.bytes);
  const int64_t put = T_PutBitmapRowCol(&bitmap, buffer, row, column, place.bytes);
  return MovedAll(put, place.bytes, ERR_FILE_WRITE);
}

/// Puts a pixel of a locked bitmap. Bytes of alpha behind the colour are neither read nor written.
Status PutPixel(BitmapHandle& bitmap, uint32_t row, uint32_t column, uint64_t pixel) noexcept {
  const int32_t bits = bitmap.BitsPerPixel;
  BitPlace place = PlaceIn(bits, static_cast<int32_t>(column));
  const uint64_t mask = PutBits(bitmap);
  if (bits >= 32) place.bytes = mask == 0xFFFFFF ? 3 : mask == 0xFFFFFFFF ? 4 : 6;
  const bool whole = mask << place.shift == LowBits(static_cast<int32_t>(8 * place.bytes));
  if (uint8_t* const direct = InBlock(bitmap, row, ColumnOffset(bits, column), place.bytes)) {
    const uint64_t old = whole ? 0 : Load(direct, place.bytes);
    Store(direct, Merged(old, place, pixel, mask), place.bytes);
    return SUCCESS;
  }
  return PutThroughRows(bitmap, row, column, place, pixel, mask, whole);
}

[[gnu::noinline]] bool GetThroughRows(BitmapHandle& bitmap, uint32_t row, uint32_t column, const BitPlace& place,
                                      uint64_t& pixel) noexcept {
  uint8_t buffer[kMostBytes] = {};
  const int64_t got = T_GetBitmapRowCol(&bitmap, buffer, row, column, place.bytes);
  if (got != static_cast<int64_t>(place.bytes)) return false;
  pixel = Extract(Load(buffer, place.bytes), place, bitmap.BitsPerPixel);
  return true;
}

bool GetPixel(BitmapHandle& bitmap, uint32_t row, uint32_t column, uint64_t& pixel) noexcept {
  const int32_t bits = bitmap.BitsPerPixel;
  if (!IsBitDepth(bits)) return false;
  const BitPlace place = PlaceIn(bits, static_cast<int32_t>(column));
  if (const uint8_t* const direct = InBlock(bitmap, row, ColumnOffset(bits, column), place.bytes)) {
    pixel = Extract(Load(direct, place.bytes), place, bits);
    return true;
  }
  return GetThroughRows(bitmap, row, column, place, pixel);
}

/// The checks of the two functions on raw bytes, and the count of bytes.
Status RequireData(const BitmapHandle* bitmap, const void* buffer, int32_t column, uint64_t room,
                   uint64_t& bytes) noexcept {
  if (!bitmap || !IsAllocated(*bitmap) || !buffer) return ERR_NO_BITMAP;
  TARN_TRY(RequireSize(bitmap, ERR_NO_BITMAP));
  const int32_t bits = bitmap->BitsPerPixel;
  if (!IsBitDepth(bits)) return ERR_BAD_BITS_PER_PIXEL;
  bytes = static_cast<uint64_t>(BytesOfPixel(bits, column));
  return room < bytes ? ERR_INVALID_PARAMETER : SUCCESS;
}

}  // namespace
}  // namespace tarn

using namespace tarn;

uint32_t T_GetPixelColor(BitmapHandle* bitmap, int32_t row, int32_t column) noexcept {
  if (!RequireAllocatedThenSize(bitmap, ERR_NO_BITMAP).Ok() || !LiesInside(*bitmap, row, column)) return T_NO_COLOR;
  const PixelLock lock(*bitmap);
  uint64_t pixel = 0;
  if (!GetPixel(*bitmap, static_cast<uint32_t>(row), static_cast<uint32_t>(column), pixel)) return T_NO_COLOR;
  return ColorOf(*bitmap, pixel);
}

int32_t T_PutPixelColor(BitmapHandle* bitmap, int32_t row, int32_t column, uint32_t color) noexcept {
  TARN_TRY(RequireAllocatedThenSize(bitmap, ERR_NO_BITMAP));
  if (bitmap->Flags & T_FLAG_SIGNED_DATA) return ERR_SIGNED_DATA;
  if (const T_PixelPositionHook hook = PixelPositionHook(); hook && !hook(bitmap, row, column, color))
    return ERR_EMPTY_AREA;
  if (!LiesInside(*bitmap, row, column)) return ERR_EMPTY_AREA;
  uint64_t pixel = 0;
  TARN_TRY(PixelOf(*bitmap, color, pixel));
  const PixelLock lock(*bitmap);
  return PutPixel(*bitmap, static_cast<uint32_t>(row), static_cast<uint32_t>(column), pixel).code;
}

int32_t T_GetPixelData(BitmapHandle* bitmap, void* buffer, int32_t row, int32_t column, uint64_t bytes) noexcept {
  uint64_t count = 0;
  TARN_TRY(RequireData(bitmap, buffer, column, bytes, count));
  const PixelLock lock(*bitmap);
  const uint64_t offset = ColumnOffset(bitmap->BitsPerPixel, static_cast<uint32_t>(column));
  if (const uint8_t* const direct = InBlock(*bitmap, static_cast<uint32_t>(row), offset, count)) {
    std::memcpy(buffer, direct, count);
    return SUCCESS;
  }
  const int64_t got =
      T_GetBitmapRowCol(bitmap, buffer, static_cast<uint32_t>(row), static_cast<uint32_t>(column), count);
  return got == static_cast<int64_t>(count) ? SUCCESS : ERR_NO_MEMORY;
}

int32_t T_PutPixelData(BitmapHandle* bitmap, const void* buffer, int32_t row, int32_t column, uint64_t bytes) noexcept {
  uint64_t count = 0;
  TARN_TRY(RequireData(bitmap, buffer, column, bytes, count));
  const PixelLock lock(*bitmap);
  const uint64_t offset = ColumnOffset(bitmap->BitsPerPixel, static_cast<uint32_t>(column));
  if (uint8_t* const direct = InBlock(*bitmap, static_cast<uint32_t>(row), offset, count)) {
    std::memcpy(direct, buffer, count);
    return SUCCESS;
  }
  const int64_t put =
      T_PutBitmapRowCol(bitmap, buffer, static_cast<uint32_t>(row), static_cast<uint32_t>(column), count);
  return put == static_cast<int64_t>(count) ? SUCCESS : ERR_NO_MEMORY;
}

int32_t T_ColorToPixel(const BitmapHandle* bitmap, uint32_t color, void* pixel, uint64_t bytes) noexcept {
  if (!bitmap || !pixel) return ERR_INVALID_PARAMETER;
  TARN_TRY(RequireSize(bitmap, ERR_INVALID_PARAMETER));
  const int32_t bits = bitmap->BitsPerPixel;
  if (!IsBitDepth(bits)) return ERR_BAD_BITS_PER_PIXEL;
  const auto wanted = static_cast<uint64_t>(bits + 7) / 8;
  if (bytes < wanted) return ERR_INVALID_PARAMETER;
  uint64_t number = 0;
  TARN_TRY(TaggedPixelOf(*bitmap, color, number));
  std::memcpy(pixel, &number, wanted);
  return SUCCESS;
}
