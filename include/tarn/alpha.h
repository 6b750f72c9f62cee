/** @file
 *  The alpha channel: byte 3 of a 32-bit pixel, the fourth sample of a 64-bit pixel, bit 15 of a 5-5-5 pixel. Gray
 *  bitmaps (T_ORDER_GRAY) of these depths have none.
 */
#ifndef TARN_ALPHA_H
#define TARN_ALPHA_H

#include "types.h"

T_EXTERN_C_BEGIN

/** Makes a gray bitmap of a bitmap's alpha: 16 bits (T_ORDER_GRAY) from 64-bit pixels, else 8 bits with a gray palette.
 *  Bit 15 becomes 0 or 255; a source without alpha gives zeros. Size, perspective and resolution are the source's;
 * pixels are on disk when the source's are, else in ordinary storage.
 *  @param alpha gets a new record; what it held is forgotten, not freed
 *  @return SUCCESS; ERR_INVALID_PARAMETER (null, or source without storage); ERR_BAD_STRUCT_SIZE; ERR_SIGNED_DATA;
 *          ERR_INVALID_PARAMETER (damaged geometry); ERR_NO_MEMORY; what T_AllocateBitmap gives; the creation hook's
 *          status; a row status. After a failure alpha has no storage. */
T_API int32_t T_GetBitmapAlpha(BitmapHandle* source, BitmapHandle* alpha, uint32_t structSize) T_NOTHROW;

/** Writes a bitmap into another one's alpha, as far as both reach; the rest of the alpha stays. A target without alpha
 *  becomes one of 32 bits (64 where it has 48) first. The alpha bitmap may be of any format and perspective: a copy is
 *  made gray of 8 bits (16 for 64-bit targets) and turned. 5-5-5 pixels get bit 15 where alpha is 128 or more, or where
 *  a 1-bit alpha is white.
 *  @return SUCCESS; ERR_INVALID_PARAMETER (null or without storage); ERR_BAD_STRUCT_SIZE; ERR_SIGNED_DATA (target);
 * what T_ColorResBitmap, T_CreateGrayScaleBitmap and T_ChangeBitmapViewPerspective give; ERR_NO_MEMORY; a row status.
 *          After a failure both are as they were. */
T_API int32_t T_SetBitmapAlpha(BitmapHandle* target, BitmapHandle* alpha) T_NOTHROW;

/** Fills the alpha of a row of 32-bit (low byte of alpha) or 64-bit pixels; other depths are left alone.
 *  @param row null is ignored
 *  @param bytes of the row; a pixel that does not fit any more is left alone */
T_API void T_SetRowAlphaValues(int32_t bitsPerPixel, void* row, uint64_t bytes, uint16_t alpha) T_NOTHROW;

T_EXTERN_C_END

#endif
