/** @file
 *  Flipping (top to bottom), reversing (left to right), and view perspectives: the eight ways in which stored rows can
 *  lie in the picture that is displayed.
 *
 *  | ViewPerspective | the stored rows are displayed           |
 *  |-----------------|-----------------------------------------|
 *  | 1               | as they are, first row on top           |
 *  | 2               | reversed                                |
 *  | 3               | turned by 180 degrees                   |
 *  | 4               | flipped, first row at the bottom        |
 *  | 5               | flipped, then turned by 90 degrees      |
 *  | 6               | turned by 90 degrees                    |
 *  | 7               | flipped, then turned by 270 degrees     |
 *  | 8               | turned by 270 degrees                   |
 *
 *  Turns are clockwise. Rows that lie in memory change places where they are, and change back when the operation is
 *  stopped or fails; other storage is turned aside, in storage of the same kind, which takes the place of the old one
 *  at the end. Compressed rows stay compressed. Bits behind the last pixel of a row keep their place.
 */
#ifndef TARN_FLIP_H
#define TARN_FLIP_H

#include "types.h"

T_EXTERN_C_BEGIN

/** Turns the displayed picture upside down, its overlays too. The view perspective stays. Progress goes to the status
 *  callback.
 *  @return SUCCESS; ERR_INVALID_PARAMETER (null or unallocated); ERR_BAD_STRUCT_SIZE; what copying and flipping the
 *          overlays gives; what T_IntFlipBitmap or, for perspectives 5 to 8, T_IntReverseBitmap gives. After any
 *          failure the bitmap is as it was. */
T_API int32_t T_FlipBitmap(BitmapHandle* bitmap) T_NOTHROW;

/** Mirrors the displayed picture left to right, its overlays too. Otherwise as T_FlipBitmap. */
T_API int32_t T_ReverseBitmap(BitmapHandle* bitmap) T_NOTHROW;

/** Exchanges the stored rows, first with last, whatever the perspective; then calls the region hook Flip. Overlays do
 *  not matter.
 *  @return SUCCESS; ERR_NO_BITMAP (null or unallocated); ERR_INVALID_PARAMETER (dimensions that do not fit together);
 *          the callback's result; the hook's; where rows are not in memory ERR_NO_MEMORY and what T_DupBitmapNewDim and
 *          the row functions give. After any failure the bitmap is as it was. */
T_API int32_t T_IntFlipBitmap(BitmapHandle* bitmap) T_NOTHROW;

/** Reverses each stored row; then calls the region hook Reverse. Results as T_IntFlipBitmap. */
T_API int32_t T_IntReverseBitmap(BitmapHandle* bitmap) T_NOTHROW;

/** Reverses the pixels of a line in place.
 *  @param line  (width x bitsPerPixel + 7) / 8 bytes; bits behind the last pixel stay
 *  @param width  pixels; below 1 nothing happens
 *  @param bitsPerPixel  1 to 8, 12, 16, 24, 32, 48 or 64; for any other value nothing happens
 *  @return SUCCESS; ERR_INVALID_PARAMETER (null line). */
T_API int32_t T_MirrorLine(void* line, int32_t width, int32_t bitsPerPixel) T_NOTHROW;

/** How stored pixels move so that the same picture is displayed under another perspective.
 *  @param flip  gets 1 when rows are flipped first, else 0
 *  @param angle  gets the turn that follows: 0, 90, 180 or 270 degrees clockwise
 *  @return SUCCESS; ERR_INVALID_PARAMETER (a perspective outside 1 to 8, or null). */
T_API int32_t T_GetChangeViewPerspectiveParams(uint32_t from, uint32_t to, int32_t* flip, int32_t* angle) T_NOTHROW;

/** Changes only the field ViewPerspective, so that the picture is displayed flipped, or reversed.
 *  @return SUCCESS; ERR_INVALID_PARAMETER (null); ERR_BAD_STRUCT_SIZE; ERR_INVALID_PARAMETER (a perspective outside 1
 *          to 8). */
T_API int32_t T_FlipBitmapViewPerspective(BitmapHandle* bitmap) T_NOTHROW;
/** The same, reversed. @return as T_FlipBitmapViewPerspective */
T_API int32_t T_ReverseBitmapViewPerspective(BitmapHandle* bitmap) T_NOTHROW;

/** A point of a picture seen under another perspective, given as column and row there, in the bitmap's own.
 *  @param viewPerspective  the point's, 1 to 8
 *  @param x,y  pixels; replaced by the point's place in the bitmap's perspective
 *  @return SUCCESS; ERR_INVALID_PARAMETER (null); ERR_BAD_STRUCT_SIZE; ERR_INVALID_PARAMETER (a perspective). Points
 *          may lie outside. After a failure x and y are as they were. */
T_API int32_t T_PointToBitmap(const BitmapHandle* bitmap, uint32_t viewPerspective, int32_t* x, int32_t* y) T_NOTHROW;

/** The reverse: a point in the bitmap's own perspective, as it lies in another.
 *  @return SUCCESS (also for the same perspective); ERR_INVALID_PARAMETER (null bitmap); ERR_BAD_STRUCT_SIZE;
 *          ERR_INVALID_PARAMETER (a perspective, or null). */
T_API int32_t T_PointFromBitmap(const BitmapHandle* bitmap, uint32_t viewPerspective, int32_t* x, int32_t* y) T_NOTHROW;

/** A rectangle of pixels; right and bottom are the first column and row behind it. */
typedef struct T_Rect {
  int32_t left;
  int32_t top;
  int32_t right;
  int32_t bottom;
} T_Rect;

/** T_PointToBitmap for the pixels of a rectangle. The result has left <= right and top <= bottom.
 *  @return SUCCESS; ERR_INVALID_PARAMETER (null); ERR_BAD_STRUCT_SIZE; ERR_INVALID_PARAMETER (a perspective). */
T_API int32_t T_RectToBitmap(const BitmapHandle* bitmap, uint32_t viewPerspective, T_Rect* rect) T_NOTHROW;
/** T_PointFromBitmap for the pixels of a rectangle. */
T_API int32_t T_RectFromBitmap(const BitmapHandle* bitmap, uint32_t viewPerspective, T_Rect* rect) T_NOTHROW;

/** The same between any two perspectives.
 *  @param width,height  the picture's extents under perspective `from`
 *  @return SUCCESS; ERR_INVALID_PARAMETER (null, or a perspective). */
T_API int32_t T_ChangeRectViewPerspective(uint32_t from, uint32_t to, int32_t width, int32_t height,
                                          T_Rect* rect) T_NOTHROW;

T_EXTERN_C_END

#endif
