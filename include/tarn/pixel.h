/** @file
 *  Single pixels, as colour values and as raw bytes.
 *
 *  A colour value is red in bits 0..7, green in 8..15, blue in 16..23 and a tag in 24..31:
 *    0x00BBGGRR  a colour
 *    0x0400gggg  a gray level, 0..65535
 *    0x0100nnnn  an index, where a function says that it takes one
 *  Rows are storage rows, whatever the view perspective. Every storage kind is served; pixels that lie in memory are
 *  reached in place. A bitmap of 1 to 8 bits without a palette has the fixed one of its depth (T_GetFixedPalette).
 */
#ifndef TARN_PIXEL_H
#define TARN_PIXEL_H

#include "types.h"

T_EXTERN_C_BEGIN

/** What T_GetPixelColor gives in place of a colour. */
#define T_NO_COLOR UINT32_C(0x80000000)

/** The colour of a pixel. Indices become their palette entry; samples of 12- and 16-bit gray bitmaps the entry of a
 *  lookup table in force, else a gray level, sample * 65535 / maximum; 5-bit channels c become c << 3 | c >> 2, 16-bit
 *  ones their upper byte. Alpha is not looked at.
 *  @param row, column  0 .. Height - 1, 0 .. Width - 1
 *  @return the colour value; T_NO_COLOR for a null, unallocated or wrongly sized record, a position outside, a 32-bit
 *          gray bitmap, an index or sample without an entry, and when the storage cannot be read. */
T_API uint32_t T_GetPixelColor(BitmapHandle* bitmap, int32_t row, int32_t column) T_NOTHROW;

/** Gives a pixel a colour. Palette bitmaps take the nearest entry (T_FindPaletteIndex), and so do gray ones of 12 and
 * 16 bits with a lookup table in force. Other gray bitmaps take gray levels, rounded up to their significant bits, and
 * of a colour (5 * green + 2 * red + blue + 4) >> 3. Elsewhere a gray level counts as the gray of its upper byte; 5-bit
 *  channels are cut, 16-bit ones are the 8-bit value * 257. The alpha of the pixel stays, as do the pixels beside it.
 *  @param row, column  0 .. Height - 1, 0 .. Width - 1
 *  @param color        a colour or a gray level; other tags are ignored
 *  @return SUCCESS; ERR_NO_BITMAP (null or unallocated); ERR_BAD_STRUCT_SIZE; ERR_SIGNED_DATA; ERR_EMPTY_AREA (the
 *          pixel-position hook says no, or outside); ERR_BAD_BITS_PER_PIXEL; ERR_INVALID_PARAMETER (a palette without
 *          entries); ERR_BAD_LUT_LENGTH (a table without); ERR_NO_MEMORY, ERR_FILE_READ, ERR_FILE_WRITE or another
 *          status of the storage. After a failure the pixel is as it was, unless a file took part of its bytes. */
T_API int32_t T_PutPixelColor(BitmapHandle* bitmap, int32_t row, int32_t column, uint32_t color) T_NOTHROW;

/** Copies the whole bytes that hold any bit of a pixel: ((column + 1) * bits + 7) / 8 - column * bits / 8 of them.
 *  Below 8 bits the pixel is somewhere in them, the first pixel of a byte uppermost; a pixel of 12 bits is in the lower
 *  12 of the two bytes at an even column and in the upper 12 at an odd one. The column is not compared with Width.
 *  @param bytes  size of the buffer
 *  @return SUCCESS; ERR_NO_BITMAP (null or unallocated bitmap, null buffer); ERR_BAD_STRUCT_SIZE;
 *          ERR_BAD_BITS_PER_PIXEL; ERR_INVALID_PARAMETER (buffer too small); ERR_NO_MEMORY (not all of them could be
 *          moved, for whatever reason). */
T_API int32_t T_GetPixelData(BitmapHandle* bitmap, void* buffer, int32_t row, int32_t column, uint64_t bytes) T_NOTHROW;

/** Puts those bytes back; pixels that share a byte with this one are put with it. Results as T_GetPixelData. */
T_API int32_t T_PutPixelData(BitmapHandle* bitmap, const void* buffer, int32_t row, int32_t column,
                             uint64_t bytes) T_NOTHROW;

/** The bytes of a pixel of this colour in a bitmap's format, found as T_PutPixelColor finds them; the bitmap needs no
 *  storage. Up to 8 bits one byte with the index, 12 bits two bytes with the sample in the lower 12 bits, else as
 *  stored. Alpha is 0, and so is bit 15 of a 5-5-5 pixel.
 *  @param color  a colour, a gray level or an index into the bitmap's palette (black above 8 bits)
 *  @param pixel  receives 1, 2, 3, 4, 6 or 8 bytes
 *  @param bytes  size of the buffer
 *  @return SUCCESS; ERR_INVALID_PARAMETER (null); ERR_BAD_STRUCT_SIZE; ERR_BAD_BITS_PER_PIXEL; ERR_INVALID_PARAMETER
 *          (buffer too small, index not below 1 << BitsPerPixel, a palette without entries); ERR_BAD_LUT_LENGTH. */
T_API int32_t T_ColorToPixel(const BitmapHandle* bitmap, uint32_t color, void* pixel, uint64_t bytes) T_NOTHROW;

T_EXTERN_C_END

#endif
