/** @file
 *  Duplicating records, copying bitmaps and parts of them, trimming.
 */
#ifndef TARN_COPY_H
#define TARN_COPY_H

#include "types.h"

T_EXTERN_C_BEGIN

/** Bits of a duplication mode: what the duplicate gets as its own. Clear bits share the source's pointer. */
enum {
  DUP_STORAGE = 1, /**< storage of the source's kind, its lookup table and gray parameters */
  DUP_PALETTE = 2,
  DUP_REGION = 4, /**< through the region hooks; without hooks the duplicate has no region */
  DUP_OVERLAYS = 8
};

/** Prepares a record like `source` with new dimensions. Pixels are not copied.
 *  @return SUCCESS; ERR_NO_BITMAP (null, or source unallocated); ERR_BAD_STRUCT_SIZE; what T_InitBitmap or
 *          T_AllocateBitmap gives; ERR_BAD_LUT_LENGTH (LUTLength beyond the table); ERR_NO_MEMORY; a hook's status. A
 *          failure leaves nothing made. */
T_API int32_t T_DupBitmapNewDim(BitmapHandle* duplicate, const BitmapHandle* source, uint32_t structSize, int32_t width,
                                int32_t height, int32_t bitsPerPixel, uint32_t mode) T_NOTHROW;

/** Frees what a duplicate of this mode owns; what it shares stays the source's.
 *  @return SUCCESS; ERR_INVALID_PARAMETER (null); ERR_BAD_STRUCT_SIZE. */
T_API int32_t T_FreeDuplicateBitmap(BitmapHandle* duplicate, uint32_t mode) T_NOTHROW;

/** Copies all pixels between bitmaps of equal geometry and format, whatever their storage. Progress goes to the
 *  copy-status callback.
 *  @return SUCCESS (also for the same record twice); ERR_NO_BITMAP (null or unallocated); ERR_BAD_STRUCT_SIZE;
 *          ERR_INVALID_PARAMETER (BytesPerLine differs); ERR_NO_MEMORY; a row status; the callback's result. After a
 *          failure the rows copied so far stay in the destination. */
T_API int32_t T_CopyBitmapData(BitmapHandle* destination, BitmapHandle* source) T_NOTHROW;

/** Makes `destination` a copy of `source` with storage of the same kind, palette, region and overlays of its own.
 *  Progress goes to the copy-status callback. What the destination's record held before is forgotten, not freed.
 *  @return SUCCESS (also for the same record twice, which is left alone); ERR_INVALID_PARAMETER (null, or source
 *          unallocated); ERR_BAD_STRUCT_SIZE (structSize, or the source's); what T_DupBitmapNewDim and T_CopyBitmapData
 *          give; the callback's result. The source is unchanged by every failure; the destination is untouched by the
 *          first two and has no storage after any other. */
T_API int32_t T_CopyBitmap(BitmapHandle* destination, BitmapHandle* source, uint32_t structSize) T_NOTHROW;

/** T_CopyBitmap into storage of the caller's choice.
 *  @param memoryType as for T_AllocateBitmap; not TYPE_USER, which has nowhere to copy to (ERR_NO_BITMAP)
 *  @return as T_CopyBitmap, and what T_AllocateBitmap gives. */
T_API int32_t T_CopyBitmap2(BitmapHandle* destination, BitmapHandle* source, uint32_t memoryType,
                            uint32_t structSize) T_NOTHROW;

/** Makes `destination` a bitmap of width x height pixels like `source`, with what the source has in the rectangle.
 *  Rows are storage rows. Pixels of the rectangle that lie outside of the source are zero bits. The source's overlays
 *  are copied and moved by (-left, -top), and so is its region when hooks are set (T_RegionHooks::CopyShifted).
 * Progress over the rows inside goes to the copy-status callback.
 *  @param destination the new bitmap; null or the source itself: the source is replaced by the result. What another
 *         record held before is forgotten, not freed
 *  @param left,top first column and row, may be negative
 *  @param width,height pixels; the rectangle may reach beyond the source, or miss it: the new bitmap is then all zero,
 *         and a source that was to be replaced stays as it is
 *  @return SUCCESS; ERR_INVALID_PARAMETER (source null or unallocated); ERR_BAD_STRUCT_SIZE (structSize, or the
 *          source's); ERR_INVALID_PARAMETER (a source whose rows are shorter than its width asks for); what
 *          T_DupBitmapNewDim gives, such as ERR_EMPTY_AREA (width or height 0) and ERR_IMAGE_TOO_LARGE (negative, or
 * too large); a hook's status; ERR_NO_MEMORY; a row status; the callback's result. The source is unchanged by every
 *          failure; another destination is untouched by the first three and has no storage after any other. */
T_API int32_t T_CopyBitmapRect(BitmapHandle* destination, BitmapHandle* source, uint32_t structSize, int32_t left,
                               int32_t top, int32_t width, int32_t height) T_NOTHROW;

/** T_CopyBitmapRect into storage of the caller's choice.
 *  @param memoryType as for T_AllocateBitmap; not TYPE_USER (ERR_NO_BITMAP)
 *  @return as T_CopyBitmapRect, and what T_AllocateBitmap gives. */
T_API int32_t T_CopyBitmapRect2(BitmapHandle* destination, BitmapHandle* source, uint32_t structSize, int32_t left,
                                int32_t top, int32_t width, int32_t height, uint32_t memoryType) T_NOTHROW;

/** Cuts a bitmap down to the part of a rectangle that lies inside.
 *  @return SUCCESS; ERR_INVALID_PARAMETER (null or unallocated); ERR_BAD_STRUCT_SIZE; ERR_EMPTY_AREA (nothing of the
 *          rectangle is inside); what T_CopyBitmapRect in place gives. After a failure the bitmap is unchanged. */
T_API int32_t T_TrimBitmap(BitmapHandle* bitmap, int32_t left, int32_t top, int32_t width, int32_t height) T_NOTHROW;

/** Copies the six playback parameters; null pointers are ignored. */
T_API void T_CopyPlaybackParms(BitmapHandle* destination, const BitmapHandle* source) T_NOTHROW;

T_EXTERN_C_END

#endif
