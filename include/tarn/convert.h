/** @file
 *  Conversion of lines of pixels between formats, in place.
 *
 *  A format is a number of bits a pixel and an order:
 *
 *    bits     order   a pixel is
 *    0        any     one byte, an 8-bit gray level; no palette
 *    1..8     0, 1    a palette index, packed most significant bits first
 *    1..8     2       a gray level of so many bits (0 black, all ones white), packed alike; palettes are ignored
 *    12       2       gray, two pixels in three bytes: the low 12 bits of the little-endian word at byte 0, the high 12
 *                     bits of the word at byte 1
 *    16       0, 1    a little-endian word of three 5-bit channels, bit 15 unused; order 1 (BGR) has red in bits
 *                     10..14 and blue in bits 0..4, order 0 (RGB) the other way round
 *    16, 32   2       a gray sample
 *    24       0, 1, 5 three bytes, the first is red (0) or blue (1); 5 is the wide-gamut space below
 *    32       0, 1    three bytes as for 24 bits, then alpha
 *    48       0, 1, 5 three 16-bit samples, first red (0) or blue (1)
 *    64       0, 1    three 16-bit samples as for 48 bits, then alpha
 *
 *  Any other order of 16, 32, 48 and 64 bits counts as BGR on the source side, and on the target side where the source
 *  is gray or has a palette.
 *
 *  Rules: 8-bit gray is (5 green + 2 red + blue + 4) >> 3. 8-bit samples become 16-bit ones by x 257 and come back by
 *  >> 8; 5-bit channels become 8-bit ones by (c << 3) | (c >> 2) and come back by >> 3. A gray level of s bits becomes
 *  one of d bits by v (2^d - 1) / (2^s - 1), truncated, when d is larger, else by v >> (s - d). Gray of more than 8
 * bits is brought to 8 bits by the top eight bits of its range. 16-bit colour channels become deep gray by the same
 * weights on 16 bits, and 8-bit gray or a palette index by their high bytes. A palette index of a target is the nearest
 * entry (T_FindPaletteIndex). Between two palettes equal indices stay when the target's palette begins with the
 * source's.
 *
 *  Order 5 is reached from B, G, R samples by a fixed matrix in 1/8192, each sum + 4095, clamped to the samples' range:
 *
 *    first   7151 B +   897 G +   145 R        blue    9467 f -  1151 s -   125 t
 *    second   394 B +  7067 G +   731 R        green   -305 f + 10232 s -  1735 t
 *    third   1067 B +  2841 G +  4284 R        red    -2156 f -  6498 s + 16846 t
 */
#ifndef TARN_CONVERT_H
#define TARN_CONVERT_H

#include "types.h"

T_EXTERN_C_BEGIN

/** Flags of T_ConvertBufferExt. Whether a side is gray follows from its order, whatever bits 1 and 2 say. */
enum {
  T_CONVERT_SOURCE_GRAY = 1,  /**< the source is gray, as its order says */
  T_CONVERT_TARGET_GRAY = 2,  /**< the target is gray, as its order says */
  T_CONVERT_SOURCE_RANGE = 4, /**< samples of a gray source are in bits lowBit..highBit */
  T_CONVERT_TARGET_RANGE = 8, /**< samples of a gray target go to bits lowBit..highBit, the other bits are 0 */
  T_CONVERT_ALPHA = 16,       /**< alpha of 32- and 64-bit targets is 255 or 65535 */
  T_CONVERT_OPAQUE = 32       /**< the same */
};

/** Rewrites a line in place.
 *  @param buffer T_CalcConvertSize(width, sourceBits, width, targetBits) bytes; pixels beyond width are not touched,
 *         bits behind the last pixel in its last byte become 0 (unless nothing has to change)
 *  @param width pixels, at least 1
 *  @param sourceBits, targetBits 0..8, 12, 16, 24, 32, 48 or 64
 *  @param sourcePalette, targetPalette 1 << bits entries of a side of 1 to 8 bits; null means the fixed palette of the
 *         depth (T_GetFixedPalette); ignored at other depths
 *  @return SUCCESS; ERR_INVALID_PARAMETER (null, width, a format that is not in the table above); the buffer is then
 *          untouched. Alpha of a 32- or 64-bit target is the source's where that has one, else 0. */
T_API int32_t T_ConvertBuffer(void* buffer, int32_t width, int32_t sourceBits, int32_t targetBits, uint32_t sourceOrder,
                              uint32_t targetOrder, const T_PaletteEntry* sourcePalette,
                              const T_PaletteEntry* targetPalette) T_NOTHROW;

/** The same with ranges of gray samples and an alpha fill.
 *  @param flags T_CONVERT_...; one range only, the target's only when its order is 2
 *  @param lowBit, highBit the range, 0 <= lowBit <= highBit < bits; a negative one means the end of the sample. A range
 *         that is the whole sample counts as none.
 *  @return as T_ConvertBuffer; ERR_INVALID_PARAMETER also for both ranges at once and for a range outside the sample.
 */
T_API int32_t T_ConvertBufferExt(void* buffer, int32_t width, int32_t sourceBits, int32_t targetBits,
                                 uint32_t sourceOrder, uint32_t targetOrder, const T_PaletteEntry* sourcePalette,
                                 const T_PaletteEntry* targetPalette, uint32_t flags, int32_t lowBit,
                                 int32_t highBit) T_NOTHROW;

/** Bytes that a line needs: the largest of source width at source bits, target width at source bits and target width at
 *  target bits, each in whole 4-byte words. Deliberate: the source width is never measured at the target bits, because
 *  a line is cut to the target's width before it is converted. Negative arguments count as 0, 0 bits as 8. */
T_API uint64_t T_CalcConvertSize(int32_t sourceWidth, int32_t sourceBits, int32_t targetWidth,
                                 int32_t targetBits) T_NOTHROW;

/** Where the significant bits of a gray sample are: level = (sample >> *shift) & *mask.
 *  @param bits of the sample, 1..32
 *  @param maximum significant bits wanted at most: a longer range keeps its top ones
 *  @param lowBit, highBit the range; negative: 0 and bits - 1
 *         A range that reaches outside the sample is cut to it, an empty one is its highest bit.
 *  @param significant, mask, shift results, each may be null */
T_API void T_GetGrayParams(int32_t bits, int32_t maximum, int32_t lowBit, int32_t highBit, int32_t* significant,
                           uint32_t* mask, int32_t* shift) T_NOTHROW;

T_EXTERN_C_END

#endif
