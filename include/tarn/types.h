/** @file
 *  The bitmap record, status codes, flags and the small types that every Tarn header shares.
 *  Compiles alone as C11 and as C++20. The library is 64-bit and little-endian only.
 */
#ifndef TARN_TYPES_H
#define TARN_TYPES_H

#include <stddef.h>
#include <stdint.h>
#include <wchar.h>

#ifdef __cplusplus
#define T_EXTERN_C_BEGIN extern "C" {
#define T_EXTERN_C_END }
#define T_NOTHROW noexcept
#define T_STATIC_ASSERT(condition, text) static_assert(condition, text)
#else
#define T_EXTERN_C_BEGIN
#define T_EXTERN_C_END
#define T_NOTHROW
#define T_STATIC_ASSERT(condition, text) _Static_assert(condition, text)
#endif

#if defined(_WIN32)
#define T_API
#else
#define T_API __attribute__((visibility("default")))
#endif

/** Methods of the three classes are inline; the library exports a copy of each. */
#if defined(T_EXPORT_METHODS)
#define T_METHOD __attribute__((used, visibility("default")))
#else
#define T_METHOD
#endif

T_STATIC_ASSERT(sizeof(void*) == 8, "Tarn is a 64-bit library");

/* ---- Status codes ---------------------------------------------------------------------------------------------- */

/** Result of every operation. Success is 1 and is tested by comparing with SUCCESS, never by sign: an operation that a
 *  callback stopped returns the callback's own value, whatever its sign. */
enum {
  SUCCESS = 1,                  /**< done */
  ERR_NO_MEMORY = -1,           /**< an allocation, mapping, reallocation or storage resize failed */
  ERR_NO_BITMAP = -2,           /**< null handle, or the bitmap has no storage */
  ERR_IMAGE_TOO_LARGE = -3,     /**< BytesPerLine x Height exceeds T_MAX_IMAGE_BYTES */
  ERR_FILE_SEEK = -4,           /**< a seek in a file failed */
  ERR_FILE_WRITE = -5,          /**< a write to a file failed */
  ERR_FILE_READ = -7,           /**< a read from a file failed */
  ERR_LIBRARY_NOT_LOADED = -9,  /**< a library loaded at run time is not there */
  ERR_EMPTY_AREA = -11,         /**< the bitmap or area holds no pixels */
  ERR_INVALID_PARAMETER = -13,  /**< null or out-of-range argument */
  ERR_UNSUPPORTED_FORMAT = -16, /**< layout or compression of a device-independent bitmap is not supported */
  ERR_BAD_BITS_PER_PIXEL = -27, /**< bits per pixel not supported by the operation */
  ERR_NO_DISPATCH = -30,        /**< no display dispatch table has been set */
  ERR_DISK_FULL = -295,         /**< a file operation failed because the disk is full */
  ERR_BAD_STRUCT_SIZE = -789,   /**< a record's size field does not hold the expected size */
  ERR_NULL_POINTER = -814,      /**< a required pointer of a list, overlay, huge block or table is null */
  ERR_OVERLAY_NO_BITMAP = -815, /**< the overlay's bitmap has no storage */
  ERR_OVERLAY_INDEX = -816,     /**< overlay index out of range or not in use */
  ERR_SIGNED_DATA = -1360,      /**< the operation does not accept signed samples */
  ERR_BAD_LUT_LENGTH = -1486    /**< LUTLength of a gray bitmap does not fit its bits */
};

/** Largest pixel storage in bytes (BytesPerLine x Height). */
#define T_MAX_IMAGE_BYTES UINT64_C(0xFFFF0000)

/* ---- Bitmap flags ---------------------------------------------------------------------------------------------- */

/** Bits of BitmapHandle::Flags. An allocated bitmap has exactly one storage kind: T_FLAG_IN_MEMORY alone (one block),
 *  with T_FLAG_USER_DATA (caller memory), with one of T_FLAG_COMPRESSED, T_FLAG_TILED, T_FLAG_SUPER_COMPRESSED, or
 *  T_FLAG_ON_DISK without T_FLAG_IN_MEMORY. */
enum {
  T_FLAG_ALLOCATED = 0x0001,       /**< has storage of some kind */
  T_FLAG_IN_MEMORY = 0x0002,       /**< pixels are in memory */
  T_FLAG_ON_DISK = 0x0004,         /**< pixels are in a temporary file */
  T_FLAG_LOCKED = 0x0010,          /**< a movable block is locked: Data is valid */
  T_FLAG_COMPRESSED = 0x0100,      /**< one-bit pixels held as run lengths */
  T_FLAG_SIGNED_DATA = 0x0200,     /**< samples are signed */
  T_FLAG_USER_DATA = 0x0400,       /**< pixel memory belongs to the caller */
  T_FLAG_LUT_IN_USE = 0x0800,      /**< LUT and LUTLength of a 12- or 16-bit gray bitmap are in force */
  T_FLAG_HANDLE_DATA = 0x1000,     /**< pixels live in the movable block MemoryHandle */
  T_FLAG_TILED = 0x4000,           /**< pixels are split into tiles */
  T_FLAG_SUPER_COMPRESSED = 0x8000 /**< pixels are held by the codec library */
};

/** Colour orders, BitmapHandle::Order. */
enum {
  T_ORDER_RGB = 0,  /**< red first */
  T_ORDER_BGR = 1,  /**< blue first */
  T_ORDER_GRAY = 2, /**< gray samples */
  T_ORDER_WIDE = 5  /**< the wide-gamut space, 24 and 48 bits (convert.h) */
};

/** Memory types, the storage a caller asks for (see T_AllocateBitmap). */
enum {
  TYPE_CONV = 1,              /**< one block, tiles or disk as size and memory allow */
  TYPE_USER = 2,              /**< caller memory: nothing is allocated */
  TYPE_TILED = 4,             /**< tiles when larger than one tile */
  TYPE_NOTILED = 8,           /**< like TYPE_CONV, never tiles; may be combined with it (9) */
  TYPE_DISK = 128,            /**< a temporary file only */
  TYPE_NODISK = 256,          /**< like TYPE_CONV, never a temporary file */
  TYPE_COMPRESSED = 512,      /**< compressed one-bit rows; with TYPE_NODISK (768) other depths fall back to 256 */
  TYPE_SUPERCOMPRESSED = 1024 /**< super-compressed, 1, 8 and 24 bits; with TYPE_CONV (1025) falls back to 1 */
};

/** Default dithering method of a new thread and the largest method. */
enum {
  T_DITHER_DEFAULT = 7, /**< DITHER_ORDERED */
  T_DITHER_LAST = 8     /**< DITHER_CLUSTERED */
};

/* ---- Records --------------------------------------------------------------------------------------------------- */

/** One palette or lookup-table entry: blue, green, red, reserved. Every palette is a packed array of these. */
typedef struct T_PaletteEntry {
  uint8_t Blue;
  uint8_t Green;
  uint8_t Red;
  uint8_t Reserved; /**< copied along, never compared unless a function says so */
} T_PaletteEntry;

/** A file of the library's file layer; -1 means none. */
typedef int64_t T_FileHandle;

struct T_OverlayList;

#pragma pack(push, 4)
/** Describes one raster image. The caller owns the record; the library owns what its pointers refer to, except caller
 *  memory (T_FLAG_USER_DATA). Packed to 4 bytes, 212 bytes in all. Records may be copied by value: a copy shares
 *  storage, palette and region, and only one of the copies may be freed.
 *
 *  Rows are padded to 4 bytes: BytesPerLine = ((Width * BitsPerPixel + 31) >> 3) & ~3. Pixels of less than 8 bits are
 *  packed most significant bits first; 12-bit pixels take three bytes a pair. */
typedef struct BitmapHandle {
  uint32_t StructSize;            /**< 0: 212 */
  uint64_t MemoryHandle;          /**< 4: section, temporary file or movable block; 0 when none */
  uint8_t* Data;                  /**< 12: pixels (one block or caller memory), tile, segment or codec table */
  int32_t Width;                  /**< 20: pixels a row */
  int32_t Height;                 /**< 24: rows */
  int32_t BitsPerPixel;           /**< 28: 1..8, 12, 16, 24, 32, 48 or 64 */
  uint32_t BytesPerLine;          /**< 32 */
  uint64_t CachedRowOffset;       /**< 36: byte offset of CachedRow; owned by the row functions */
  uint32_t CachedRow;             /**< 44: row whose offset was computed last */
  uint32_t Flags;                 /**< 48: T_FLAG_... */
  uint32_t Colors;                /**< 52: palette entries; 1 << BitsPerPixel up to 8 bits, else 0 */
  T_PaletteEntry* Palette;        /**< 56: Colors entries owned by the bitmap, or null */
  uint32_t ViewPerspective;       /**< 64: 1..8, how stored rows lie in the picture */
  uint32_t Order;                 /**< 68: T_ORDER_... */
  uint64_t Size;                  /**< 72: bytes of pixel storage */
  void* DitherContext;            /**< 80: the active dithering run, null when none */
  uint32_t DitheringMethod;       /**< 88: 0..8 */
  uint64_t Region;                /**< 92: region object, 0 when none */
  int32_t XResolution;            /**< 100: dots per inch */
  int32_t YResolution;            /**< 104: dots per inch */
  int32_t PlaybackLeft;           /**< 108: position of the picture in an animation frame, pixels */
  int32_t PlaybackTop;            /**< 112 */
  uint32_t PlaybackDelay;         /**< 116: milliseconds */
  uint32_t PlaybackBackground;    /**< 120: colour value */
  uint32_t PlaybackTransparency;  /**< 124: colour value */
  uint32_t PlaybackDisposal;      /**< 128 */
  int32_t LowBit;                 /**< 132: lowest significant bit of a pixel value */
  int32_t HighBit;                /**< 136: highest significant bit; -1 at 32 bits */
  T_PaletteEntry* LUT;            /**< 140: lookup table of a 12- or 16-bit gray bitmap, or null */
  uint32_t LUTLength;             /**< 148: entries of LUT */
  uint64_t DataOffset;            /**< 152: from the mapped view to Data; added to a locked block's address */
  int32_t MinValue;               /**< 160: smallest recorded sample of a 32-bit gray bitmap */
  int32_t MaxValue;               /**< 164: largest recorded sample of a 32-bit gray bitmap */
  int32_t AltLowBit;              /**< 168: initialised like LowBit */
  int32_t AltHighBit;             /**< 172: initialised like HighBit */
  uint32_t Percentage;            /**< 176: 100 at first; used by gray-scale operations */
  uint32_t Unused180[2];          /**< 180: zero */
  void* GrayParams;               /**< 188: 256-byte parameter block, made with the storage */
  struct T_OverlayList* Overlays; /**< 196: overlay list owned by the bitmap, or null */
  uint32_t Reserved;              /**< 204: zero */
  uint32_t Closing;               /**< 208: zero */
} BitmapHandle;
#pragma pack(pop)

#define T_CHECK_OFFSET(field, offset) \
  T_STATIC_ASSERT(offsetof(BitmapHandle, field) == (offset), #field " must lie at byte " #offset)
T_CHECK_OFFSET(StructSize, 0);
T_CHECK_OFFSET(MemoryHandle, 4);
T_CHECK_OFFSET(Data, 12);
T_CHECK_OFFSET(Width, 20);
T_CHECK_OFFSET(Height, 24);
T_CHECK_OFFSET(BitsPerPixel, 28);
T_CHECK_OFFSET(BytesPerLine, 32);
T_CHECK_OFFSET(CachedRowOffset, 36);
T_CHECK_OFFSET(CachedRow, 44);
T_CHECK_OFFSET(Flags, 48);
T_CHECK_OFFSET(Colors, 52);
T_CHECK_OFFSET(Palette, 56);
T_CHECK_OFFSET(ViewPerspective, 64);
T_CHECK_OFFSET(Order, 68);
T_CHECK_OFFSET(Size, 72);
T_CHECK_OFFSET(DitherContext, 80);
T_CHECK_OFFSET(DitheringMethod, 88);
T_CHECK_OFFSET(Region, 92);
T_CHECK_OFFSET(XResolution, 100);
T_CHECK_OFFSET(YResolution, 104);
T_CHECK_OFFSET(PlaybackLeft, 108);
T_CHECK_OFFSET(PlaybackDisposal, 128);
T_CHECK_OFFSET(LowBit, 132);
T_CHECK_OFFSET(HighBit, 136);
T_CHECK_OFFSET(LUT, 140);
T_CHECK_OFFSET(LUTLength, 148);
T_CHECK_OFFSET(DataOffset, 152);
T_CHECK_OFFSET(MinValue, 160);
T_CHECK_OFFSET(AltLowBit, 168);
T_CHECK_OFFSET(AltHighBit, 172);
T_CHECK_OFFSET(Percentage, 176);
T_CHECK_OFFSET(GrayParams, 188);
T_CHECK_OFFSET(Overlays, 196);
T_CHECK_OFFSET(Reserved, 204);
T_CHECK_OFFSET(Closing, 208);
T_STATIC_ASSERT(sizeof(BitmapHandle) == 212, "the bitmap record is 212 bytes");
#undef T_CHECK_OFFSET

/* ---- Callbacks ------------------------------------------------------------------------------------------------- */

T_EXTERN_C_BEGIN

/** Progress of a long operation, percent 0..100. Any result other than SUCCESS stops the operation and becomes its
 *  result. Called on the thread that runs the operation. */
typedef int32_t (*T_StatusCallback)(int32_t percent, void* userData);

T_EXTERN_C_END

#endif
