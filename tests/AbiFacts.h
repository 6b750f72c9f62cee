#pragma once
/* Sizes, offsets and values that compiled callers hold; evaluated once by the C and once by the C++ compiler. Once
   released, a line here never changes. */

#include "tarn/tarn.h"

struct AbiFact {
  const char* text;
  long long value;
  long long expected;
};

/* clang-format off */
#define TARN_RECORD_FACTS(FACT) \
  FACT(sizeof(BitmapHandle), 212) \
  FACT(offsetof(BitmapHandle, PlaybackTop), 112) FACT(offsetof(BitmapHandle, PlaybackDelay), 116) \
  FACT(offsetof(BitmapHandle, PlaybackBackground), 120) FACT(offsetof(BitmapHandle, PlaybackTransparency), 124) \
  FACT(offsetof(BitmapHandle, MaxValue), 164) FACT(offsetof(BitmapHandle, Unused180), 180) \
  FACT(sizeof(T_PaletteEntry), 4) \
  FACT(offsetof(T_PaletteEntry, Blue), 0) FACT(offsetof(T_PaletteEntry, Green), 1) \
  FACT(offsetof(T_PaletteEntry, Red), 2) FACT(offsetof(T_PaletteEntry, Reserved), 3) \
  FACT(sizeof(T_Version), 108) FACT(offsetof(T_Version, StructSize), 0) FACT(offsetof(T_Version, Product), 4) \
  FACT(offsetof(T_Version, MajorNumber), 68) FACT(offsetof(T_Version, MinorNumber), 72) \
  FACT(offsetof(T_Version, Date), 76) FACT(offsetof(T_Version, Time), 92) \
  FACT(sizeof(T_HugeMemory), 48) FACT(offsetof(T_HugeMemory, Mapped), 0) FACT(offsetof(T_HugeMemory, Address), 8) \
  FACT(offsetof(T_HugeMemory, Section), 16) FACT(offsetof(T_HugeMemory, Size), 24) \
  FACT(offsetof(T_HugeMemory, ViewStart), 28) FACT(offsetof(T_HugeMemory, ViewLength), 32) \
  FACT(offsetof(T_HugeMemory, Granularity), 36) FACT(offsetof(T_HugeMemory, SwapFile), 40) \
  FACT(sizeof(T_RegionHooks), 72) FACT(offsetof(T_RegionHooks, Duplicate), 8) \
  FACT(offsetof(T_RegionHooks, Delete), 16) FACT(offsetof(T_RegionHooks, Scale), 24) \
  FACT(offsetof(T_RegionHooks, Rotate), 32) FACT(offsetof(T_RegionHooks, Flip), 40) \
  FACT(offsetof(T_RegionHooks, Reverse), 48) FACT(offsetof(T_RegionHooks, CopyShifted), 56) \
  FACT(offsetof(T_RegionHooks, Fill), 64) \
  FACT(sizeof(T_FileHandle), 8) FACT((T_FileHandle)-1 < 0, 1)

#define TARN_VALUE_FACTS(FACT) \
  FACT(SUCCESS, 1) FACT(ERR_NO_MEMORY, -1) FACT(ERR_NO_BITMAP, -2) FACT(ERR_IMAGE_TOO_LARGE, -3) \
  FACT(ERR_FILE_SEEK, -4) FACT(ERR_FILE_WRITE, -5) FACT(ERR_FILE_READ, -7) FACT(ERR_LIBRARY_NOT_LOADED, -9) \
  FACT(ERR_EMPTY_AREA, -11) FACT(ERR_INVALID_PARAMETER, -13) FACT(ERR_UNSUPPORTED_FORMAT, -16) \
  FACT(ERR_BAD_BITS_PER_PIXEL, -27) FACT(ERR_NO_DISPATCH, -30) FACT(ERR_DISK_FULL, -295) \
  FACT(ERR_BAD_STRUCT_SIZE, -789) FACT(ERR_NULL_POINTER, -814) FACT(ERR_OVERLAY_NO_BITMAP, -815) \
  FACT(ERR_OVERLAY_INDEX, -816) FACT(ERR_SIGNED_DATA, -1360) FACT(ERR_BAD_LUT_LENGTH, -1486) \
  FACT(T_MAX_IMAGE_BYTES, 4294901760) \
  FACT(T_FLAG_ALLOCATED, 0x0001) FACT(T_FLAG_IN_MEMORY, 0x0002) FACT(T_FLAG_ON_DISK, 0x0004) \
  FACT(T_FLAG_LOCKED, 0x0010) FACT(T_FLAG_COMPRESSED, 0x0100) FACT(T_FLAG_SIGNED_DATA, 0x0200) \
  FACT(T_FLAG_USER_DATA, 0x0400) FACT(T_FLAG_LUT_IN_USE, 0x0800) FACT(T_FLAG_HANDLE_DATA, 0x1000) \
  FACT(T_FLAG_TILED, 0x4000) FACT(T_FLAG_SUPER_COMPRESSED, 0x8000) \
  FACT(T_ORDER_RGB, 0) FACT(T_ORDER_BGR, 1) FACT(T_ORDER_GRAY, 2) FACT(T_ORDER_WIDE, 5) \
  FACT(TYPE_CONV, 1) FACT(TYPE_USER, 2) FACT(TYPE_TILED, 4) FACT(TYPE_NOTILED, 8) FACT(TYPE_DISK, 128) \
  FACT(TYPE_NODISK, 256) FACT(TYPE_COMPRESSED, 512) FACT(TYPE_SUPERCOMPRESSED, 1024) \
  FACT(T_DITHER_DEFAULT, 7) FACT(T_DITHER_LAST, 8) \
  FACT(DUP_STORAGE, 1) FACT(DUP_PALETTE, 2) FACT(DUP_REGION, 4) FACT(DUP_OVERLAYS, 8) \
  FACT(T_INFO_MEMORY_TYPE, 1) FACT(T_INFO_TILE_SIZE, 2) FACT(T_INFO_TILE_COUNT, 4) \
  FACT(T_INFO_CONVENTIONAL_TILES, 8) FACT(T_INFO_MAX_MAPPED_TILES, 16) FACT(T_INFO_MAPPED_TILES, 32) \
  FACT(T_THRESHOLD_TILED, 1) FACT(T_THRESHOLD_MAX_CONVENTIONAL, 2) FACT(T_THRESHOLD_TILE_SIZE, 4) \
  FACT(T_THRESHOLD_CONVENTIONAL_TILES, 8) FACT(T_THRESHOLD_TILE_VIEWS, 16) \
  FACT(T_OPEN_READ, 0) FACT(T_OPEN_WRITE, 1) FACT(T_OPEN_READ_WRITE, 2) FACT(T_OPEN_CREATE, 0x100) \
  FACT(T_OPEN_TRUNCATE, 0x200) FACT(T_SHARE_WRITE, 128) FACT(T_SHARE_READ, 256) \
  FACT(T_SEEK_START, 0) FACT(T_SEEK_CURRENT, 1) FACT(T_SEEK_END, 2) \
  FACT(T_BUFFER_GROW, 1) FACT(T_BUFFER_SHRINK, 2) FACT(T_BUFFER_CONTENTS, 4) FACT(T_BUFFER_WRITE, 8) \
  FACT(T_BUFFER_FILE, 5) FACT(T_ATTRIBUTE_READ_ONLY, 1) FACT(T_ATTRIBUTE_HIDDEN, 2) FACT(T_ATTRIBUTE_SYSTEM, 4) \
  FACT(T_ATTRIBUTE_DELETE_ON_CLOSE, 8) FACT(T_BLOCK_MOVABLE, 2) FACT(T_BLOCK_ZERO, 64) \
  FACT(T_KIND_GLOBAL, 1) FACT(T_KIND_LOCAL, 2) FACT(T_KIND_HANDLE, 3) \
  FACT(T_TLS_SLOTS, 1024) FACT(T_TEMP_DIRECTORY_LENGTH, 264)
/* clang-format on */

#define TARN_ABI_FACTS(FACT) TARN_RECORD_FACTS(FACT) TARN_VALUE_FACTS(FACT)
#define TARN_ABI_FACT(expression, expected) {#expression, (long long)(expression), (expected)},

/** The functions that the C side calls, taken from a library loaded at run time. */
#define TARN_C_CALLS(CALL) \
  CALL(T_VersionInfo)      \
  CALL(T_InitBitmap)       \
  CALL(T_AllocateBitmap)   \
  CALL(T_PutBitmapRow)     \
  CALL(T_GetBitmapRow)     \
  CALL(T_FreeBitmap)

struct CCalls {
#define TARN_C_CALL(name) __typeof__(name)* name##_;
  TARN_C_CALLS(TARN_C_CALL)
#undef TARN_C_CALL
};

T_EXTERN_C_BEGIN

/** The facts as the C compiler sees them. */
const struct AbiFact* FactsInC(size_t* count);
/** Uses a bitmap from C. Null, or the step that went wrong. */
const char* UseBitmapInC(const struct CCalls* calls);

T_EXTERN_C_END
