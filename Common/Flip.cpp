// Bitmaps upside down, mirrored, and turned by half a turn.

#include "tarn/flip.h"

#include <cstring>

#include "Common/Internal/Checks.h"
#include "Common/Internal/Geometry.h"
#include "Common/Internal/Hooks.h"
#include "Common/Internal/PackedPixels.h"
#include "Common/Internal/Runs.h"
#include "Common/Internal/Storage.h"
#include "Common/Internal/Turn.h"
#include "Kernels/Kernels.h"
#include "tarn/copy.h"

namespace tarn {
namespace {

// ---- Lines whose pixels share bytes --------------------------------------------------------------------------------

constexpr int64_t kBlock = 512;  // pixels taken from either end at a time, a multiple of 8

/// Packed pixels that begin at a byte, in reverse order; bits behind the last one become 0.
void MirrorPacked(uint8_t* packed, int64_t pixels, int32_t bits) noexcept {
  uint8_t values[2 * 2 * kBlock];
  UnpackPixels(values, packed, pixels, bits);
  (bits == 12 ? Kernels().turn->mirror16 : Kernels().turn->mirror8)(values, values, pixels, 0);
  PackPixels(packed, values, pixels, bits);
}

/// Blocks from both ends change places; the middle is a block of its own.
void MirrorInBlocks(uint8_t* line, int64_t pixels, int32_t bits) noexcept {
  constexpr size_t kRoom = 2 * kBlock * 12 / 8;
  uint8_t left[kRoom] = {}, right[kRoom] = {};
  const auto move = bits == 12 ? Kernels().shiftLowBits : Kernels().shiftBits;
  const auto blockBits = static_cast<uint64_t>(kBlock * bits);
  int64_t first = 0, end = pixels;
  for (; end - first >= 2 * kBlock; first += kBlock, end -= kBlock) {
    uint8_t* const front = line + first * bits / 8;  // first is a multiple of 8
    const int64_t backBit = (end - kBlock) * bits;
    uint8_t* const back = line + backBit / 8;
    const auto bit = static_cast<uint32_t>(backBit % 8);
    std::memcpy(left, front, blockBits / 8);
    move(right, 0, back, bit, blockBits);
    MirrorPacked(left, kBlock, bits);
    MirrorPacked(right, kBlock, bits);
    std::memcpy(front, right, blockBits / 8);
    move(back, bit, left, 0, blockBits);
  }
  uint8_t* const middle = line + first * bits / 8;
  const auto middleBits = static_cast<uint64_t>((end - first) * bits);
  std::memcpy(left, middle, (middleBits + 7) / 8);
  MirrorPacked(left, end - first, bits);
  move(middle, 0, left, 0, middleBits);
}

/// The kernels say what `ahead` is.
void MirrorAhead(uint8_t* line, int64_t pixels, int32_t bits, int64_t ahead) noexcept {
  if (pixels <= 0) return;
  const TurnKernels& kernels = *Kernels().turn;
  switch (bits) {
    case 1:
    case 2:
    case 4:
      return kernels.mirrorBits(line, pixels, bits, ahead);
    case 3:
    case 5:
    case 6:
    case 7:
    case 12:
      return MirrorInBlocks(line, pixels, bits);
    case 8:
      return kernels.mirror8(line, line, pixels, ahead);
    case 16:
      return kernels.mirror16(line, line, pixels, ahead);
    case 24:
      return kernels.mirror24(line, line, pixels, ahead);
    case 32:
      return kernels.mirror32(line, line, pixels, ahead);
    case 48:
      return kernels.mirror48(line, line, pixels, ahead);
    case 64:
      return kernels.mirror64(line, line, pixels, ahead);
    default:
      return;
  }
}

// ---- Rows in memory ------------------------------------------------------------------------------------------------

/// A turn of rows in place, step by step. Every step is its own undoing.
class RowsInPlace {
 public:
  RowsInPlace(BitmapHandle& bitmap, Turn turn) noexcept
      : bitmap_(bitmap),
        base_(BlockOf(bitmap)),
        turn_(turn),
        height_(bitmap.Height),
        width_(bitmap.Width),
        bits_(bitmap.BitsPerPixel),
        rowBytes_(bitmap.BytesPerLine),
        rowsAhead_(rowBytes_ < kBytesAhead ? static_cast<int32_t>(kBytesAhead / rowBytes_) : 1),
        ahead_(rowBytes_ <= kMostAhead ? int64_t{rowsAhead_} * rowBytes_ : 0) {}
  [[nodiscard]] int32_t Steps() const noexcept { return turn_ == Turn::kReverse ? height_ : height_ / 2 + height_ % 2; }

  void Step(int32_t step) noexcept {
    uint8_t* const row = Row(step);
    if (turn_ == Turn::kReverse)
      return MirrorAhead(row, width_, bits_, int64_t{step} + rowsAhead_ < height_ ? ahead_ : 0);
    const int32_t partner = height_ - 1 - step;
    if (partner != step) {
      uint8_t* const other = Row(partner);
      Kernels().turn->exchange(row, other, rowBytes_, int64_t{step} + rowsAhead_ < Steps() ? ahead_ : 0);
      if (turn_ == Turn::kHalf) MirrorPixels(other, width_, bits_);
    }
    if (turn_ == Turn::kHalf) MirrorPixels(row, width_, bits_);
  }

 private:
  /// Bytes from a row to one that is asked for meanwhile: far enough for memory to answer, near enough for a
  /// second-level cache. In tiles, rows follow each other as well but for the last ones of each.
  static constexpr uint32_t kBytesAhead = 32 << 10;
  static constexpr uint32_t kMostAhead = 128 << 10;
  uint8_t* Row(int32_t row) noexcept {
    return base_ ? base_ + static_cast<uint64_t>(row) * rowBytes_ : DirectRow(bitmap_, row);
  }

  BitmapHandle& bitmap_;
  uint8_t* base_;
  Turn turn_;
  int32_t height_;
  int32_t width_;
  int32_t bits_;
  uint32_t rowBytes_;
  int32_t rowsAhead_;
  int64_t ahead_;
};

Status TurnInPlace(BitmapHandle& bitmap, Turn turn, int32_t firstPercent, int32_t lastPercent, TurnEnd end,
                   void* context) noexcept {
  RowsInPlace rows(bitmap, turn);
  const int32_t steps = rows.Steps();
  RangeProgress progress(steps, firstPercent, lastPercent);
  Status status = SUCCESS;
  int32_t done = 0;
  while (done < steps && status.Ok()) {
    rows.Step(done++);
    status = progress.Step();
  }
  if (status.Ok()) status = end(bitmap, context);
  while (!status.Ok() && done > 0) rows.Step(--done);
  return status;
}

// ---- Other storage: a result aside ---------------------------------------------------------------------------------

Status TurnRunsAside(BitmapHandle& target, BitmapHandle& source, Turn turn, RangeProgress& progress) noexcept {
  const auto width = static_cast<uint32_t>(source.Width);
  const int32_t height = source.Height;
  constexpr uint64_t kCountWords = 2;
  const uint64_t room = MaxRunWords(width) + 1 + kCountWords;
  TrackedBuffer<uint16_t> record(room, TARN_HERE);
  TrackedBuffer<uint16_t> canonical(room, TARN_HERE);
  if (!record || !canonical) return ERR_NO_MEMORY;
  for (int32_t row = 0; row < height; ++row) {
    const auto from = static_cast<uint32_t>(turn == Turn::kReverse ? row : height - 1 - row);
    TARN_TRY(T_GetBitmapRowCompressed(&source, nullptr, record.data(), from, 1));
    if (turn != Turn::kFlip) {
      uint32_t count = 0;
      std::memcpy(&count, record.data(), sizeof count);
      // Runs may be of any content; only those that fill the row have a mirror image.
      count = CanonicalRuns(canonical.data(), record.data() + kCountWords, count, width);
      count = MirrorRuns(record.data() + kCountWords, canonical.data(), count);
      std::memcpy(record.data(), &count, sizeof count);
    }
    TARN_TRY(T_PutBitmapRowCompressed(&target, nullptr, record.data(), static_cast<uint32_t>(row), 1));
    TARN_TRY(progress.Step());
  }
  return SUCCESS;
}

Status TurnRowsAside(BitmapHandle& target, BitmapHandle& source, Turn turn, RangeProgress& progress) noexcept {
  const BitmapLock lockTarget(target);
  RowReader from(source, TARN_HERE);
  RowWriter to(target, TARN_HERE);
  TARN_TRY(from.Open());
  TARN_TRY(to.Open());
  const int32_t height = source.Height;
  for (int32_t row = 0; row < height; ++row) {
    const uint8_t* const line = from.Row(turn == Turn::kReverse ? row : height - 1 - row);
    if (!line) return from.status();
    uint8_t* const result = to.Row(row);
    std::memcpy(result, line, target.BytesPerLine);
    if (turn != Turn::kFlip) MirrorPixels(result, source.Width, source.BitsPerPixel);
    TARN_TRY(to.Commit());
    TARN_TRY(progress.Step());
  }
  return SUCCESS;
}

Status TurnAside(BitmapHandle& bitmap, Turn turn, int32_t firstPercent, int32_t lastPercent, TurnEnd end, void* context,
                 ScratchBitmap& result) noexcept {
  TARN_TRY(result.Create(bitmap, bitmap.Width, bitmap.Height, bitmap.BitsPerPixel));
  BitmapHandle& record = result.Record();
  record.DitheringMethod = bitmap.DitheringMethod;
  if (record.BytesPerLine != bitmap.BytesPerLine) return ERR_INVALID_PARAMETER;  // rows with room of their own
  RangeProgress progress(bitmap.Height, firstPercent, lastPercent);
  const bool runs = (bitmap.Flags & T_FLAG_COMPRESSED) && bitmap.BitsPerPixel == 1;
  TARN_TRY(runs ? TurnRunsAside(record, bitmap, turn, progress) : TurnRowsAside(record, bitmap, turn, progress));
  return end(record, context);
}

Status FlipRegion(BitmapHandle& bitmap, void*) noexcept {
  const T_RegionHooks* const hooks = RegionHooks();
  return hooks && hooks->Flip ? Status(hooks->Flip(&bitmap)) : Status(SUCCESS);
}

Status ReverseRegion(BitmapHandle& bitmap, void*) noexcept {
  const T_RegionHooks* const hooks = RegionHooks();
  return hooks && hooks->Reverse ? Status(hooks->Reverse(&bitmap)) : Status(SUCCESS);
}

int32_t TurnOfCaller(BitmapHandle* bitmap, Turn turn, TurnEnd end) noexcept {
  if (!bitmap || !IsAllocated(*bitmap)) return ERR_NO_BITMAP;
  if (!GeometryHolds(*bitmap)) return ERR_INVALID_PARAMETER;
  return TurnStored(*bitmap, turn, 0, 100, end, nullptr).code;
}

// Positions are anybody's: they wrap around instead of overflowing.
int32_t Opposite(int32_t extent, int32_t position, int32_t length) noexcept {
  return static_cast<int32_t>(static_cast<uint32_t>(extent) - static_cast<uint32_t>(position) -
                              static_cast<uint32_t>(length));
}

/// Copies of the overlays, flipped or reversed as they are displayed.
Status TurnOverlays(ChangedOverlays& overlays, const BitmapHandle& owner, bool flip) noexcept {
  const QuietCallback quiet;
  TARN_TRY(overlays.Copy(owner));
  for (uint32_t i = 0; i < overlays.Count(); ++i) {
    Overlay& overlay = overlays[i];
    BitmapHandle& picture = overlay.bitmap;
    if (flip) {
      overlay.top = Opposite(DisplayedHeight(owner), overlay.top, DisplayedHeight(picture));
    } else {
      overlay.left = Opposite(DisplayedWidth(owner), overlay.left, DisplayedWidth(picture));
    }
    if (IsAllocated(picture)) TARN_TRY(flip ? T_FlipBitmap(&picture) : T_ReverseBitmap(&picture));
  }
  return SUCCESS;
}

int32_t TurnDisplayed(BitmapHandle* bitmap, bool flip) noexcept {
  TARN_TRY(RequireAllocatedThenSize(bitmap, ERR_INVALID_PARAMETER));
  ChangedOverlays overlays;
  if (bitmap->Overlays) TARN_TRY(TurnOverlays(overlays, *bitmap, flip));
  const bool storedFlip = flip != IsTransposed(bitmap->ViewPerspective);
  TARN_TRY(storedFlip ? T_IntFlipBitmap(bitmap) : T_IntReverseBitmap(bitmap));
  overlays.Commit(*bitmap);
  return SUCCESS;
}

}  // namespace

void MirrorPixels(uint8_t* line, int64_t pixels, int32_t bits) noexcept { MirrorAhead(line, pixels, bits, 0); }

Status TurnStored(BitmapHandle& bitmap, Turn turn, int32_t firstPercent, int32_t lastPercent, TurnEnd end,
                  void* context) noexcept {
  ScratchBitmap result;
  {
    const BitmapLock lock(bitmap);
    if (LiesInMemory(bitmap)) return TurnInPlace(bitmap, turn, firstPercent, lastPercent, end, context);
    TARN_TRY(TurnAside(bitmap, turn, firstPercent, lastPercent, end, context, result));
  }
  result.Commit(bitmap);
  return SUCCESS;
}

}  // namespace tarn

using namespace tarn;

int32_t T_MirrorLine(void* line, int32_t width, int32_t bitsPerPixel) noexcept {
  if (!line) return ERR_INVALID_PARAMETER;
  MirrorPixels(static_cast<uint8_t*>(line), width, bitsPerPixel);
  return SUCCESS;
}

int32_t T_IntFlipBitmap(BitmapHandle* bitmap) noexcept { return TurnOfCaller(bitmap, Turn::kFlip, FlipRegion); }
int32_t T_IntReverseBitmap(BitmapHandle* bitmap) noexcept {
  return TurnOfCaller(bitmap, Turn::kReverse, ReverseRegion);
}
int32_t T_FlipBitmap(BitmapHandle* bitmap) noexcept { return TurnDisplayed(bitmap, true); }
int32_t T_ReverseBitmap(BitmapHandle* bitmap) noexcept { return TurnDisplayed(bitmap, false); }
