/** @file
 *  Bitmaps, rows and lines in another size.
 *
 *  Nearest: sample i of D takes source sample floor(i * S / D), in integers. Area: a direction that shrinks is averaged
 *  over the part of the source that each sample covers, with weights in 1/4096 and a truncating division, across first
 *  and then down; one that grows is interpolated linearly. Smooth: the same, but a direction that grows takes a cubic
 *  spline. Ink count: of one-bit pictures, a pixel is ink when enough of the pixels that it covers are.
 *
 *  Averages and curves are made of samples: bytes of 24 and 32 bits (16 bits: of its 5-bit channels widened to bytes),
 *  words of 48 and 64 bits, gray samples; alpha is one of the channels. Palettes with another class than 1 (see
 *  T_IsGrayScaleBitmap), and depths below 8 bits, go through 24 bits and Floyd-Steinberg dithering back to their own
 *  palette. Samples of 16 and 32 bits are signed where T_FLAG_SIGNED_DATA says so.
 *
 *  Progress of whole bitmaps goes to the status callback: 0 at first, then the percentage of rows done. A result other
 *  than SUCCESS stops.
 */
#ifndef TARN_RESIZE_H
#define TARN_RESIZE_H

#include "types.h"

T_EXTERN_C_BEGIN

/** How a bitmap is resized; other bits are ignored. */
enum {
  RESIZE_NEAREST = 0,   /**< each pixel is one of the old ones */
  RESIZE_INK_COUNT = 1, /**< one-bit bitmaps: area count of ink pixels with a threshold */
  RESIZE_AREA = 2,      /**< area averaging, linear where it grows */
  RESIZE_SMOOTH = 4     /**< area averaging when neither direction grows, else with the spline */
};

/* ---- Whole bitmaps --------------------------------------------------------------------------------------------- */

/** Resizes a bitmap in place; its region goes through the region hooks, its overlays are scaled too.
 *  @param newWidth, newHeight pixels; one of them may be 0 and is then computed from the other and the present shape
 *  @param flags RESIZE_...; the ink count counts only for one-bit bitmaps in black and white, where it goes before area
 *  @return SUCCESS, at once for the size that the bitmap has; ERR_INVALID_PARAMETER (null or no storage);
 *          ERR_BAD_STRUCT_SIZE; ERR_INVALID_PARAMETER (an extent negative, both 0, none can be computed, or damaged
 *          geometry); ERR_NO_MEMORY; ERR_IMAGE_TOO_LARGE; an allocation or row status; the status callback's or the
 *          hook's result. After a failure the bitmap is as it was. */
T_API int32_t T_SizeBitmap(BitmapHandle* bitmap, int32_t newWidth, int32_t newHeight, uint32_t flags) T_NOTHROW;

/** Resizes a bitmap into another one, which has the size wanted and storage of any kind. The picture comes out in the
 *  destination's view perspective. A region of the destination is scaled through the region hooks; overlays of the
 *  source are scaled and replace the destination's.
 *  @param flags RESIZE_...; the ink count counts only for one-bit bitmaps (ink is white in a palette that is not black
 *         and white in this order), where it goes before area and smooth
 *  @return SUCCESS; ERR_INVALID_PARAMETER (null); ERR_BAD_STRUCT_SIZE; ERR_NO_BITMAP (no storage);
 *          ERR_INVALID_PARAMETER (depths or orders differ, a view perspective that does not exist, damaged geometry);
 *          ERR_NO_MEMORY; an allocation or row status; the status callback's or the hook's result. After a failure rows
 *          of the destination may be written. */
T_API int32_t T_ResizeBitmap(BitmapHandle* source, BitmapHandle* destination, uint32_t flags) T_NOTHROW;

/** T_SizeBitmap by area, for any size but 0.
 *  @return as T_SizeBitmap, but ERR_NO_BITMAP for null or no storage. */
T_API int32_t T_ResampleBitmap(BitmapHandle* bitmap, int32_t newWidth, int32_t newHeight) T_NOTHROW;
/** T_SizeBitmap with the spline, for any size but 0. @return as T_SizeBitmap. */
T_API int32_t T_BicubicResampleBitmap(BitmapHandle* bitmap, int32_t newWidth, int32_t newHeight) T_NOTHROW;

/** T_ResizeBitmap by area or with the spline.
 *  @param structSize sizeof(BitmapHandle)
 *  @return as T_ResizeBitmap, but ERR_NO_BITMAP (null or no storage), then ERR_BAD_STRUCT_SIZE. */
T_API int32_t T_ResampleBitmapInt(BitmapHandle* source, BitmapHandle* destination, uint32_t structSize) T_NOTHROW;
/** With the spline. @return as T_ResampleBitmapInt */
T_API int32_t T_BicubicResampleBitmapInt(BitmapHandle* source, BitmapHandle* destination,
                                         uint32_t structSize) T_NOTHROW;

/** Hands the bitmap's region to the region-scaling hook. @return its result; SUCCESS without a hook;
 *          ERR_INVALID_PARAMETER (null). */
T_API int32_t T_KrnSizeBitmapRgn(BitmapHandle* bitmap, int32_t newWidth, int32_t newHeight) T_NOTHROW;

/** Integer square root by Newton's steps from n / 2, stopped when two approximations are one apart: it may be one off.
 *  @return 0 for n below 1, 1 below 4. */
T_API int32_t T_SQRT(int32_t n) T_NOTHROW;

/* ---- Rows of a bitmap in another size -------------------------------------------------------------------------- */

/** Opens a source of resized rows, equal to the stored rows of the bitmap after T_SizeBitmap with the same flags. The
 *  bitmap stays locked until T_StopResizeBitmap and must not change or move meanwhile.
 *  @param state receives the source of rows
 *  @param newWidth, newHeight as T_SizeBitmap
 *  @param flags RESIZE_AREA or RESIZE_SMOOTH
 *  @return SUCCESS; ERR_INVALID_PARAMETER (null); ERR_NO_BITMAP (no storage); ERR_BAD_STRUCT_SIZE;
 *          ERR_INVALID_PARAMETER (extents, flags, damaged geometry); ERR_IMAGE_TOO_LARGE; ERR_NO_MEMORY. */
T_API int32_t T_StartResizeBitmap(void** state, BitmapHandle* source, int32_t newWidth, int32_t newHeight,
                                  uint32_t flags) T_NOTHROW;

/** Part of a resized row. Rows from the top down are cheap; dithered ones start again when a row above is asked for.
 *  @param buffer receives `bytes` bytes of the row
 *  @param column first pixel; below 8 bits a pixel the byte that holds its first bit
 *  @return SUCCESS; ERR_INVALID_PARAMETER (null, not a state, row or column outside, bytes beyond the row);
 *          ERR_NO_MEMORY; a row status. */
T_API int32_t T_GetResizedRowCol(void* state, void* buffer, uint32_t row, uint32_t column, uint64_t bytes) T_NOTHROW;

/** @return SUCCESS; ERR_INVALID_PARAMETER (null or not a state). */
T_API int32_t T_StopResizeBitmap(void* state) T_NOTHROW;

/* ---- Rows that pass by, nearest -------------------------------------------------------------------------------- */

typedef struct ResizeRowState {
  int32_t LastRow;  /**< the row passed last, -1 at first */
  int32_t Backward; /**< 1 while rows come from below upwards */
  int32_t OldWidth, OldHeight, NewWidth, NewHeight;
  int32_t WidthStep;      /**< OldWidth / NewWidth */
  int32_t WidthRemainder; /**< OldWidth mod NewWidth */
  int32_t Unused9, Unused10;
  int32_t RowCount;     /**< NewHeight / OldHeight */
  int32_t RowRemainder; /**< NewHeight mod OldHeight */
  int32_t Unused13;
  int32_t RowAccumulator;
} ResizeRowState;

/** @param newWidth, newHeight as T_SizeBitmap
 *  @param state receives a record, freed by T_StopResize
 *  @return SUCCESS; ERR_INVALID_PARAMETER (null, an old extent below 1, new ones as T_SizeBitmap); ERR_NO_MEMORY. */
T_API int32_t T_StartResize(int32_t oldWidth, int32_t oldHeight, int32_t newWidth, int32_t newHeight,
                            ResizeRowState** state) T_NOTHROW;

/** Resizes one row in place and says how often it is to be written.
 *  @param buffer the row; room for the wider of the old and the new one
 *  @param row its number; rows may come downwards, upwards, or in any order. Deliberate: upwards, row r is counted as
 *         row r - 1 is downwards.
 *  @param bitsPerPixel 1..8, 12, 16, 24, 32, 48 or 64; the row stays as it is at any other
 *  @param newWidth, rows receive the width and the count that is returned
 *  @return how many rows this one becomes, 0: none, the buffer is as it was; ERR_INVALID_PARAMETER (null). */
T_API int32_t T_Resize(void* buffer, int32_t row, int32_t bitsPerPixel, int32_t* newWidth, int32_t* rows,
                       ResizeRowState* state) T_NOTHROW;

/** @return SUCCESS; ERR_INVALID_PARAMETER (null). */
T_API int32_t T_StopResize(ResizeRowState* state) T_NOTHROW;

/** Resizes a line, nearest: each pixel is copied from the current one, which then advances by `step` (not when
 *  enlarging) and by one more whenever the accumulator, to which the remainder is added, reaches the divisor. Nothing
 *  happens for null buffers and for other depths than those of bitmaps.
 *  @param clearBytes at 1, 2, 3, 5, 6, 7 and 12 bits: so many bytes of the target are 0 where no pixel is
 *  @param firstPixel of the source
 *  @param target may be the source when the line does not grow */
T_API void T_GetResizedScanLine(int32_t bitsPerPixel, int32_t clearBytes, int32_t firstPixel, int32_t step,
                                int32_t accumulator, int32_t remainder, const void* source, void* target,
                                int32_t pixels, int32_t divisor, int32_t enlarge) T_NOTHROW;

/** The same from the last pixel to the first: target may be the source when the line does not shrink. */
T_API void T_ReverseGetResizedScanLine(int32_t bitsPerPixel, int32_t clearBytes, int32_t firstPixel, int32_t step,
                                       int32_t accumulator, int32_t remainder, const void* source, void* target,
                                       int32_t pixels, int32_t divisor, int32_t enlarge) T_NOTHROW;

T_EXTERN_C_END

#endif
