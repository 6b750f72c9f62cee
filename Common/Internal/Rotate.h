#pragma once
// Quarter turns and rotation by any angle, as the exported operations share them.

#include <cstdint>

#include "Common/Internal/Rows.h"
#include "Common/Internal/Turn.h"

namespace tarn {

/// Turns that exchange the extents. The target's row r and column c come from source column r and row c, counted from
/// the last column or row where said.
struct Transposition {
  bool fromLastColumn;
  bool fromLastRow;
};
constexpr Transposition kTurnRight = {false, true};
constexpr Transposition kTurnLeft = {true, false};
constexpr Transposition kMainDiagonal = {false, false};
constexpr Transposition kOtherDiagonal = {true, true};

/// Fields of a result that follow the source's beyond what duplicating a record copies.
inline void FollowSource(BitmapHandle& result, const BitmapHandle& source) noexcept {
  result.DitheringMethod = source.DitheringMethod;
}

/// Turns the stored pixels of a bitmap whose geometry holds and exchanges its resolutions. A failure, also of `end`
/// (may be null), leaves the bitmap as it was.
Status TransposeStored(BitmapHandle& bitmap, Transposition turn, int32_t firstPercent, int32_t lastPercent, TurnEnd end,
                       void* context) noexcept;

/// Target pixel (x, y) comes from source position (startX + x * cosine - y * sine, startY + x * sine + y * cosine), in
/// 1/16384 of a pixel from the centre of source pixel (0, 0).
struct Sampling {
  int64_t startX;
  int64_t startY;
  int32_t cosine;
  int32_t sine;
  uint32_t quality;  // ROTATE_CORRECT, ROTATE_BILINEAR or 0
  uint64_t fill;     // the pixel's number
};

/// Fills `result`, a bitmap of source's format, with samples of it. The geometry of both holds.
Status SampleRows(BitmapHandle& result, BitmapHandle& source, const Sampling& sampling, int32_t firstPercent,
                  int32_t lastPercent) noexcept;

}  // namespace tarn
