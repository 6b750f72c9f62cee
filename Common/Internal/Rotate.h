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

/// Row i of the target gets pixel i of each line of the source. Strides may be negative. Lines are a multiple of 8, but
/// for the last ones of a picture.
void TransposeLines(uint8_t* target, int64_t targetStride, const uint8_t* source, int64_t sourceStride, int64_t pixels,
                    int64_t lines, int32_t bits) noexcept;

/// Turns pictures in files that are larger than the room for them in memory, and says how it went. False: these are
/// not, or there is no room for what it takes; nothing has happened then.
bool TransposeByPieces(BitmapHandle& target, BitmapHandle& source, Transposition turn, int32_t firstPercent,
                       int32_t lastPercent, Status& status) noexcept;
/// The room, in bytes; returns what it was. Tests make it small.
int64_t SetTurnRoom(int64_t bytes) noexcept;

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
