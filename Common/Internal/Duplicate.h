#pragma once
// What the copying operations share, and whole copies for the library's own use.

#include "Common/Internal/Rows.h"
#include "Common/Internal/Status.h"
#include "tarn/types.h"

namespace tarn {

/// Makes target a copy of source with storage, palette, region and overlays of its own. A failure leaves nothing made.
/// No progress is told.
Status CopyWhole(BitmapHandle& target, BitmapHandle& source) noexcept;

/// Makes target a zero-filled bitmap like source with new dimensions, and with storage, palette, region and overlays of
/// its own. The storage is of the source's kind, or of *memoryType if that is given. A failure leaves nothing made.
Status MakeLike(BitmapHandle& target, const BitmapHandle& source, int32_t width, int32_t height,
                const uint32_t* memoryType) noexcept;

/// Copies `rows` whole rows in compressed form; both bitmaps are of one bit and one width.
Status CopyCompressedRows(BitmapHandle& target, uint32_t targetRow, BitmapHandle& source, uint32_t sourceRow,
                          uint32_t rows, Progress& progress) noexcept;

/// Frees a bitmap and gives it a result that owns everything; the active dithering run stays the bitmap's.
void ReplaceWhole(BitmapHandle& bitmap, const BitmapHandle& result) noexcept;

/// Fields of a duplicate whose samples are made new: unsigned, of all bits, without the lookup table it may have got.
void DescribeSamples(BitmapHandle& result, uint32_t order) noexcept;
/// Gives a bitmap a palette of T_GlobalAlloc's (null: none) in the place of its own.
void AdoptPalette(BitmapHandle& bitmap, T_PaletteEntry* palette, uint32_t colors) noexcept;

}  // namespace tarn
