/** @file
 *  Palettes: fixed tables, gray ramps and the palette a bitmap owns.
 */
#ifndef TARN_PALETTE_H
#define TARN_PALETTE_H

#include "types.h"

T_EXTERN_C_BEGIN

/** Copies a fixed table: bits 1..8 the table of 1 << bits entries (2 bits: four grays), 0 the 256-entry gray ramp.
 *  @return SUCCESS; ERR_INVALID_PARAMETER (null, or bits above 8). */
T_API int32_t T_GetFixedPalette(T_PaletteEntry* entries, uint32_t bits) T_NOTHROW;

/** @return the constant table of 1 << bits entries (bits 1..8), else null. Not to be freed. */
T_API const T_PaletteEntry* T_IntGetFixedPalette(uint32_t bits) T_NOTHROW;

/** @return the constant 216-entry web palette (51 * r, 51 * g, 51 * b). Not to be freed. */
T_API const T_PaletteEntry* T_IntGetNetscapePalette(void) T_NOTHROW;

/** New blocks, freed by the caller with T_GlobalFree; null on failure. */
/** @param bits 2..8 the table of 1 << bits entries; 0 and 1 black and white; above 8 null */
T_API T_PaletteEntry* T_CreateFixedPalette(uint32_t bits) T_NOTHROW;
/** @param count 1..256 */
T_API T_PaletteEntry* T_CreateNewPalette(const T_PaletteEntry* entries, uint32_t count) T_NOTHROW;
/** Gray ramp of 1 << bits entries, i * 255 / (n - 1). @param bits 1..8, 0 means 8; above 8 null */
T_API T_PaletteEntry* T_CreateGrayPalette(uint32_t bits) T_NOTHROW;

/** Gives a bitmap a gray ramp. The old palette is not freed: call it on a bitmap that has none.
 *  @return SUCCESS; ERR_INVALID_PARAMETER (null); ERR_BAD_BITS_PER_PIXEL (not 1..8); ERR_NO_MEMORY. */
T_API int32_t T_CreateBitmapGrayPalette(BitmapHandle* bitmap) T_NOTHROW;

/** Gives a bitmap the fixed table that has `Colors` entries; the old palette is not freed. Deliberate: with four
 * colours the entries are black, white, black and black (reserved byte 128), as files of old callers expect.
 *  @return SUCCESS; ERR_INVALID_PARAMETER (null); 0 when Colors is not 2, 4, ... 256; ERR_NO_MEMORY. */
T_API int32_t T_CreateBitmapFixedPalette(BitmapHandle* bitmap) T_NOTHROW;

/** Replaces a bitmap's palette by a copy; null entries remove it and leave Colors alone.
 *  @return SUCCESS; 0 when count is not 1..256 or there is no memory (the bitmap then has no palette). */
T_API int32_t T_SetBitmapNewPalette(BitmapHandle* bitmap, const T_PaletteEntry* entries, uint32_t count) T_NOTHROW;

/** Gives destination a copy of source's palette; a source without one leaves none and Colors 0.
 *  @return SUCCESS; ERR_INVALID_PARAMETER (null); ERR_BAD_STRUCT_SIZE (source first); 0 as T_SetBitmapNewPalette. */
T_API int32_t T_CopyBitmapPalette(BitmapHandle* destination, const BitmapHandle* source) T_NOTHROW;

/** Writes palette entries first .. first + count - 1; a bitmap without palette gets a zeroed one first.
 *  @return SUCCESS; ERR_NO_BITMAP (null or unallocated); ERR_BAD_STRUCT_SIZE; ERR_INVALID_PARAMETER (negative first,
 *          beyond Colors, more than 8 bits, null entries); ERR_NO_MEMORY. */
T_API int32_t T_PutBitmapColors(BitmapHandle* bitmap, int32_t first, uint32_t count,
                                const T_PaletteEntry* entries) T_NOTHROW;

/** Reads exactly `count` palette entries.
 *  @return SUCCESS; ERR_NO_BITMAP (null); ERR_BAD_STRUCT_SIZE; ERR_INVALID_PARAMETER (count 0, more than 8 bits, or
 *          fewer entries there). */
T_API int32_t T_GetBitmapColors(const BitmapHandle* bitmap, uint32_t first, uint32_t count,
                                T_PaletteEntry* entries) T_NOTHROW;

/** Reads up to `count` entries. @return how many; 0 for null pointers, no palette or first not below Colors. */
T_API uint32_t T_GetBitmapPaletteEntries(const BitmapHandle* bitmap, uint32_t first, uint32_t count,
                                         T_PaletteEntry* entries) T_NOTHROW;

/** The nearest entry of a colour, the library's one rule for every reduction of colours: the smallest sum of the
 * squared differences of red, green and blue, channels 0..255. Of several at that distance the first one that equals
 * the colour wins; else the last of those whose channels are ordered by size as the colour's are; else the first. Black
 * is first looked for at entry 0, then at the last one, white at the last one, then at entry 0.
 *  @param entries  not modified; null gives 0
 *  @param count    any; 0 gives 0xFFFFFFFF
 *  @return the index. */
T_API uint32_t T_FindPaletteIndex(const T_PaletteEntry* entries, uint32_t count, uint8_t red, uint8_t green,
                                  uint8_t blue) T_NOTHROW;

T_EXTERN_C_END

#endif
