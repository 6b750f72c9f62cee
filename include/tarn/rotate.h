/** @file
 *  Rotation by any angle, quarter and half turns, and changes of the view perspective that move the pixels.
 *
 *  Angles are hundredths of a degree; positive ones turn the displayed picture clockwise. Quarter and half turns move
 *  pixels; any other angle samples the source for each pixel of the result, with positions in 1/16384 of a pixel.
 *  Results have storage of the source's kind. Half turns of rows in memory happen in place.
 */
#ifndef TARN_ROTATE_H
#define TARN_ROTATE_H

#include "types.h"

T_EXTERN_C_BEGIN

/** Bits of the rotations' flags. Sampling is nearest without the second and third. Bitmaps of less than 8 bits, those
 *  of 8 bits whose palette is not of class 1 (T_IsGrayScaleBitmap), and gray ones with a lookup table are always
 *  sampled nearest. */
enum {
  ROTATE_RESIZE = 1,   /**< the bitmap becomes as large as the rotated picture; else it keeps its extents, and what
                            turns out of them is lost, except by a quarter turn of a square */
  ROTATE_CORRECT = 2,  /**< the nearest pixel, moved towards one neighbour a direction */
  ROTATE_BILINEAR = 4, /**< four neighbours, weighted; goes before ROTATE_CORRECT */
  ROTATE_CENTER = 8    /**< about a centre of the caller's, to the size of the rotated picture */
};

/** Rotates a bitmap in place, with overlays and region (hook Rotate). ViewPerspective becomes 1, or 4 where it was 2,
 *  4, 5 or 7, and what it stood for is turned as well. Progress goes to the status callback.
 *  @param angle  hundredths of a degree; any number of turns
 *  @param flags  ROTATE_...; ROTATE_CENTER means the centre (0, 0) here
 *  @param fill  a colour value as T_FillBitmap takes it, for pixels that have no source
 *  @return SUCCESS; ERR_NO_BITMAP (null or unallocated); ERR_BAD_STRUCT_SIZE; what T_IntRotateBitmap gives. After any
 *          failure the bitmap is as it was. */
T_API int32_t T_RotateBitmap(BitmapHandle* bitmap, int32_t angle, uint32_t flags, uint32_t fill) T_NOTHROW;

/** The same within a part of a longer operation.
 *  @param firstPercent,lastPercent  what the callback is told goes from one to the other; an angle that leaves nothing
 *         to do tells both
 *  @param centerX,centerY  columns and rows of the stored picture, with ROTATE_CENTER
 *  @return SUCCESS; ERR_NO_BITMAP (null or unallocated); ERR_INVALID_PARAMETER (dimensions that do not fit together, or
 *          a centre that is not finite); what T_FillBitmap gives for `fill`, where pixels are sampled; what copying and
 *          rotating the overlays gives; what T_DupBitmapNewDim gives; ERR_NO_MEMORY; a row status; the hook's result;
 *          the callback's. After any failure the bitmap is as it was. */
T_API int32_t T_IntRotateBitmap(BitmapHandle* bitmap, int32_t angle, uint32_t flags, uint32_t fill,
                                int32_t firstPercent, int32_t lastPercent, float centerX, float centerY) T_NOTHROW;

/** A quarter turn of the displayed picture. The perspective stays, resolutions are exchanged. Overlays and region do
 *  not matter.
 *  @param direction  1 clockwise, 0 counter-clockwise
 *  @return SUCCESS; ERR_NO_BITMAP (null or unallocated); ERR_INVALID_PARAMETER (dimensions that do not fit together, or
 *          direction); what T_DupBitmapNewDim gives; ERR_NO_MEMORY; a row status; the callback's result. After any
 *          failure the bitmap is as it was. */
T_API int32_t T_RotateBitmap90(BitmapHandle* bitmap, int32_t direction, int32_t firstPercent,
                               int32_t lastPercent) T_NOTHROW;

/** A quarter turn of rows in memory: `height` rows of `width` pixels to `width` rows of `height` pixels. Every byte of
 *  the target that holds pixels is written, no other; bits behind the last pixel of a row become 0.
 *  @param targetStride,sourceStride  bytes from one row to the next, at least what the pixels take
 *  @param bits  1 to 8, 12, 16, 24, 32, 48 or 64
 *  @param direction  1 clockwise, 0 counter-clockwise
 *  @return SUCCESS; ERR_INVALID_PARAMETER (null, an extent below 1, a stride too short, direction);
 *          ERR_BAD_BITS_PER_PIXEL. */
T_API int32_t T_RotateBuffer90(void* target, uint32_t targetStride, const void* source, uint32_t sourceStride,
                               int32_t width, int32_t height, int32_t bits, int32_t direction) T_NOTHROW;

/** One row of a half turn, which reverses its pixels in place; the caller exchanges the rows.
 *  @return as T_MirrorLine. */
T_API int32_t T_RotateBuffer180(void* row, int32_t width, int32_t bits) T_NOTHROW;

/** Sine and cosine of an angle in hundredths of a degree x 16384, rounded; any angle. */
T_API int32_t T_SinValue(int32_t angle) T_NOTHROW;
/** The cosine, in the same way. */
T_API int32_t T_CosValue(int32_t angle) T_NOTHROW;

/** Changes only the field ViewPerspective, so that the picture is displayed turned clockwise.
 *  @param degrees  a multiple of 90
 *  @return SUCCESS; ERR_INVALID_PARAMETER (null); ERR_BAD_STRUCT_SIZE; what the Int form gives. */
T_API int32_t T_RotateBitmapViewPerspective(BitmapHandle* bitmap, int32_t degrees) T_NOTHROW;

/** @return SUCCESS; ERR_INVALID_PARAMETER (null; another angle; unless it is a whole turn, a perspective outside 1 to
 *          8). */
T_API int32_t T_IntRotateBitmapViewPerspective(BitmapHandle* bitmap, int32_t degrees) T_NOTHROW;

/** Moves the pixels so that the same picture is displayed under another perspective. Overlays stay as they are. No
 *  progress is told.
 *  @param destination  a copy is made there, of the source's storage kind; what the record held is forgotten, not
 *         freed. Null or the source itself: the source is changed
 *  @return SUCCESS (also when there is nothing to change); ERR_INVALID_PARAMETER (source null or unallocated);
 *          ERR_BAD_STRUCT_SIZE (the source's, or structSize); what the Int form gives. After a failure the source is as
 *          it was, and another destination without storage. */
T_API int32_t T_ChangeBitmapViewPerspective(BitmapHandle* destination, BitmapHandle* source, uint32_t structSize,
                                            uint32_t viewPerspective) T_NOTHROW;

/** The same with what a destination gets as its own, bits DUP_...; storage always.
 *  @return SUCCESS; ERR_INVALID_PARAMETER (source null, or dimensions that do not fit together); what T_DupBitmapNewDim
 *          and copying the pixels gives; ERR_INVALID_PARAMETER (a perspective outside 1 to 8); ERR_NO_MEMORY; a row
 *          status; a hook's result. */
T_API int32_t T_IntChangeBitmapViewPerspective(BitmapHandle* destination, BitmapHandle* source, uint32_t structSize,
                                               uint32_t viewPerspective, uint32_t mode) T_NOTHROW;

T_EXTERN_C_END

#endif
