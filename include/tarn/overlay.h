/** @file
 *  Overlays: bitmaps that lie on a bitmap, such as annotations, masks and the planes of medical pictures. A bitmap owns
 *  a list of them, which copies take along, geometry turns and scales with it, and T_FreeBitmap frees. What draws them
 *  is the display's affair; here they are kept, described, and moved into and out of a bit of the bitmap's pixels.
 *
 *  Places are numbered from 0. A place may be not in use, and an overlay in use may have no bitmap yet. Positions are
 *  counted in stored columns and rows of the bitmap, right and downwards as stored; an overlay may hang over any edge.
 *
 *  Failures of all functions, in this order: ERR_NULL_POINTER (a null argument, the bitmap's too), ERR_BAD_STRUCT_SIZE
 *  (a record, or structSize, of another size), ERR_NO_BITMAP (not allocated), ERR_OVERLAY_INDEX (a negative index, one
 *  not below the count, or a place not in use, except where a function says that it may be), then those listed with it.
 *  A failure changes nothing.
 */
#ifndef TARN_OVERLAY_H
#define TARN_OVERLAY_H

#include "types.h"

T_EXTERN_C_BEGIN

/** How a bitmap enters a place or leaves it. */
enum {
  T_OVERLAY_COPY = 0,  /**< both sides have a bitmap of their own */
  T_OVERLAY_MOVE = 1,  /**< storage and all go over; nothing is left on the other side */
  T_OVERLAY_SHARE = 2, /**< T_GetOverlayBitmap only: a record that shares the storage, which stays the overlay's */
};

/** Flags of T_OverlayAttributes. */
enum {
  T_OVERLAY_VISIBLE = 1 /**< to be shown */
};

/** Which attributes T_SetOverlayAttributes changes. */
enum {
  T_OVERLAY_POSITION = 1, /**< Left and Top */
  T_OVERLAY_COLOR = 2,    /**< Color */
  T_OVERLAY_FLAGS = 4,    /**< Flags */
  T_OVERLAY_BIT = 8       /**< Bit */
};

typedef struct T_OverlayAttributes {
  uint32_t StructSize; /**< sizeof(T_OverlayAttributes) */
  int32_t Left;        /**< column and row of the bitmap at which the overlay's first pixel lies */
  int32_t Top;
  uint32_t Color; /**< colour value in which the overlay's ones are shown */
  uint32_t Flags; /**< T_OVERLAY_VISIBLE */
  int32_t Bit;    /**< bit of the bitmap's pixels that the overlay belongs to, 0 the lowest, at most 31 */
} T_OverlayAttributes;

/** @param count gets the number of places, those not in use between others included
 *  @return SUCCESS */
T_API int32_t T_GetOverlayCount(const BitmapHandle* bitmap, uint32_t* count) T_NOTHROW;

/** Gives a place a bitmap. The attributes of an overlay in use stay; a new one begins at column and row 0, visible,
 *  black, with bit 0.
 *  @param index any place, or the count to append one (65,536 at most)
 *  @param overlay the new bitmap, of any format; null empties the place, and takes places not in use off the list's end
 *  @param mode T_OVERLAY_COPY, or T_OVERLAY_MOVE: the caller's record is then left empty
 *  @return SUCCESS; ERR_OVERLAY_NO_BITMAP (overlay without storage); ERR_INVALID_PARAMETER (mode; the bitmap moved onto
 *          itself); ERR_NO_MEMORY; what T_CopyBitmap gives. */
T_API int32_t T_SetOverlayBitmap(BitmapHandle* bitmap, int32_t index, BitmapHandle* overlay, uint32_t mode) T_NOTHROW;

/** Gets a place's bitmap.
 *  @param overlay overwritten by the bitmap's record; what it held is not freed
 *  @param mode T_OVERLAY_COPY; T_OVERLAY_MOVE (the place stays in use, without a bitmap); T_OVERLAY_SHARE
 *  @return SUCCESS; ERR_OVERLAY_NO_BITMAP; ERR_INVALID_PARAMETER (mode); what T_CopyBitmap gives. */
T_API int32_t T_GetOverlayBitmap(BitmapHandle* bitmap, int32_t index, BitmapHandle* overlay, uint32_t structSize,
                                 uint32_t mode) T_NOTHROW;

/** Changes attributes. A place not in use, or the count, is put into use, without a bitmap.
 *  @param which T_OVERLAY_POSITION and so on, combined
 *  @return SUCCESS; ERR_INVALID_PARAMETER (which; a bit outside 0..31); ERR_NO_MEMORY. */
T_API int32_t T_SetOverlayAttributes(BitmapHandle* bitmap, int32_t index, const T_OverlayAttributes* attributes,
                                     uint32_t which) T_NOTHROW;

/** @return SUCCESS */
T_API int32_t T_GetOverlayAttributes(const BitmapHandle* bitmap, int32_t index, T_OverlayAttributes* attributes,
                                     uint32_t structSize) T_NOTHROW;

/** Directions of T_MoveOverlayBits. */
enum {
  T_OVERLAY_FROM_BITMAP = 0, /**< bits become the overlay */
  T_OVERLAY_TO_BITMAP = 1    /**< the overlay becomes bits */
};

/** Moves one bit of every pixel under the overlay, the one that its attributes name.
 *  T_OVERLAY_FROM_BITMAP: the overlay's pixels become those bits, 0 where it lies beside the bitmap. An overlay without
 *  a bitmap gets one of the bitmap's size, and position 0. T_OVERLAY_TO_BITMAP: the bits become the overlay's pixels;
 *  other bits and other pixels stay.
 *  The bitmap is one of 8, 12 or 16 bits, or of 32 with order 2; the overlay one of 1 bit.
 *  @return SUCCESS; ERR_OVERLAY_NO_BITMAP (to the bitmap); ERR_BAD_BITS_PER_PIXEL (either bitmap);
 *          ERR_INVALID_PARAMETER (a bit that the pixels do not have; direction; a damaged record); ERR_NO_MEMORY; what
 *          the storage gives. */
T_API int32_t T_MoveOverlayBits(BitmapHandle* bitmap, int32_t index, uint32_t direction) T_NOTHROW;

T_EXTERN_C_END

#endif
