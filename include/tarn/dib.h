/** @file
 *  Device-independent bitmaps: header, colour table and rows in one block, as Windows programs hand them around and as
 *  they stand in .bmp files behind the file header. The same on every platform.
 *
 *  A `dib` is a movable block of T_OsAllocHandle's kind (on Windows one of the system's, as the clipboard takes): lock
 *  it with T_OsLockHandle, free it with T_OsFreeHandle. It begins with a header:
 *
 *      +------------+---------------+--------------+------------------------------------------+
 *      | header     | channel masks | colour table | rows, padded to 4 bytes, the bottom first |
 *      +------------+---------------+--------------+------------------------------------------+
 *
 *  Progress over the rows goes to the thread's status callback, whose result comes back when it is not SUCCESS.
 */
#ifndef TARN_DIB_H
#define TARN_DIB_H

#include "types.h"

T_EXTERN_C_BEGIN

/** Makes a DIB of a bitmap's picture: a header of 40 bytes, no compression, upright whatever the view perspective (a
 *  picture stored by columns is turned, and its resolutions change places). Resolutions become pixels a metre.
 *
 *      bitmap                        DIB
 *      1, 4, 8 bits                  the same, with the palette; without one the fixed palette of the depth
 *      2, 3 bits                     4 bits, indices as they are, 4 or 8 colours
 *      5, 6, 7 bits                  8 bits, indices as they are
 *      12, 16, 32 bits gray          8 bits, the top eight of the significant bits (fewer: spread), a gray palette
 *      12, 16 bits gray with LUT     24 bits, the colours of the lookup table
 *      16 bits colour                16 bits, five a channel
 *      24, 48 bits                   24 bits
 *      32, 64 bits colour            32 bits, alpha in the byte behind red
 *
 *  @param dib takes the block, which the caller then owns
 *  @return SUCCESS; ERR_INVALID_PARAMETER (null); ERR_BAD_STRUCT_SIZE; ERR_NO_BITMAP (unallocated);
 *          ERR_INVALID_PARAMETER (the record's geometry, order or view perspective does not hold); ERR_SIGNED_DATA;
 *          ERR_IMAGE_TOO_LARGE; ERR_NO_MEMORY; a row status; the callback's result. The bitmap is never changed; after
 *          a failure *dib is as it was. */
T_API int32_t T_ConvertToDIB(BitmapHandle* bitmap, void** dib) T_NOTHROW;

/** T_ConvertToDIB, after which the bitmap is freed (T_FreeBitmap): its pixels live in the DIB only. After a failure the
 *  bitmap and *dib are as they were. */
T_API int32_t T_ChangeToDIB(BitmapHandle* bitmap, void** dib) T_NOTHROW;

/** Makes a bitmap of a DIB. What the record held before is forgotten, not freed. Storage is of the thread's default
 *  type (T_SetDefaultMemoryType). Rows keep the DIB's order, view perspective 4 or, where the top row comes first, 1.
 *
 *      DIB                           bitmap
 *      1, 2, 4, 8 bits               the same; colours that the table lacks are black
 *      8, 4 bits in run lengths      the same; pixels that are passed over have index 0
 *      16 bits, five a channel       16 bits, BGR; bit 15 is kept
 *      16 bits, other masks          24 bits; 32 with an alpha mask
 *      24 bits                       24 bits, BGR
 *      32 bits                       32 bits, BGR, the byte behind red is kept; with masks alpha is what the alpha mask
 *                                    tells, else 0
 *
 *  Channels of less than 8 bits are widened by repeating their bits, of wider ones the top eight are taken. Headers of
 *  12, 40, 52, 56, 108 and 124 bytes are known.
 *
 *  The function is not told how long its arguments are. It reads of `info` the header, masks and colour table that the
 *  header announces, and of `bits` height x row length bytes, of run lengths biSizeImage bytes, which must not be 0
 *  there. Whoever has a block of known length from a source that is not trusted uses T_ChangeFromDIB.
 *
 *  @param structSize sizeof(BitmapHandle)
 *  @param info the header
 *  @param bits the rows; null: they follow the colour table
 *  @return SUCCESS; ERR_INVALID_PARAMETER (null); ERR_BAD_STRUCT_SIZE (structSize); ERR_UNSUPPORTED_FORMAT (header
 * size, planes, depth, compression, an extent of 0 or less, masks that overlap or have gaps, run lengths with the top
 *          row first or without biSizeImage); what T_CreateBitmap gives; a row status; the callback's result. After a
 *          failure the record is as it was. */
T_API int32_t T_ConvertFromDIB(BitmapHandle* handle, uint32_t structSize, const void* info, const void* bits) T_NOTHROW;

/** T_ConvertFromDIB of a movable block, which is freed after a success. Nothing outside of the block is read.
 *  @param dib the block's handle
 *  @return as T_ConvertFromDIB; ERR_INVALID_PARAMETER also for what is no block, and for a block that is shorter than
 *          its header says. After a failure the record is as it was and the block is the caller's. */
T_API int32_t T_ChangeFromDIB(BitmapHandle* handle, uint32_t structSize, void* dib) T_NOTHROW;

T_EXTERN_C_END

#endif
