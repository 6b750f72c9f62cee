#pragma once
// Tiled storage: whole rows in blocks of their own, some in memory, the rest in swap files of which only a few are
// mapped at a time.

#include <cstdint>

#include "Common/Internal/Status.h"
#include "tarn/types.h"

namespace tarn {

/// The thread's tile size in bytes, 16 MiB when none is set.
uint64_t DefaultTileSize() noexcept;
/// Bytes that the thread's thresholds leave for new storage of `wanted` bytes.
uint64_t AvailableBytes(uint64_t wanted) noexcept;

/// Figures of a tile table. All tiles below `conventional` lie in memory.
struct TileFigures {
  uint64_t tileSize;  // bytes, whole rows
  uint32_t rowsPerTile;
  uint32_t count;
  uint32_t conventional;
  uint32_t maxMapped;
  uint32_t mapped;
};

/// Makes tiles of about tileSize bytes by the thread's layout settings; `available` bytes may be used for tiles in
/// memory.
Status CreateTileStorage(BitmapHandle& bitmap, uint64_t tileSize, uint64_t available) noexcept;
/// What the thread's layout settings give for tiles of this size with the memory that is available now.
void DefaultTileFigures(const BitmapHandle& bitmap, uint64_t tileSize, uint32_t& conventional,
                        uint32_t& maxMapped) noexcept;
/// Of a tiled bitmap; false when the table is not the record's.
bool ReadTileFigures(const BitmapHandle& bitmap, TileFigures& figures) noexcept;
/// Moves tiles between memory and swap files and changes the number of views. Pixels stay; a failure changes nothing.
Status AdjustTiles(BitmapHandle& bitmap, uint32_t conventional, uint32_t maxMapped, uint32_t mapped) noexcept;

}  // namespace tarn
