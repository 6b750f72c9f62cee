/** @file
 *  Huge memory: scratch blocks of up to 4 GiB reached piece by piece. The block is plain memory when the heap has it,
 *  else a section (page-file or temporary file behind it) of which one view is mapped at a time.
 */
#ifndef TARN_HUGE_H
#define TARN_HUGE_H

#include "types.h"

T_EXTERN_C_BEGIN

typedef struct T_HugeMemory {
  uint32_t Mapped;       /**< 0 plain memory, 1 a section reached through a view */
  void* Address;         /**< the block, or the current view; null when none */
  uint64_t Section;      /**< the section of a mapped block */
  uint32_t Size;         /**< bytes */
  uint32_t ViewStart;    /**< offset of the view, a multiple of Granularity */
  uint32_t ViewLength;   /**< bytes of the view */
  uint32_t Granularity;  /**< allocation granularity of the system, at least 1 */
  T_FileHandle SwapFile; /**< temporary file behind the section, -1 when none */
} T_HugeMemory;

/** @param size bytes; 0 gives a plain, empty block
 *  @return the block (contents undefined), or null. Free with T_FreeHugeMemory. */
T_API T_HugeMemory* T_AllocHugeMemory(uint32_t size) T_NOTHROW;

/** Gives the address of `length` bytes at `offset`, valid until the next call on this block. A plain block is not
 *  bounds-checked. @return SUCCESS; ERR_NULL_POINTER (null block); ERR_INVALID_PARAMETER (null address; mapped block: a
 *  range beyond Size, the view stays); ERR_NO_MEMORY (no view; the previous one is gone too). */
T_API int32_t T_AccessHugeMemory(T_HugeMemory* block, void** address, uint32_t offset, uint32_t length) T_NOTHROW;

/** Clears a range of a mapped block; of a range beyond Size the part inside is cleared before ERR_INVALID_PARAMETER.
 *  Deliberate: a plain block has its first `length` bytes set to the low byte of `offset`, so offset 0 clears them.
 *  @return SUCCESS; as T_AccessHugeMemory. */
T_API int32_t T_ZeroHugeMemory(T_HugeMemory* block, uint32_t offset, uint32_t length) T_NOTHROW;

/** Null is ignored. */
T_API void T_FreeHugeMemory(T_HugeMemory* block) T_NOTHROW;

T_EXTERN_C_END

#endif
