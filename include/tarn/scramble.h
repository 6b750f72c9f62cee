/** @file
 *  Scrambling a rectangle of a bitmap, and restoring it.
 *
 *  This hides what a rectangle shows from the eye, such as a name on a form that is passed on. It is obfuscation, not
 *  protection: the key has 32 bits, the method is the one below, nothing tells a right key from a wrong one, and
 * whoever wants to can try all keys.
 *
 *  The rectangle is cut into blocks of 16 rows by 4096 columns, less at its right and lower edges, numbered row of
 *  blocks by row of blocks, from left to right. Each block draws 64-bit numbers from a generator of its own
 * (splitmix64: G. Steele, D. Lea, C. Flood, Fast Splittable Pseudorandom Number Generators, 2014):
 *
 *    next()  s += 0x9E3779B97F4A7C15; z = s; z = (z ^ z >> 30) * 0xBF58476D1CE4E5B9;
 *            z = (z ^ z >> 27) * 0x94D049BB133111EB; the number is z ^ z >> 31
 *    first   s = number of the block, next(), s = that number ^ key, next(), s = that number
 *
 *  Scrambling a block of N pixels, counted row by row:
 *   1. for i = N - 1 down to 1 pixels i and j change places, j = (u * (i + 1)) >> 32, where u is the upper half of a
 *      number for the first i, its lower half for the second, and so on
 *   2. the pixels, in bytes as whole pixels have them (1 to 8 bits one byte, 12 bits two, the index or sample in the
 * low bits, little-endian; others as stored), are combined by exclusive or with further numbers, eight bytes a number,
 *      little-endian, through all of the block without a gap
 *  Restoring is the way back. Results are the same on every system and in every kind of storage.
 */
#ifndef TARN_SCRAMBLE_H
#define TARN_SCRAMBLE_H

#include "types.h"

T_EXTERN_C_BEGIN

/** What T_ScrambleBitmap does; one of them. */
enum {
  T_SCRAMBLE_SCRAMBLE = 1, /**< makes unreadable */
  T_SCRAMBLE_RESTORE = 2   /**< makes readable */
};

/** Scrambles the pixels of a rectangle, or restores them: the same rectangle with the same key gives the same pixels
 *  back, bit by bit, in every format, alpha and bits without a meaning included. Scrambling twice takes restoring
 * twice, the last one first. Another key gives another picture. Nothing outside of the rectangle changes, padding
 * included.
 *
 *  Rows are storage rows, and regions do not matter. The status callback is told 0 and then the percentage of rows
 * done; rows of files are visited in their order. Compressed rows may become uncompressed ones, because what is
 * scrambled is longer as run lengths.
 *  @param column, row, width, height  the rectangle, at least one pixel, inside of the bitmap
 *  @param key   any number
 *  @param flags T_SCRAMBLE_SCRAMBLE or T_SCRAMBLE_RESTORE
 *  @return SUCCESS; ERR_NO_BITMAP (null or unallocated); ERR_BAD_STRUCT_SIZE; ERR_INVALID_PARAMETER (flags, dimensions
 *          that do not fit together, the rectangle); ERR_NO_MEMORY; the callback's result; and where rows are not in
 *          memory what T_DupBitmapNewDim and the row functions give. After any failure the bitmap is as it was. */
T_API int32_t T_ScrambleBitmap(BitmapHandle* bitmap, int32_t column, int32_t row, int32_t width, int32_t height,
                               uint32_t key, uint32_t flags) T_NOTHROW;

T_EXTERN_C_END

#endif
