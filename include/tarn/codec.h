/** @file
 *  Compressing rows of pixels without loss: the codec library, libtfcmp15x.so or TFCMP15X.DLL.
 *
 *  The library of its own lies beside libtarn.so or TKRN15X.DLL, which load it when the first bitmap of type
 *  TYPE_SUPERCOMPRESSED is made. Programs may use it too: link it, or load it and ask for the two names below.
 *
 *      T_CodecBuffer job = {sizeof job};
 *      job.BytesPerLine = 1536; job.Height = 40; job.BitsPerPixel = 24;
 *      fltSaveBuffer(&job);                          asks: sets DataBytes and WorkBytes
 *      job.Pixels = rows; job.Data = room for job.DataBytes; job.Work = room for job.WorkBytes;
 *      int64_t bytes = fltSaveBuffer(&job);          compresses: the first `bytes` bytes of Data are to be kept
 *
 *  Colours are taken apart into green and the differences of red and blue from it, every sample is predicted from its
 *  neighbours to the left and above, pages of one bit are read downwards, and Zstandard codes what comes of it; pixels
 *  for which that does no good are coded as they are. What comes out depends on the pixels and on the release of
 *  Zstandard, not on the processor.
 *
 *  The library allocates nothing and keeps nothing: all memory is the caller's. Calls on different records and buffers
 *  may run at the same time. It takes any data: damaged ones are a status, and nothing outside the buffers is touched.
 */
#ifndef TARN_CODEC_H
#define TARN_CODEC_H

#include "types.h"

T_EXTERN_C_BEGIN

/** Rows, what they are compressed to, and memory to work in. No two of the buffers overlap. */
typedef struct T_CodecBuffer {
  uint32_t StructSize;   /**< sizeof(T_CodecBuffer), 64 */
  uint32_t BytesPerLine; /**< from one row to the next, 1 or more; every one of these bytes comes back */
  uint32_t Height;       /**< rows, 1 or more; BytesPerLine x Height is at most T_MAX_IMAGE_BYTES */
  uint32_t BitsPerPixel; /**< 1, 8 or 24: how bytes are predicted. 24: three bytes a pixel, the second one green */
  void* Pixels;          /**< BytesPerLine x Height bytes */
  void* Data;            /**< compressed */
  uint64_t DataBytes;    /**< of Data: room for fltSaveBuffer, exactly what it returned for fltLoadBuffer */
  void* Work;            /**< any alignment, any content */
  uint64_t WorkBytes;    /**< of Work: what the call asked for, or more */
  uint64_t Reserved;     /**< 0 */
} T_CodecBuffer;
T_STATIC_ASSERT(sizeof(T_CodecBuffer) == 64, "T_CodecBuffer has 64 bytes");

/** Compresses Pixels into Data, or tells how much memory that takes.
 *
 *  With Data and Work null it only asks: DataBytes becomes the most that rows of this geometry can need, WorkBytes what
 *  the call works in; Pixels is not looked at.
 *  @return bytes written to Data, 1 or more; when asking, SUCCESS. Else ERR_INVALID_PARAMETER (null record),
 *          ERR_BAD_STRUCT_SIZE, ERR_BAD_BITS_PER_PIXEL, ERR_EMPTY_AREA (BytesPerLine or Height 0), ERR_IMAGE_TOO_LARGE,
 *          ERR_INVALID_PARAMETER (Pixels, Data or Work null), ERR_NO_MEMORY (DataBytes or WorkBytes too small). Pixels
 *          and the record stay as they are, Data and Work hold anything after a failure. */
T_API int64_t fltSaveBuffer(T_CodecBuffer* job) T_NOTHROW;

/** Expands what fltSaveBuffer made of rows of the same geometry from Data into Pixels, or, with Data and Work null,
 * sets WorkBytes to what that takes; DataBytes and Pixels are not looked at then.
 *  @return bytes written to Pixels, BytesPerLine x Height; when asking, SUCCESS. Else what fltSaveBuffer gives, in that
 *          order, ERR_NO_MEMORY standing for WorkBytes alone; and ERR_UNSUPPORTED_FORMAT for data that are damaged, cut
 *          short, too long or of another geometry. After a failure Pixels and Work hold anything. */
T_API int64_t fltLoadBuffer(T_CodecBuffer* job) T_NOTHROW;

/** The entry points as a program that loads the library finds them. */
typedef int64_t (*T_CodecFunction)(T_CodecBuffer* job);

T_EXTERN_C_END

#endif
