/** @file
 *  Combining two bitmaps: a rectangle of one with a rectangle of the other, and a rectangle of one mapped onto any
 *  convex quadrilateral of the other.
 *
 *  Rows are storage rows, whatever the view perspectives; every depth, order and storage kind goes with every other.
 *  What lies outside of the destination, or comes from outside of the source, changes nothing. A region of either
 *  bitmap does not matter: regions are opaque to the library, and no hook is asked. Both may be the same bitmap, or
 *  share memory: the source then counts as it was before the call.
 *
 *  The status callback is told 0 and then the percentage of rows done, 100 after the last. A call that fails or is
 *  stopped leaves the destination as it was: where its rows lie in memory, bytes that change are kept meanwhile if a
 *  callback is set or the source lies elsewhere; otherwise the result is made in storage of the same kind made anew.
 *  Compressed rows stay compressed as long as that saves memory.
 *
 *  A pixel that is copied from one format to another follows the rules of tarn/convert.h, and also these:
 *   - an 8-bit destination with the gray palette (T_IsGrayScaleBitmap gives 1) counts as gray and takes 8-bit levels;
 *     any other of 1 to 8 bits takes the nearest entry of its palette (T_FindPaletteIndex)
 *   - a lookup table in use of a 12- or 16-bit gray source decodes its samples; one of the destination is not looked at
 *   - levels of 12 to 32 bits enter a destination's LowBit..HighBit with their top bits, and the bits outside are 0
 *   - alpha of a 32- or 64-bit destination is opaque where the source has none
 *  Nothing is converted between bitmaps of the same format: of one depth, order, palette (as far as its colours go),
 *  and for gray of more than 8 bits of the same significant bits, with equal lookup tables in use or none.
 */
#ifndef TARN_COMBINE_H
#define TARN_COMBINE_H

#include "flip.h"
#include "types.h"

T_EXTERN_C_BEGIN

/** What T_CombineBitmapKrn does with a destination pixel d and the source's pixel s that meets it; one of them.
 *
 *  The first four work on stored bits of the destination's format, alpha included: where formats differ, s has been
 *  converted; of palette bitmaps they are bits of indices.
 *
 *  The others work on samples of 0..M, each colour channel by itself. Gray levels are one sample; M is 255 at 8 bits,
 *  otherwise all ones in the significant bits. A palette destination that does not count as gray works on 8-bit colours
 *  and takes the nearest entry for the result. Channels of 5 bits work as 8-bit ones and are cut again; those of order
 *  5 work as they are stored. Alpha, and bit 15 of 5-5-5 pixels, stays the destination's, except for T_COMBINE_ALPHA.
 */
enum {
  T_COMBINE_COPY = 0,     /**< s */
  T_COMBINE_AND = 1,      /**< d & s */
  T_COMBINE_OR = 2,       /**< d | s */
  T_COMBINE_XOR = 3,      /**< d ^ s */
  T_COMBINE_ADD = 4,      /**< d + s, at most M */
  T_COMBINE_SUBTRACT = 5, /**< d - s, at least 0 */
  T_COMBINE_AVERAGE = 6,  /**< (d + s + 1) / 2, truncated */
  T_COMBINE_MINIMUM = 7,  /**< min(d, s) */
  T_COMBINE_MAXIMUM = 8,  /**< max(d, s) */
  T_COMBINE_MULTIPLY = 9, /**< d * s / M, rounded */
  /** (s * a + d * (A - a)) / A, rounded, with the source's alpha a of 0..A; 32- and 64-bit sources have alpha (as it
   *  stands, not multiplied into the colours), any other is opaque. Samples of 8 bits take 8 bits of alpha, deeper ones
   *  16 (8 bits * 257). The destination counts as opaque; alpha of its own is mixed as a sample with s = M. */
  T_COMBINE_ALPHA = 10,
  T_COMBINE_OPERATION = 0xFF, /**< mask of the above */

  /** Any of these is added. What is inverted are all bits of a pixel for the first four, else samples, M - v, without
   *  alpha. */
  T_COMBINE_INVERT_SOURCE = 0x100,      /**< s before the operation */
  T_COMBINE_INVERT_DESTINATION = 0x200, /**< d before the operation */
  T_COMBINE_INVERT_RESULT = 0x400       /**< what is stored */
};

/** Combines a rectangle of the source with the one of the same size at a place of the destination.
 *  @param left, top  the rectangle's first column and row in the destination; may be negative or beyond it
 *  @param sourceLeft, sourceTop  the same in the source
 *  @param width, height  of the rectangle, 0 or more pixels; what reaches beyond either bitmap is left out. With
 * nothing left the result is SUCCESS and no callback is told
 *  @param flags T_COMBINE_..., one operation and any inversions
 *  @return SUCCESS; ERR_NO_BITMAP (either null or unallocated); ERR_BAD_STRUCT_SIZE; ERR_INVALID_PARAMETER (flags,
 *          a negative size, dimensions that do not fit together); ERR_SIGNED_DATA (signed samples, unless both are
 *          signed, of the same format, and the operation is one of the first four); ERR_INVALID_PARAMETER (an order
 *          that its depth cannot have), ERR_BAD_LUT_LENGTH; ERR_NO_MEMORY; the callback's result; and where rows are
 *          not in memory what T_DupBitmapNewDim and the row functions give. After any failure the destination is as it
 *          was. */
T_API int32_t T_CombineBitmapKrn(BitmapHandle* destination, int32_t left, int32_t top, BitmapHandle* source,
                                 int32_t sourceLeft, int32_t sourceTop, int32_t width, int32_t height,
                                 uint32_t flags) T_NOTHROW;

/** A place in a bitmap in 1/256 of a pixel: pixel (c, r) reaches from (256 c, 256 r) to (256 c + 256, 256 r + 256). */
typedef struct T_WarpPoint {
  int32_t x;
  int32_t y;
} T_WarpPoint;

/** Coordinates of T_WarpPoint are -T_WARP_LIMIT..T_WARP_LIMIT, two million pixels to either side. */
#define T_WARP_LIMIT INT32_C(0x20000000)

/** How T_CombineBitmapWarp samples. */
enum {
  T_WARP_NEAREST = 0, /**< the source pixel that holds the place */
  /** Between the centres of four pixels in steps of 1/256; beyond the outer centres the pixels at the edge go on.
   *  Palette sources that do not count as gray (as above) are mixed as 8-bit colours, 5-5-5 ones as well; others
   *  sample by sample, alpha included, samples of a lookup table before they are decoded. */
  T_WARP_BILINEAR = 1
};

/** Maps a rectangle of the source onto a quadrilateral of the destination, as a flat sheet is seen in perspective. A
 *  pixel changes when its centre lies inside; of two quadrilaterals that share an edge exactly one has a centre on it
 *  (on the left or upper edge a centre is inside, on the right or lower one it is not).
 *
 *  With corners p0..p3 the centre (x, y) comes from u, v of 0..1 with (x, y) = (1 - v)(1 - u) p0 + ... for a
 *  parallelogram, in general by the projective mapping that takes the unit square to p0..p3. It is computed in IEEE
 *  double precision in a fixed order and rounded to 1/256 of a source pixel, so that all systems give the same bytes.
 *  @param points four places in the destination, inside or not: where the rectangle's upper left, upper right, lower
 *         right and lower left corner go. Either sense of rotation will do (the other one mirrors), but the
 *         quadrilateral must be convex, without three corners in one line
 *  @param area of the source, right and bottom exclusive, not empty, inside, no side above 2^21 pixels; null: all of it
 *  @param flags T_WARP_...
 *  @return SUCCESS (also when nothing of the quadrilateral is inside, and no callback is told); ERR_NO_BITMAP (either
 *          null or unallocated); ERR_BAD_STRUCT_SIZE; ERR_INVALID_PARAMETER (null points, flags, dimensions that do not
 *          fit together, area, coordinates beyond the limit, a quadrilateral that is not strictly convex);
 *          ERR_SIGNED_DATA (signed samples, unless both are signed, of the same format, and the nearest are taken); and
 *          the rest as T_CombineBitmapKrn. After any failure the destination is as it was. */
T_API int32_t T_CombineBitmapWarp(BitmapHandle* destination, const T_WarpPoint* points, BitmapHandle* source,
                                  const T_Rect* area, uint32_t flags) T_NOTHROW;

T_EXTERN_C_END

#endif
