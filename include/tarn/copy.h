/** @file
 *  Duplicating records and copying pixels between bitmaps of one geometry.
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

/** Copies the six playback parameters; null pointers are ignored. */
T_API void T_CopyPlaybackParms(BitmapHandle* destination, const BitmapHandle* source) T_NOTHROW;

T_EXTERN_C_END

#endif
