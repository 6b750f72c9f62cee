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

/* ---- Questions about colours ------------------------------------------------------------------------------------ */

/** Whether the first `count` entries of a bitmap's palette, as many of them as it has, equal the given ones in red,
 *  green and blue. Deliberate: a bitmap without palette equals everything, so that callers that only want to know
 *  whether colours must be mapped need not ask twice.
 *  @return 1; 0 at the first difference, for a null bitmap, or for null entries beside a palette. */
T_API int32_t T_CompareBitmapToPalette(const BitmapHandle* bitmap, const T_PaletteEntry* entries,
                                       uint32_t count) T_NOTHROW;

/** Classifies a palette: 0 not gray; 1 a uniform ramp from black upwards; 2 a uniform ramp from white downwards; 3
 * gray, but no such ramp. The step of a ramp is 255 / (count - 1), truncated, so that a ramp of T_CreateGrayPalette is
 * 1 with 2, 4, 16 and 256 entries and 3 with 8, 32, 64 and 128. Of 0 or 1 entries the first one decides: black 1, white
 * 2, else 3.
 *  @param entries  at least one, also when count is 0
 *  @return the class; ERR_INVALID_PARAMETER (null). */
T_API int32_t T_IsGrayScalePalette(const T_PaletteEntry* entries, uint32_t count) T_NOTHROW;

/** Classifies a bitmap the same way. Unless Order is T_ORDER_GRAY it is the class of its palette, 3 when Colors is not
 *  1 << BitsPerPixel, 0 above 8 bits and for a palette that lacks entries. A gray bitmap is 1 without a lookup table in
 *  force; with one it is 0 as soon as an entry of its significant bits is not gray, else the entry of sample value 0
 *  decides: black 1, white 2, else 3.
 *  @return the class; ERR_INVALID_PARAMETER (null); ERR_BAD_STRUCT_SIZE; ERR_BAD_LUT_LENGTH (a gray bitmap's LUTLength
 *          is neither 1 << significant bits nor 1 << BitsPerPixel, or not 0 without LUT). */
T_API int32_t T_IsGrayScaleBitmap(const BitmapHandle* bitmap) T_NOTHROW;

/** Says in destination's terms what a colour value means. Colour values have a tag in their top byte:
 *    0x00BBGGRR  red, green and blue
 *    0x0100nnnn  index into source's palette
 *    0x0400gggg  gray level of 16 bits
 *  A gray level stays one in a gray bitmap without lookup table, becomes the index of the nearest entry of a table in
 *  force, and elsewhere the gray of its upper byte. Other colours become an index of destination's palette (tag 1) up
 *  to 8 bits, and red, green and blue in deeper bitmaps. An index that source cannot resolve counts as black; one whose
 *  entry destination has in the same place stays as it is.
 *  @param destination  null gives the colour back unchanged
 *  @param source       may be null
 *  @return the colour value. */
T_API uint32_t T_TranslateBitmapColor(const BitmapHandle* destination, const BitmapHandle* source,
                                      uint32_t color) T_NOTHROW;

/** The first entry of a bitmap's palette at the smallest sum of squared differences. Unlike T_FindPaletteIndex it knows
 *  no other rule for ties, and no ends.
 *  @param color  0x00BBGGRR; the top byte is ignored
 *  @return the index; 0 for a null bitmap, one without a palette of 1..256 entries, or without memory. */
T_API uint32_t T_GetNearestPaletteIndex(const BitmapHandle* bitmap, uint32_t color) T_NOTHROW;

/* ---- Logical palettes ------------------------------------------------------------------------------------------- */

/** A logical palette: on Windows GDI's HPALETTE, on Linux an object of the library that counts and answers alike.
 *  Whoever is given one deletes it with T_DeletePalette, or on Windows with DeleteObject. A value that is no palette is
 *  recognised and has no entries. */
typedef void* T_LogicalPalette;

/** Makes a palette of `count` entries; the reserved byte becomes the entry's flags.
 *  @return null for null entries, a count outside 1..256, or without memory. */
T_API T_LogicalPalette T_CreatePalette(const T_PaletteEntry* entries, uint32_t count) T_NOTHROW;

/** Makes the palette of the screen. @return null when the screen has none, as on Linux. */
T_API T_LogicalPalette T_CreateSystemPalette(void) T_NOTHROW;

/** Makes a palette with the entries of another one. @return null without palette, entries (1..256) or memory. */
T_API T_LogicalPalette T_DupPalette(T_LogicalPalette palette) T_NOTHROW;

/** Makes a palette with the entries of a bitmap's.
 *  @return null for a null bitmap, a wrong StructSize, no palette of 1..256 entries, or without memory. */
T_API T_LogicalPalette T_DupBitmapPalette(const BitmapHandle* bitmap) T_NOTHROW;

/** @return 1; 0 for null and for what is no palette. */
T_API int32_t T_DeletePalette(T_LogicalPalette palette) T_NOTHROW;

/** @return the number of entries; 0 for null and for what is no palette. */
T_API uint32_t T_GetPaletteSize(T_LogicalPalette palette) T_NOTHROW;

/** Reads entries first .. first + count - 1, as far as there are any; flags become reserved bytes.
 *  @return how many; 0 for null entries or what is no palette. */
T_API uint32_t T_GetPaletteEntries(T_LogicalPalette palette, uint32_t first, uint32_t count,
                                   T_PaletteEntry* entries) T_NOTHROW;

/** Writes entries first .. first + count - 1, as far as there are any; reserved bytes become flags.
 *  @return how many; 0 for null entries or what is no palette. */
T_API uint32_t T_SetPaletteEntries(T_LogicalPalette palette, uint32_t first, uint32_t count,
                                   const T_PaletteEntry* entries) T_NOTHROW;

/** Gives a bitmap the entries of a logical palette and sets Colors to their number.
 *  @return SUCCESS; ERR_NO_BITMAP (null); ERR_BAD_STRUCT_SIZE; ERR_INVALID_PARAMETER (null, or not of 2..256 entries);
 *          ERR_NO_MEMORY. Without memory the bitmap has no palette any more and Colors stays. */
T_API int32_t T_SetBitmapPalette(BitmapHandle* bitmap, T_LogicalPalette palette) T_NOTHROW;

T_EXTERN_C_END

#endif
