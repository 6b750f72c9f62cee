/** @file
 *  Counting colours, palettes made of the colours that occur, and bitmaps to another colour resolution.
 */
#ifndef TARN_COLORS_H
#define TARN_COLORS_H

#include "list.h"
#include "types.h"

T_EXTERN_C_BEGIN

/** Counts the different colours of a bitmap: indices that occur up to 8 bits, 15-bit colours at 16 bits, gray samples
 * at 12 and 16 bits of gray (colours where a lookup table is in use), else 8 bits a channel.
 *  @param count in: room in the palette; out: colours found. With a palette and more than 8 bits counting ends at one
 *         more than there is room for.
 *  @param palette gets as many of the colours as there is room for, ascending by index or by red, green, blue; null:
 * none
 *  @return SUCCESS; ERR_NO_BITMAP (null or no storage); ERR_BAD_STRUCT_SIZE; ERR_INVALID_PARAMETER (null count, damaged
 *          geometry); ERR_BAD_LUT_LENGTH; ERR_NO_MEMORY; a row status. */
T_API int32_t T_GetBitmapColorCountExt(BitmapHandle* bitmap, uint32_t* count, T_PaletteEntry* palette) T_NOTHROW;

/** One palette for all bitmaps of a list: their own colours when those are few enough, else entries for dominant
 * colours and means of boxes that are split by variance (5 bits a channel), sorted by red, green, blue from high to
 * low.
 *  @param palette as many entries as are wanted; those that are not made are zero
 *  @param count in: colours wanted, 1 to 256; out: colours made
 *  @param matchTable gets a match table for T_StartDitheringExt, freed by the caller with T_FreeUserMatchTable, or null
 *         where the palette holds all colours; may itself be null
 *  @param optimized gets 0 for one bitmap whose colours are all in the palette, else 1
 *  @return SUCCESS; ERR_INVALID_PARAMETER (null, count); ERR_NO_BITMAP (empty list); ERR_NULL_POINTER (a list without
 * items); of an item: ERR_NO_BITMAP (no storage), ERR_BAD_STRUCT_SIZE, ERR_INVALID_PARAMETER (damaged geometry);
 * ERR_BAD_LUT_LENGTH; ERR_NO_MEMORY; a row status. */
T_API int32_t T_CreateBitmapListOptPal(T_BitmapList* list, T_PaletteEntry* palette, uint32_t* count,
                                       uint32_t** matchTable, uint32_t* optimized) T_NOTHROW;

/** Flags of colour resolution: one palette type, T_RES_BORROW_TABLE with it where a match table is lent, and a
 * dithering method in bits 16 to 23 (T_RES_DITHER). Types hold for 1 to 8 bits. The numbers 2, 8, 10, 512, 514, 520 and
 * 522 are other names of T_RES_OPTIMIZED. */
enum {
  T_RES_OPTIMIZED = 0, /**< the colours that occur. Entries of a given palette are kept, but for those with bit 1 and
                            not bit 0 of the reserved byte set: those are filled */
  T_RES_FIXED = 1,     /**< the fixed palette of the depth; with T_RES_WEB at 8 bits the web palette */
  T_RES_PALETTE = 16,  /**< the palette given */
  T_RES_BORROW_TABLE = 32, /**< the match table stays the caller's; null: the thread's (T_SetUserMatchTable) */
  T_RES_WEB = 64           /**< the web palette, 8 bits only: 216 colours and 40 black entries that are not used */
};
#define T_RES_DITHER(method) ((uint32_t)(method) << 16)

/** Brings a bitmap to another number of bits, in place or into a new bitmap.
 *  @param destination gets a new record, like the source but for its pixels and palette; what it held is forgotten.
 * Null or the source: in place.
 *  @param structSize 212
 *  @param bits 1 to 8 through the palette that flags name, which becomes the bitmap's, padded with black to 1 << bits
 *         entries; 12 is gray; 16, 24, 32, 48, 64 are BGR, opaque where the source has no alpha
 *  @param palette colours entries, or null
 *  @param matchTable T_MATCH_TABLE_ENTRIES numbers from T_CreateUserMatchTable or T_CreateBitmapListOptPal, or null.
 *         Without T_RES_BORROW_TABLE it is freed, whatever happens.
 *  @param colors of the palette; 0 or more than 1 << bits means 1 << bits
 *  @param callback takes the place of the thread's status callback for the call; null: the thread's
 *  @return SUCCESS; ERR_INVALID_PARAMETER (null source); ERR_BAD_STRUCT_SIZE; ERR_NO_BITMAP; ERR_SIGNED_DATA (signed
 *          samples without a lookup table in use); ERR_INVALID_PARAMETER (bits, flags, method, a palette that is
 * missing, damaged geometry); ERR_BAD_LUT_LENGTH; ERR_NO_MEMORY; an allocation or row status; the callback's result.
 *          After a failure the source is as it was, and a destination of its own is not allocated. */
T_API int32_t T_ColorResBitmap(BitmapHandle* source, BitmapHandle* destination, uint32_t structSize, int32_t bits,
                               uint32_t flags, const T_PaletteEntry* palette, uint32_t* matchTable, uint32_t colors,
                               T_StatusCallback callback, void* userData) T_NOTHROW;

/** Brings every bitmap of a list to the same number of bits with one palette. T_RES_OPTIMIZED (0, 2, 8 and 10) makes
 * one palette for all of them.
 *  @return SUCCESS; ERR_INVALID_PARAMETER (null list, both palette and match table, bits); what
 * T_CreateBitmapListOptPal and T_ColorResBitmap give. Bitmaps before the one that failed are converted, it and the
 * others are not. */
T_API int32_t T_ColorResBitmapList(T_BitmapList* list, int32_t bits, uint32_t flags, const T_PaletteEntry* palette,
                                   uint32_t* matchTable, uint32_t colors) T_NOTHROW;
/** T_ColorResBitmapList with a callback, as T_ColorResBitmap has it. @return the same */
T_API int32_t T_ColorResBitmapListExt(T_BitmapList* list, int32_t bits, uint32_t flags, const T_PaletteEntry* palette,
                                      uint32_t* matchTable, uint32_t colors, T_StatusCallback callback,
                                      void* userData) T_NOTHROW;

T_EXTERN_C_END

#endif
