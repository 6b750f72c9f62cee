/** @file
 *  Process-wide hooks, installed by the toolkit's other libraries. Each setter returns the previous value; null
 *  removes the hook.
 */
#ifndef TARN_HOOKS_H
#define TARN_HOOKS_H

#include "types.h"

T_EXTERN_C_BEGIN

/** Asked by T_PutPixelColor before anything changes, with the position and colour as the caller gave them, inside the
 *  bitmap or not; 0 refuses the pixel with ERR_EMPTY_AREA. A position outside is refused whatever the hook says. */
typedef int32_t (*T_PixelPositionHook)(BitmapHandle* bitmap, int32_t row, int32_t column, uint32_t color);
/** @return the previous hook */
T_API T_PixelPositionHook T_SetPixelPositionHook(T_PixelPositionHook hook) T_NOTHROW;

/** Called when an operation made a bitmap from another. */
typedef int32_t (*T_BitmapCreationHook)(BitmapHandle* created, BitmapHandle* source, int32_t first, int32_t second);
/** @return the previous hook */
T_API T_BitmapCreationHook T_SetBitmapCreationHook(T_BitmapCreationHook hook) T_NOTHROW;

/** What the library does with regions; every function may be null. Results are statuses, SUCCESS goes on. */
typedef struct T_RegionHooks {
  uint32_t StructSize; /**< sizeof(T_RegionHooks) */
  uint32_t Reserved;
  /** Makes *region a copy of source's region. */
  int32_t (*Duplicate)(uint64_t* region, const BitmapHandle* source);
  /** Frees a region. */
  void (*Delete)(uint64_t region);
  /** Scales the bitmap's region from its present to a new size. */
  int32_t (*Scale)(BitmapHandle* bitmap, int32_t newWidth, int32_t newHeight);
  /** Rotates the region with the bitmap; hundredths of a degree. */
  int32_t (*Rotate)(BitmapHandle* bitmap, int32_t angle, uint32_t flags);
  int32_t (*Flip)(BitmapHandle* bitmap);
  int32_t (*Reverse)(BitmapHandle* bitmap);
  /** Gives destination the source's region moved by (dx, dy) pixels. */
  int32_t (*CopyShifted)(BitmapHandle* destination, const BitmapHandle* source, int32_t dx, int32_t dy);
  /** Fills the region of the bitmap with a colour value. */
  int32_t (*Fill)(BitmapHandle* bitmap, uint32_t color);
} T_RegionHooks;

/** The table is kept by reference and must stay valid; one with another StructSize is refused (nothing changes and
 *  null is returned). Without a table a region is an opaque value. */
T_API const T_RegionHooks* T_SetRegionHooks(const T_RegionHooks* hooks) T_NOTHROW;

T_EXTERN_C_END

#endif
