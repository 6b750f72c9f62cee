/** @file
 *  Dithering: lines of pixels of any format to palette indices of 1 to 8 bits.
 *
 *  A run is started on a record that describes the source pixels (width, bits, order, palette or lookup table; it needs
 *  no storage), is fed its lines from top to bottom, and is stopped. The record's DitheringMethod says how:
 *
 *    0 DITHER_NONE                nearest colour
 *    1 DITHER_FLOYD_STEINBERG     error diffusion, sixteenths            (Floyd and Steinberg 1976)
 *    2 DITHER_STUCKI              two lines below, forty-seconds         (Stucki 1981)
 *    3 DITHER_BURKES              one line below, thirty-seconds         (Burkes 1988)
 *    4 DITHER_SIERRA              two lines below, thirty-seconds        (Sierra 1989)
 *    5 DITHER_STEVENSON_ARCE      three lines below, two-hundredths      (Stevenson and Arce 1985)
 *    6 DITHER_JARVIS              two lines below, forty-eighths         (Jarvis, Judice and Ninke 1976)
 *    7 DITHER_ORDERED             dispersed 8 x 8 thresholds             (Bayer 1973)
 *    8 DITHER_CLUSTERED           clustered 8 x 8 thresholds
 *
 *  Diffusion goes from left to right in every line; the weighted errors that reach a pixel are summed undivided,
 * divided once, truncated toward zero, added, and the sum is clamped to 0..255 in each channel.
 *
 *  Colours are mapped by the target palette. Where it is a fixed table (T_GetFixedPalette of the count's size; a null
 *  palette means it) or the web palette with 129 to 216 colours, an index is made of the top bits of the channels. Any
 *  other palette is searched by the top five bits of each channel, with the other bits 0, once for each such key and
 *  run; entries with bit 0 or 1 of the reserved byte set are not used, unless all are. Answers are kept in a match
 * table: 32768 numbers, 0 or position + 1, keyed by red >> 3 << 10 | green >> 3 << 5 | blue >> 3.
 */
#ifndef TARN_DITHER_H
#define TARN_DITHER_H

#include "types.h"

T_EXTERN_C_BEGIN

enum {
  DITHER_NONE = 0,            /**< the nearest colour */
  DITHER_FLOYD_STEINBERG = 1, /**< error diffusion, one line below */
  DITHER_STUCKI = 2,          /**< error diffusion, two lines below */
  DITHER_BURKES = 3,          /**< error diffusion, one line below */
  DITHER_SIERRA = 4,          /**< error diffusion, two lines below */
  DITHER_STEVENSON_ARCE = 5,  /**< error diffusion, three lines below */
  DITHER_JARVIS = 6,          /**< error diffusion, two lines below */
  DITHER_ORDERED = 7,         /**< dispersed thresholds */
  DITHER_CLUSTERED = 8        /**< clustered thresholds */
};

/** Entries of a match table. */
#define T_MATCH_TABLE_ENTRIES 32768

/** Starts a run with as many output bits as the count needs: T_StartDitheringExt with 1 bit up to 2 colours, 2 up to 4,
 *  and so on to 8, and no match table.
 *  @return as T_StartDitheringExt; the count is tested after the record. */
T_API int32_t T_StartDithering(BitmapHandle* bitmap, const T_PaletteEntry* palette, uint32_t count) T_NOTHROW;

/** Starts a run. A run that is active is forgotten, not stopped.
 *  @param palette count entries, or null for the fixed table; copied
 *  @param count colours, 1 to 256
 *  @param bits output bits a pixel, 1 to 8, enough for the count
 *  @param matchTable T_MATCH_TABLE_ENTRIES numbers to use and fill, or null for the run's own. It stays the caller's,
 *         must stay valid until the run is stopped and must not serve two runs at once. Numbers above the count of
 * usable entries count as not known.
 *  @return SUCCESS; ERR_INVALID_PARAMETER (null); ERR_BAD_STRUCT_SIZE; ERR_INVALID_PARAMETER (bits a pixel, width below
 *          1, count, output bits, DitheringMethod, an order that the depth cannot have); ERR_BAD_LUT_LENGTH;
 *          ERR_NO_MEMORY. A failure leaves DitherContext as it was. */
T_API int32_t T_StartDitheringExt(BitmapHandle* bitmap, const T_PaletteEntry* palette, uint32_t count, uint32_t bits,
                                  uint32_t* matchTable) T_NOTHROW;

/** One line, the next one below.
 *  @param source Width pixels in the bitmap's layout
 *  @param target Width indices, packed most significant bits first; bits behind the last one in its byte stay
 *  @return SUCCESS; ERR_INVALID_PARAMETER (null, or no run); ERR_BAD_STRUCT_SIZE; ERR_SIGNED_DATA. */
T_API int32_t T_DitherLine(BitmapHandle* bitmap, const void* source, void* target) T_NOTHROW;

/** Ends the run; a lent match table is kept.
 *  @return SUCCESS, also without a run; ERR_INVALID_PARAMETER (null). */
T_API int32_t T_StopDithering(BitmapHandle* bitmap) T_NOTHROW;

/** A full match table for a palette, for use with T_StartDitheringExt. Every key's own colour (low bits 0) is searched
 *  among all entries, whatever their reserved bytes.
 *  @return T_MATCH_TABLE_ENTRIES numbers, freed with T_FreeUserMatchTable; null for null entries, a count of 0, or no
 *          memory. */
T_API uint32_t* T_CreateUserMatchTable(const T_PaletteEntry* entries, uint32_t count) T_NOTHROW;

/** @param table null is allowed. @return SUCCESS. */
T_API int32_t T_FreeUserMatchTable(uint32_t* table) T_NOTHROW;

T_EXTERN_C_END

#endif
