/** @file
 *  Tracked memory, movable blocks, the resource ledger, plain memory functions, thread-local slots and the file copy.
 *
 *  Every tracked call ends with the caller's line and source file (such as L".\\Common\\Alloc.cpp"), which the resource
 *  ledger records. The file text must stay valid while the object lives. count * size that overflows gives null. A
 *  null block given to a releasing function is ignored.
 */
#ifndef TARN_MEMORY_H
#define TARN_MEMORY_H

#include "types.h"

T_EXTERN_C_BEGIN

/* ---- Movable blocks by address --------------------------------------------------------------------------------- */

/** Zero-filled movable memory of count * size bytes, locked. @return its address, free with T_GlobalFree; null when
 *  there is none or the size is 0. */
T_API void* T_GlobalAlloc(uint64_t count, uint64_t size, uint32_t line, const wchar_t* file) T_NOTHROW;
/** T_GlobalAlloc, zero-filled once more by the library. */
T_API void* T_GlobalAllocInit(uint64_t count, uint64_t size, uint32_t line, const wchar_t* file) T_NOTHROW;
/** Resizes; added bytes are zero. @return the new address; null (the old block stays) when there is no memory. */
T_API void* T_GlobalRealloc(void* address, uint64_t size, uint32_t line, const wchar_t* file) T_NOTHROW;
/** Frees what T_GlobalAlloc returned (the address, not a handle). @return 1 */
T_API int32_t T_GlobalFree(void* address, uint32_t line, const wchar_t* file) T_NOTHROW;

/* ---- Heap blocks ----------------------------------------------------------------------------------------------- */

/** Heap memory, not cleared. @return null when there is none. Free with T_LocalFree. */
T_API void* T_LocalAlloc(uint64_t count, uint64_t size, uint32_t line, const wchar_t* file) T_NOTHROW;
/** Zero-filled heap memory. */
T_API void* T_LocalAllocInit(uint64_t count, uint64_t size, uint32_t line, const wchar_t* file) T_NOTHROW;
/** Resizes a heap block; a null address allocates. Size 0 leaves an empty block. @return null: the old block stays. */
T_API void* T_LocalRealloc(void* address, uint64_t size, uint32_t line, const wchar_t* file) T_NOTHROW;
/** Resizes and zero-fills the whole new block, old contents included. */
T_API void* T_LocalReallocInit(void* address, uint64_t size, uint32_t line, const wchar_t* file) T_NOTHROW;
/** @return 1 */
T_API int32_t T_LocalFree(void* address, uint32_t line, const wchar_t* file) T_NOTHROW;

/* ---- Movable blocks by handle ---------------------------------------------------------------------------------- */

/** Flags of T_OsAllocHandle and T_OsReallocHandle. Without T_BLOCK_MOVABLE the handle is the address itself. */
enum {
  T_BLOCK_MOVABLE = 2, /**< a handle to be locked */
  T_BLOCK_ZERO = 64    /**< filled with zeros */
};

/** @return a block handle, or 0. Free with T_OsFreeHandle. */
T_API uint64_t T_OsAllocHandle(uint32_t flags, uint64_t size, uint32_t line, const wchar_t* file) T_NOTHROW;
/** A movable, zero-filled block; `flags` is ignored. */
T_API uint64_t T_OsAllocHandleInit(uint32_t flags, uint64_t size, uint32_t line, const wchar_t* file) T_NOTHROW;
/** @return the handle (movable blocks keep theirs), or 0 (the old block stays). */
T_API uint64_t T_OsReallocHandle(uint64_t handle, uint64_t size, uint32_t flags, uint32_t line,
                                 const wchar_t* file) T_NOTHROW;
/** @return 0 */
T_API uint64_t T_OsFreeHandle(uint64_t handle, uint32_t line, const wchar_t* file) T_NOTHROW;
/** Locks a block (locks count). @return its address, null for an unknown handle. */
T_API void* T_OsLockHandle(uint64_t handle, uint32_t line, const wchar_t* file) T_NOTHROW;
/** Undoes one lock. */
T_API void T_OsUnlockHandle(uint64_t handle, uint32_t line, const wchar_t* file) T_NOTHROW;

/* ---- Resource ledger ------------------------------------------------------------------------------------------- */

/** Kinds of tracked objects. */
enum {
  T_KIND_GLOBAL = 1, /**< global memory */
  T_KIND_LOCAL = 2,  /**< local memory */
  T_KIND_HANDLE = 3  /**< blocks by handle */
};

/** Entry points kept for callers that announce objects of their own; they accept their arguments and do nothing. */
T_API void T_ResourceAdd(const void* object, uint32_t kind, uint32_t line, const wchar_t* file) T_NOTHROW;
/** As T_ResourceAdd. */
T_API void T_ResourceRemove(const void* object, uint32_t kind, uint32_t line, const wchar_t* file) T_NOTHROW;
/** As T_ResourceAdd. */
T_API void T_ResourceLeakDetect(uint32_t flag) T_NOTHROW;
/** As T_ResourceAdd. */
T_API void T_ResourceLeakReport(uint32_t flag) T_NOTHROW;

/* ---- Plain memory functions: memcpy, memmove, memset, memcmp, case-blind memcmp (ASCII), memchr ---------------- */

/** memcpy */
T_API void* T_MemoryCopy(void* target, const void* source, size_t bytes) T_NOTHROW;
/** memmove */
T_API void* T_MemoryMove(void* target, const void* source, size_t bytes) T_NOTHROW;
/** memset */
T_API void* T_MemorySet(void* target, int value, size_t bytes) T_NOTHROW;
/** memcmp */
T_API int T_MemoryCompare(const void* a, const void* b, size_t bytes) T_NOTHROW;
/** memcmp with ASCII capitals and small letters the same */
T_API int T_MemoryCompareI(const void* a, const void* b, size_t bytes) T_NOTHROW;
/** memchr */
T_API void* T_MemoryChr(const void* block, int value, size_t bytes) T_NOTHROW;

/* ---- Thread-local slots ---------------------------------------------------------------------------------------- */

enum {
  T_TLS_SLOTS = 1024 /**< at one time */
};

/** A slot number for a 64-bit value per thread (0 at first). Freed slots are handed out again once all 1,024 have been
 *  used; the highest comes back at once. @return 0xFFFFFFFF when none is free. */
T_API uint32_t T_TlsAlloc(void) T_NOTHROW;
/** @return 1; 0 for a slot that is not in use. */
T_API int32_t T_TlsFree(uint32_t slot) T_NOTHROW;
/** @return the calling thread's value; 0 for a slot never handed out. */
T_API uint64_t T_TlsGetValue(uint32_t slot) T_NOTHROW;
/** @return 1; 0 for a slot never handed out, or without memory for the thread's values. */
T_API int32_t T_TlsSetValue(uint32_t slot, uint64_t value) T_NOTHROW;

/* ---- File copy ------------------------------------------------------------------------------------------------- */

/** Copies a file; the destination is created and truncated, and written through the redirected file layer.
 *  A file is not copied onto itself.
 *  @return not 0 on success. 0 on failure with the system's last error set: 80 (Windows) or EEXIST when failIfExists
 *          is set and the destination is there (it is left alone), 30 or EIO for a failed read, 29 or EIO for a short
 *          write (the partial destination stays). */
T_API int32_t T_CopyFile(const wchar_t* source, const wchar_t* destination, int32_t failIfExists) T_NOTHROW;
/** With narrow names (text.h). */
T_API int32_t T_CopyFileA(const char* source, const char* destination, int32_t failIfExists) T_NOTHROW;

T_EXTERN_C_END

#endif
