/** @file
 *  Filling and clearing whole bitmaps.
 *
 *  A bitmap whose rows all lie in memory is filled in place, which cannot fail: the status callback is asked with 0 and
 *  100 before the first pixel changes. Any other is filled aside, in storage of the same kind made anew, with progress
 *  row by row, and takes that storage over at the end. Either way a call that fails or is stopped leaves the bitmap as
 *  it was. Compressed rows stay compressed. Bytes behind the last pixel of a row become 0.
 */
#ifndef TARN_FILL_H
#define TARN_FILL_H

#include "types.h"

T_EXTERN_C_BEGIN

/** Gives every pixel a colour. The pixel is T_ColorToPixel's, so alpha becomes 0. A bitmap with a region is filled by
 * the Fill hook, when there is one (T_SetRegionHooks).
 *  @param color  0x00BBGGRR; 0x0400gggg, a gray level; or 0x0100nnnn, an index into the bitmap's palette
 *  @return SUCCESS; ERR_NO_BITMAP (null or unallocated); ERR_BAD_STRUCT_SIZE; ERR_INVALID_PARAMETER (dimensions that do
 *          not fit together); the hook's result; ERR_INVALID_PARAMETER (index, or a palette without entries);
 *          ERR_BAD_LUT_LENGTH; the callback's result; and where rows are not in memory what T_DupBitmapNewDim and the
 *          row functions give. */
T_API int32_t T_FillBitmap(BitmapHandle* bitmap, uint32_t color) T_NOTHROW;

/** Sets every byte of the pixels to 0, whatever that means in the bitmap's format; regions do not matter.
 *  @return SUCCESS; ERR_NO_BITMAP (null or unallocated); ERR_BAD_STRUCT_SIZE; ERR_INVALID_PARAMETER (dimensions that do
 *          not fit together); the callback's result; and where rows are not in memory what T_DupBitmapNewDim gives. */
T_API int32_t T_ClearBitmap(BitmapHandle* bitmap) T_NOTHROW;

T_EXTERN_C_END

#endif
