/** @file
 *  Slanting pictures.
 */
#ifndef TARN_SHEAR_H
#define TARN_SHEAR_H

#include "types.h"

T_EXTERN_C_BEGIN

/** Slants the displayed picture in place: rows move sideways by whole pixels, by more from the bottom to the top, and
 *  the picture widens by tan(angle) times its height. Uncovered pixels take the fill colour. The region is dropped,
 *  resolutions stay. After a vertical shear, and after any shear of a bitmap with perspective 5 to 8, the perspective
 * is 1 or 4, as after a rotation, where the rows had to be turned.
 *  @param angle  hundredths of a degree, -8999..8999; positive leans the top to the right. Deliberate: rows move where
 *         they are stored, so with the perspectives 2 and 3, with 5 and 6 for columns and with 7 and 8 for rows the
 *         picture leans the other way.
 *  @param horizontal  not 0: rows move sideways; 0: columns move up and down
 *  @param fill  colour value (see T_FillBitmap)
 *  @return SUCCESS; ERR_NO_BITMAP (null or no storage); ERR_BAD_STRUCT_SIZE; ERR_INVALID_PARAMETER (angle, damaged
 *          geometry, a fill that the bitmap cannot have); ERR_IMAGE_TOO_LARGE; ERR_NO_MEMORY; an allocation or row
 *          status; the callback's result. After any failure the bitmap is as it was. */
T_API int32_t T_ShearBitmap(BitmapHandle* bitmap, int32_t angle, int32_t horizontal, uint32_t fill) T_NOTHROW;

T_EXTERN_C_END

#endif
