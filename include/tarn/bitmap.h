/** @file
 *  Making, storing, locking, resizing and freeing bitmaps.
 *
 *  Functions on a handle test, in this order, the pointer, StructSize (212, else ERR_BAD_STRUCT_SIZE) and, where they
 *  need pixels, T_FLAG_ALLOCATED, unless a declaration states another order. One bitmap must not be changed by two
 *  threads at once; different bitmaps are independent.
 */
#ifndef TARN_BITMAP_H
#define TARN_BITMAP_H

#include "types.h"

T_EXTERN_C_BEGIN

/* ---- The record ------------------------------------------------------------------------------------------------ */

/** Fills a record; allocates nothing. Width, height and bits all 0 give an empty record.
 *  @param structSize sizeof(BitmapHandle)
 *  @param bitsPerPixel 1..8, 12, 16, 24, 32, 48 or 64
 *  @return SUCCESS; ERR_INVALID_PARAMETER (null handle); ERR_BAD_STRUCT_SIZE (structSize; record untouched);
 *          ERR_BAD_BITS_PER_PIXEL (record zeroed but for StructSize); ERR_IMAGE_TOO_LARGE (negative size, a row of
 *          more than 32 bits of length, or more than T_MAX_IMAGE_BYTES; record all zero). */
T_API int32_t T_InitBitmap(BitmapHandle* handle, uint32_t structSize, int32_t width, int32_t height,
                           int32_t bitsPerPixel) T_NOTHROW;

/** Copies a record byte for byte; the copy shares storage, palette and region with the source.
 *  @return SUCCESS, also when either pointer is null (nothing is copied); ERR_BAD_STRUCT_SIZE when structSize or the
 *          source's StructSize is not 212. */
T_API int32_t T_CopyBitmapHandle(BitmapHandle* destination, const BitmapHandle* source, uint32_t structSize) T_NOTHROW;

/* ---- Storage --------------------------------------------------------------------------------------------------- */

/** Gives a described bitmap zero-filled pixel storage and a GrayParams block. Storage that the record already has is
 *  forgotten, not freed.
 *  @param memoryType 1, 2, 4, 8, 9, 128, 256, 512, 768, 1024 or 1025 (TYPE_...). 512 is for 1-bit bitmaps and 1024
 *         for 1, 8 and 24 bits only; 768 and 1025 fall back to 256 and 1 on other depths, and the super-compressed
 *         part is dropped while the process is short of handles. Types 1, 4, 8, 9 and 256 choose one block, tiles or
 *         a temporary file by size, free memory and the thread's thresholds (T_SetMemoryThresholds).
 *  @return SUCCESS; ERR_INVALID_PARAMETER (null handle); ERR_BAD_STRUCT_SIZE; ERR_EMPTY_AREA (Size is 0);
 *          ERR_INVALID_PARAMETER (type); ERR_NO_MEMORY; ERR_FILE_WRITE (temporary file cannot be extended);
 *          ERR_LIBRARY_NOT_LOADED (super-compressed storage without its codec library, codec.h). After a failure the
 * bitmap has no storage and T_FLAG_ALLOCATED is clear. */
T_API int32_t T_AllocateBitmap(BitmapHandle* handle, uint32_t memoryType) T_NOTHROW;

/** Fills a record, gives it storage and a palette.
 *  @param bitsPerPixel as T_InitBitmap, or 0 for 8 bits with a gray palette
 *  @param order T_ORDER_..., used above 8 bits; T_ORDER_WIDE is for 24 and 48 bits
 *  @param palette 1 << bitsPerPixel entries to copy, or null for the fixed palette; ignored above 8 bits
 *  @param viewPerspective 1..8, 0 means 1
 *  @param data with TYPE_USER: the caller's pixels (T_SetBitmapDataPointer), or null; never freed by the library
 *  @param dataSize bytes of data
 *  @return SUCCESS; ERR_INVALID_PARAMETER (null handle); ERR_BAD_STRUCT_SIZE; what T_InitBitmap gives;
 *          ERR_BAD_BITS_PER_PIXEL (order 5); what T_AllocateBitmap gives; ERR_NO_MEMORY (palette; the storage is freed
 *          again); ERR_INVALID_PARAMETER for a viewPerspective above 8: the bitmap then stays allocated. */
T_API int32_t T_CreateBitmap(BitmapHandle* handle, uint32_t structSize, uint32_t memoryType, int32_t width,
                             int32_t height, int32_t bitsPerPixel, uint32_t order, const T_PaletteEntry* palette,
                             uint32_t viewPerspective, void* data, uint64_t dataSize) T_NOTHROW;

/** Frees region, palette, overlays, storage and gray parameters; geometry stays. Caller memory is not freed. A null
 *  handle or a wrong StructSize is ignored. The InMemory bit of a compressed, tiled or super-compressed bitmap stays.
 */
T_API void T_FreeBitmap(BitmapHandle* handle) T_NOTHROW;

/** Makes Data valid: locks a movable block. Does nothing for every other storage. Does not nest. */
T_API void T_AccessBitmap(BitmapHandle* handle) T_NOTHROW;

/** Unlocks a movable block; Data becomes null. */
T_API void T_ReleaseBitmap(BitmapHandle* handle) T_NOTHROW;

/** Like T_AccessBitmap, but nests. @return the Locked bit before the call, for T_UnlockBitmap; 0 for a null handle. */
T_API int32_t T_LockBitmap(BitmapHandle* handle) T_NOTHROW;

/** Undoes the T_LockBitmap that returned `previous`. */
T_API void T_UnlockBitmap(BitmapHandle* handle, int32_t previous) T_NOTHROW;

/** Adds or removes rows at the end of the storage; new rows are zero.
 *  @return SUCCESS; ERR_NO_BITMAP (null or no storage); ERR_BAD_STRUCT_SIZE; ERR_INVALID_PARAMETER (caller memory,
 *          locked, height below 1, or a DataOffset outside the movable block); ERR_IMAGE_TOO_LARGE; ERR_NO_MEMORY.
 *          After a failure the bitmap is unchanged. */
T_API int32_t T_ChangeBitmapHeight(BitmapHandle* handle, int32_t height) T_NOTHROW;

/** Sets the pixels of a caller-memory bitmap. For any other bitmap a non-null pointer needs size == Size.
 *  @return SUCCESS; ERR_INVALID_PARAMETER (null handle, or size differs); ERR_BAD_STRUCT_SIZE. */
T_API int32_t T_SetBitmapDataPointer(BitmapHandle* handle, void* data, uint64_t size) T_NOTHROW;

/** Changes the way pixels are kept: 0 ordinary storage, TYPE_COMPRESSED (1-bit only), TYPE_SUPERCOMPRESSED. Pixels,
 *  palette and all other fields are kept; the same kind already is SUCCESS.
 *  @return SUCCESS; ERR_NO_BITMAP (null or unallocated); ERR_BAD_STRUCT_SIZE; ERR_INVALID_PARAMETER (type);
 *          ERR_BAD_BITS_PER_PIXEL; an allocation or row status. After a failure the bitmap is unchanged. */
T_API int32_t T_ChangeBitmapCompression(BitmapHandle* handle, uint32_t type) T_NOTHROW;

/** Compresses what a super-compressed bitmap still holds expanded and frees that memory; Size is then what its pixels
 *  take. For a bitmap that will not be looked at for a while; the next row expands again. Any other storage stays as it
 *  is.
 *  @return SUCCESS; ERR_NO_BITMAP (null or unallocated); ERR_BAD_STRUCT_SIZE; ERR_NO_MEMORY (strips that could not be
 *          compressed stay expanded). */
T_API int32_t T_CompactBitmap(BitmapHandle* handle) T_NOTHROW;

/** Sets how much memory a super-compressed bitmap may use for strips of rows that it keeps expanded, for bitmaps made
 *  from now on by any thread. A bitmap has room for one strip at least, for 64 at most, and for no more than an eighth
 * of its strips. A strip has about 128 KiB, or eight rows if those have more, up to 1 MiB; rows may be longer. The
 * first row of a strip that is got or put expands it; a strip that was put to is compressed when another needs its
 * room.
 *  @param bytes 0: the default, 1 MiB
 *  @return what was set before */
T_API uint64_t T_SetSuperCompressedCache(uint64_t bytes) T_NOTHROW;

/** Releases the lookup table and the gray parameter block. A null handle is ignored. */
T_API void T_FreeGrayParams(BitmapHandle* handle) T_NOTHROW;

/* ---- How a bitmap is stored ------------------------------------------------------------------------------------ */

/** Reports storage: 1 memory (also caller memory), 4 tiled, 128 disk, 512 compressed, 1024 super-compressed, and the
 *  tile figures (0 for a bitmap without tiles). Every pointer but memoryType may be null.
 *  @return SUCCESS; ERR_NO_BITMAP (null or unallocated); ERR_BAD_STRUCT_SIZE; ERR_INVALID_PARAMETER (memoryType). */
T_API int32_t T_GetBitmapMemoryInfo(const BitmapHandle* handle, uint32_t* memoryType, int64_t* tileSize,
                                    uint32_t* tileCount, uint32_t* conventionalTiles, uint32_t* maxMappedTiles,
                                    uint32_t* mappedTiles) T_NOTHROW;

/** Bits of T_SetBitmapMemoryInfo's flags: which arguments are given. */
enum {
  T_INFO_MEMORY_TYPE = 1,        /**< memoryType */
  T_INFO_TILE_SIZE = 2,          /**< tileSize */
  T_INFO_TILE_COUNT = 4,         /**< tileCount */
  T_INFO_CONVENTIONAL_TILES = 8, /**< conventionalTiles */
  T_INFO_MAX_MAPPED_TILES = 16,  /**< maxMappedTiles */
  T_INFO_MAPPED_TILES = 32       /**< mappedTiles */
};

/** Moves a bitmap to another storage or adjusts its tiles; pixels and all other fields are kept. Arguments that flags
 *  do not name stay as they are; a tile figure of 0 means the calling thread's threshold.
 *  @return SUCCESS; what T_GetBitmapMemoryInfo gives; ERR_NO_MEMORY; an allocation or row status. After a failure the
 *          bitmap is unchanged. */
T_API int32_t T_SetBitmapMemoryInfo(BitmapHandle* handle, uint32_t memoryType, int64_t tileSize, uint32_t tileCount,
                                    uint32_t conventionalTiles, uint32_t maxMappedTiles, uint32_t mappedTiles,
                                    uint32_t flags) T_NOTHROW;

/** Reads the calling thread's storage thresholds; each pointer may be null. @return the last value written, else 0. */
T_API int64_t T_GetMemoryThresholds(int32_t* tiledThreshold, int64_t* maxConventionalSize, int64_t* tileSize,
                                    int32_t* conventionalTiles, int32_t* tileViews) T_NOTHROW;

/** Bits of T_SetMemoryThresholds' flags. */
enum {
  T_THRESHOLD_TILED = 1,              /**< tiledThreshold */
  T_THRESHOLD_MAX_CONVENTIONAL = 2,   /**< maxConventionalSize */
  T_THRESHOLD_TILE_SIZE = 4,          /**< tileSize */
  T_THRESHOLD_CONVENTIONAL_TILES = 8, /**< conventionalTiles */
  T_THRESHOLD_TILE_VIEWS = 16         /**< tileViews */
};

/** Sets the calling thread's storage thresholds; flags name the arguments that apply.
 *  @param tiledThreshold memory to keep free: bytes, or -p for p percent of physical and page-file memory
 *  @param maxConventionalSize largest single block: bytes (low 32 bits), or -p percent as above
 *  @param tileSize bytes a tile, 0 for 16 MiB
 *  @param conventionalTiles tiles kept in memory: a count, or -p percent of the tiles
 *  @param tileViews tiles mapped at one time: a count, or -p percent
 *  @return SUCCESS; ERR_INVALID_PARAMETER for the first value below -100 (tileSize: below 0); values before it are
 *          stored. */
T_API int32_t T_SetMemoryThresholds(int32_t tiledThreshold, int64_t maxConventionalSize, int64_t tileSize,
                                    int32_t conventionalTiles, int32_t tileViews, uint32_t flags) T_NOTHROW;

/** The memory type that operations creating bitmaps for the caller request. @return SUCCESS; ERR_INVALID_PARAMETER. */
T_API int32_t T_GetDefaultMemoryType(uint32_t* memoryType) T_NOTHROW;

/** @param memoryType TYPE_CONV or TYPE_DISK. @return SUCCESS; ERR_INVALID_PARAMETER. */
T_API int32_t T_SetDefaultMemoryType(uint32_t memoryType) T_NOTHROW;

T_EXTERN_C_END

#endif
