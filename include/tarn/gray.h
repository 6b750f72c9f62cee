/** @file
 *  Gray-scale bitmaps: from any format, and from 32-bit gray to fewer bits.
 *
 *  Gray of 8 bits is a bitmap with the palette T_CreateGrayPalette(8), gray of 12, 16 and 32 bits has T_ORDER_GRAY and
 * no palette. Levels follow the rules of tarn/convert.h. Samples of 12- and 16-bit gray with a lookup table in use are
 *  first decoded through it: a sample is the number of the entry, counted from entry LUTLength / 2 when samples are
 *  signed. Results are unsigned and use all their bits.
 */
#ifndef TARN_GRAY_H
#define TARN_GRAY_H

#include "types.h"

T_EXTERN_C_BEGIN

/** Makes a bitmap gray in place. Progress goes to the status callback.
 *  @param bits 8, 12, 16 or 32; 32 records the smallest and largest sample in MinValue and MaxValue
 *  @return SUCCESS; ERR_NO_BITMAP (null or no storage); ERR_BAD_STRUCT_SIZE; ERR_BAD_BITS_PER_PIXEL (bits);
 *          ERR_SIGNED_DATA (signed samples without a lookup table in use); ERR_BAD_LUT_LENGTH (a table shorter than
 *          LUTLength); ERR_INVALID_PARAMETER (damaged geometry; an order or LowBit..HighBit that the depth cannot
 *          have); ERR_NO_MEMORY; an
 *          allocation or row status; the callback's result. After a failure the bitmap is as it was. */
T_API int32_t T_GrayScaleBitmap(BitmapHandle* handle, int32_t bits) T_NOTHROW;

/** The same into a new bitmap with storage of the source's kind where the depth can have it; region and overlays are
 *  copied.
 *  @param destination gets a new record; what it held is forgotten, not freed. The source itself: in place.
 *  @return as T_GrayScaleBitmap; ERR_NO_BITMAP also for a null destination. After a failure destination is not
 *          allocated. */
T_API int32_t T_CreateGrayScaleBitmap(BitmapHandle* destination, BitmapHandle* source, int32_t bits,
                                      uint32_t structSize) T_NOTHROW;

/** 32-bit gray to 16-bit gray in place: MinValue becomes 0, MaxValue 65535, what is between
 *  (v - MinValue) * 65535 / (MaxValue - MinValue), truncated; samples outside become the nearer end. When the two are
 *  equal, all of the sample's range counts and the top 16 bits are taken. Samples and limits are signed when the bitmap
 *  says T_FLAG_SIGNED_DATA, else unsigned.
 *  @return SUCCESS; ERR_NO_BITMAP; ERR_BAD_STRUCT_SIZE; ERR_INVALID_PARAMETER (damaged geometry);
 *          ERR_BAD_BITS_PER_PIXEL (not 32-bit gray); ERR_NO_MEMORY; an
 *          allocation or row status; the callback's result. After a failure the bitmap is as it was. */
T_API int32_t T_Gray32To16(BitmapHandle* handle) T_NOTHROW;

/** The same to 8 bits: 0..255, or the top 8 bits. */
T_API int32_t T_Gray32To8(BitmapHandle* handle) T_NOTHROW;

T_EXTERN_C_END

#endif
