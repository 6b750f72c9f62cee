#pragma once
// From the indices of one palette to those of another.

#include <cstdint>

#include "tarn/types.h"

namespace tarn {

/// Fills map[0 .. sourceCount - 1]. Counts are at most 256; either palette may be null:
///   both there        the nearest target entry of each source entry; the identity when the target begins with the
///                     source's bytes, reserved ones included
///   source null       the nearest target entry of each gray level 0 .. sourceCount - 1
///   target null       each source entry's 8-bit gray, (5 * green + 2 * red + blue + 4) >> 3
///   both null         nothing is written
/// True when map[i] = i for all i, or nothing was written.
bool BuildPaletteIndexMap(const T_PaletteEntry* source, uint32_t sourceCount, const T_PaletteEntry* target,
                          uint32_t targetCount, uint8_t* map) noexcept;

}  // namespace tarn
