/** @file
 *  Rows, parts of rows, row segments and compressed one-bit rows.
 *
 *  Rows are storage rows: row r is the r-th stored line, whatever the view perspective. Bytes are moved in the
 *  bitmap's own format. The first checks of every get and put are: bitmap and buffer not null, else
 *  ERR_INVALID_PARAMETER; StructSize, else ERR_BAD_STRUCT_SIZE.
 */
#ifndef TARN_ROWS_H
#define TARN_ROWS_H

#include "types.h"

T_EXTERN_C_BEGIN

/* ---- Rows ------------------------------------------------------------------------------------------------------ */

/** Copies `bytes` bytes from the start of a row into a buffer. A count beyond the row continues with the next rows; a
 *  count beyond the last row moves what there is.
 *  @return bytes moved (compressed and tiled storage: the requested count); ERR_INVALID_PARAMETER (null, or row not
 *          below Height); ERR_BAD_STRUCT_SIZE; ERR_NO_BITMAP (no pixels in memory); ERR_NO_MEMORY (no storage at all);
 *          ERR_FILE_SEEK, ERR_FILE_READ (disk storage). Fewer bytes than asked for are a failure of the medium.
 *          Super-compressed storage: ERR_NO_MEMORY too when a strip cannot be expanded or the one that makes room for
 * it cannot be compressed, ERR_UNSUPPORTED_FORMAT when somebody damaged it. */
T_API int64_t T_GetBitmapRow(BitmapHandle* bitmap, void* buffer, uint32_t row, uint64_t bytes) T_NOTHROW;

/** Copies bytes from a buffer into a row and the rows that follow.
 *  @return bytes moved; 0 when a tile could not be written; statuses as T_GetBitmapRow with ERR_FILE_WRITE; for
 *          compressed rows ERR_NO_MEMORY when a row cannot be stored. Super-compressed storage takes all rows or none.
 */
T_API int64_t T_PutBitmapRow(BitmapHandle* bitmap, const void* buffer, uint32_t row, uint64_t bytes) T_NOTHROW;

/** T_GetBitmapRow from a column on. Below 8 bits a pixel the transfer starts at the byte that holds the column's first
 *  bit. Compressed storage rounds the column down to a multiple of 8; a column not below Width is
 *  ERR_INVALID_PARAMETER there. */
T_API int64_t T_GetBitmapRowCol(BitmapHandle* bitmap, void* buffer, uint32_t row, uint32_t column,
                                uint64_t bytes) T_NOTHROW;

/** T_PutBitmapRow from a column on. A tile that could not be written gives ERR_NO_MEMORY. */
T_API int64_t T_PutBitmapRowCol(BitmapHandle* bitmap, const void* buffer, uint32_t row, uint32_t column,
                                uint64_t bytes) T_NOTHROW;

/** Writes only the listed pixels of one row.
 *  @param buffer a whole row in the bitmap's format
 *  @param columnOffset pixels added to each position in the target row; moves whole bytes below 8 bits
 *  @param segments pairs (start, end) of pixel positions in the buffer, end exclusive
 *  @param segmentLength array entries, twice the number of segments; an odd last entry is ignored
 *  @param preserveAlpha not 0: the fourth byte (32 bits) or sample (64 bits) of each target pixel is kept
 *  @return SUCCESS; ERR_INVALID_PARAMETER (null, or row not below Height); ERR_BAD_STRUCT_SIZE; ERR_NO_BITMAP;
 *          ERR_NO_MEMORY; ERR_FILE_SEEK, ERR_FILE_READ, ERR_FILE_WRITE. */
T_API int32_t T_PutBitmapRowSegments(BitmapHandle* bitmap, const void* buffer, uint32_t row, uint32_t columnOffset,
                                     const uint32_t* segments, uint32_t segmentLength, int32_t preserveAlpha) T_NOTHROW;

/* ---- Compressed one-bit rows ----------------------------------------------------------------------------------- */
/*
 *  A record is a 32-bit word count and that many 16-bit run lengths in pixels, alternating zeros, ones, zeros, ...:
 *
 *      +--------------+--------+-------+--------+---
 *      | count (u32)  | zeros  | ones  | zeros  | ...        little-endian, 4 + 2 * count bytes, no padding
 *      +--------------+--------+-------+--------+---
 *
 *  The first run is of zeros and may be 0. A run is closed before the byte that would take it past 65535 and continues
 *  after a run of length 0. Records of several rows follow each other without alignment. Packed rows have the stride
 *  of a one-bit bitmap, ((width + 31) / 8) & ~3. A row of width w needs at most 4 + 2 * (w + 1) + 2 * (w / 65528 * 2)
 *  bytes. Null pointers are ERR_INVALID_PARAMETER in every function below.
 */

/** Compresses pixelCount pixels that begin at bit (startBit mod 8) of packedRow's first byte.
 *  @return pixelCount; ERR_INVALID_PARAMETER (a count above 2^31 - 1 too). */
T_API int32_t T_CompressRow(void* record, const uint8_t* packedRow, uint32_t startBit, uint32_t pixelCount) T_NOTHROW;

/** Compresses rowCount packed rows into consecutive records. @return SUCCESS; ERR_INVALID_PARAMETER. */
T_API int32_t T_CompressRows(void* records, const uint8_t* packedRows, uint32_t width, uint32_t rowCount) T_NOTHROW;

/** Expands pixels startPixel .. startPixel + pixelCount - 1 of a record into (pixelCount + 7) / 8 packed bytes. Pixels
 *  that the record lacks, and the rest of the last byte, are 0. @return SUCCESS; ERR_INVALID_PARAMETER. */
T_API int32_t T_ExpandRow(const void* record, uint8_t* packedRow, uint32_t startPixel, uint32_t pixelCount) T_NOTHROW;

/** Expands rowCount consecutive records of `width` pixels into packed rows. @return SUCCESS; ERR_INVALID_PARAMETER. */
T_API int32_t T_ExpandRows(const void* records, uint8_t* packedRows, uint32_t width, uint32_t rowCount) T_NOTHROW;

/** Mirrors every row of consecutive records; a row may grow by one word. Buffers must not overlap.
 *  @return SUCCESS; ERR_INVALID_PARAMETER. */
T_API int32_t T_MirrorCompressedBuffer(const void* source, void* target, uint32_t rowCount) T_NOTHROW;

/** Copies records in reverse row order; the target takes the source's size. Buffers must not overlap.
 *  @return SUCCESS; ERR_INVALID_PARAMETER. */
T_API int32_t T_FlipCompressedBuffer(const void* source, void* target, uint32_t rowCount) T_NOTHROW;

/** Reads rows of a one-bit bitmap of any storage as consecutive records. Rows beyond the last are left out.
 *  @param workLine BytesPerLine bytes, or null to have it allocated for the call
 *  @param records room for the records (see above)
 *  @return SUCCESS; ERR_INVALID_PARAMETER (null); ERR_BAD_STRUCT_SIZE; ERR_NO_MEMORY; ERR_FILE_WRITE when a row could
 *          not be read whole; a row status. */
T_API int32_t T_GetBitmapRowCompressed(BitmapHandle* bitmap, void* workLine, void* records, uint32_t firstRow,
                                       uint32_t rowCount) T_NOTHROW;

/** Reads part of one row as a record. @return pixels compressed; statuses as T_GetBitmapRowCompressed. */
T_API int32_t T_GetBitmapRowColCompressed(BitmapHandle* bitmap, void* workLine, void* record, uint32_t row,
                                          uint32_t firstColumn, uint32_t pixelCount) T_NOTHROW;

/** Writes consecutive records into rows of a one-bit bitmap of any storage. A compressed bitmap whose runs come to
 *  take more room than packed rows is turned into uncompressed storage. StructSize is not tested.
 *  @return SUCCESS; ERR_INVALID_PARAMETER (null); ERR_NO_MEMORY; ERR_FILE_WRITE; a row status. */
T_API int32_t T_PutBitmapRowCompressed(BitmapHandle* bitmap, void* workLine, const void* records, uint32_t firstRow,
                                       uint32_t rowCount) T_NOTHROW;

/** Writes a record into part of a row. @return (pixelCount + 7) / 8; statuses as T_PutBitmapRowCompressed. */
T_API int32_t T_PutBitmapRowColCompressed(BitmapHandle* bitmap, void* workLine, const void* record, uint32_t row,
                                          uint32_t firstColumn, uint32_t pixelCount) T_NOTHROW;

/** Grows the heaps of a compressed bitmap by `bytes` in all, shared equally. @return SUCCESS; 0 when a heap could not
 *  grow; ERR_INVALID_PARAMETER (null, unallocated or not compressed). */
T_API int32_t T_GrowBitmapHeap(BitmapHandle* bitmap, uint64_t bytes) T_NOTHROW;

/** Gives back unused room of a compressed bitmap's heaps. @return SUCCESS; 0 when a heap could not shrink;
 *  ERR_INVALID_PARAMETER (null, unallocated or not compressed); ERR_BAD_STRUCT_SIZE. */
T_API int32_t T_TrimBitmapHeap(BitmapHandle* bitmap) T_NOTHROW;

T_EXTERN_C_END

#endif
