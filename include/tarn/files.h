/** @file
 *  The file layer: the system's files, and the five redirectable operations that go to them, to a caller's callbacks,
 *  through a stacked filter or to a block of memory. The redirection table is per thread.
 *
 *  Open flags: low two bits 0 read, 1 write, 2 or 3 both; T_OPEN_CREATE always makes a new file; T_OPEN_TRUNCATE
 *  empties an existing one. Mode: sharing, T_SHARE_WRITE | T_SHARE_READ both, T_SHARE_READ alone reading; anything
 *  else none (on Linux advisory: modes are sharing, not permissions, and files are created 0666 less umask).
 *  Seek origins: 0 start, 1 current position, 2 end.
 */
#ifndef TARN_FILES_H
#define TARN_FILES_H

#include "types.h"

T_EXTERN_C_BEGIN

enum {
  T_OPEN_READ = 0,        /**< reading only */
  T_OPEN_WRITE = 1,       /**< writing only */
  T_OPEN_READ_WRITE = 2,  /**< both */
  T_OPEN_CREATE = 0x100,  /**< made when it is not there */
  T_OPEN_TRUNCATE = 0x200 /**< emptied */
};
enum {
  T_SHARE_WRITE = 128, /**< others may write */
  T_SHARE_READ = 256   /**< others may read */
};
enum {
  T_SEEK_START = 0,   /**< from the start */
  T_SEEK_CURRENT = 1, /**< from the current position */
  T_SEEK_END = 2      /**< from the end */
};

/* ---- Redirection ----------------------------------------------------------------------------------------------- */

/** Callbacks; -1 means failure. */
typedef T_FileHandle (*T_OpenCallback)(const wchar_t* name, int32_t flags, int32_t mode, void* userData);
typedef int64_t (*T_ReadCallback)(T_FileHandle file, void* buffer, uint32_t bytes, void* userData);
typedef int64_t (*T_WriteCallback)(T_FileHandle file, const void* buffer, uint32_t bytes, void* userData);
typedef int64_t (*T_SeekCallback)(T_FileHandle file, int64_t offset, int32_t origin, void* userData);
typedef int32_t (*T_CloseCallback)(T_FileHandle file, void* userData);

/** Installs callbacks for the calling thread; a null one installs the system's function. userData goes to all five. */
T_API void T_RedirectIO(T_OpenCallback open, T_ReadCallback read, T_WriteCallback write, T_SeekCallback seek,
                        T_CloseCallback close, void* userData) T_NOTHROW;

/** T_RedirectIO with an open callback that takes a narrow name (text.h). A name that cannot be made narrow fails
 * without a call. Each thread remembers one such callback, that of the last T_RedirectIOA. */
typedef T_FileHandle (*T_OpenCallbackA)(const char* name, int32_t flags, int32_t mode, void* userData);
/** T_RedirectIO with an open callback that takes a narrow name. */
T_API void T_RedirectIOA(T_OpenCallbackA open, T_ReadCallback read, T_WriteCallback write, T_SeekCallback seek,
                         T_CloseCallback close, void* userData) T_NOTHROW;

/** Exchanges callbacks and user data with the thread's table. Each given callback pointer receives the table's
 *  callback; a pointed-to null leaves the table's in place. Each given user-data pointer is exchanged. */
T_API void T_FilterIO(T_OpenCallback* open, T_ReadCallback* read, T_WriteCallback* write, T_SeekCallback* seek,
                      T_CloseCallback* close, void** openData, void** readData, void** writeData, void** seekData,
                      void** closeData) T_NOTHROW;

/** Reads the five user-data values; each pointer may be null. @return the last value written, else null. */
T_API void* T_GetFilterIOData(void** openData, void** readData, void** writeData, void** seekData,
                              void** closeData) T_NOTHROW;

/** @return a file, or -1 */
T_API T_FileHandle T_RedirectedOpen(const wchar_t* name, int32_t flags, int32_t mode) T_NOTHROW;
/** With a narrow name (text.h). @return a file, or -1 */
T_API T_FileHandle T_RedirectedOpenA(const char* name, int32_t flags, int32_t mode) T_NOTHROW;
/** @return bytes moved, or -1 */
T_API int64_t T_RedirectedRead(T_FileHandle file, void* buffer, uint32_t bytes) T_NOTHROW;
/** @return bytes moved, or -1 */
T_API int64_t T_RedirectedWrite(T_FileHandle file, const void* buffer, uint32_t bytes) T_NOTHROW;
/** @return the new position as the callback gives it */
T_API int64_t T_RedirectedSeek(T_FileHandle file, int64_t offset, int32_t origin) T_NOTHROW;
/** @return 0 or -1 */
T_API int32_t T_RedirectedClose(T_FileHandle file) T_NOTHROW;
/** Move any count in chunks of at most 0x7FFFFFF bytes. A short chunk goes on with the rest; a second empty chunk in a
 *  row ends the transfer with the bytes moved so far. @return bytes moved, or -1 as soon as a chunk fails. */
T_API int64_t T_RedirectedReadBig(T_FileHandle file, void* buffer, uint64_t bytes) T_NOTHROW;
/** The other way. @return bytes moved, or -1 as soon as a chunk fails */
T_API int64_t T_RedirectedWriteBig(T_FileHandle file, const void* buffer, uint64_t bytes) T_NOTHROW;

/* ---- A block of memory as a file ------------------------------------------------------------------------------- */

/** Flags of T_StartRedirectToBuffer. */
enum {
  T_BUFFER_GROW = 1,     /**< the library may grow the buffer; it came from T_GlobalAlloc or is null */
  T_BUFFER_SHRINK = 2,   /**< with T_BUFFER_GROW: shrink it to its length when the file is closed */
  T_BUFFER_CONTENTS = 4, /**< the buffer holds `size` bytes of data */
  T_BUFFER_WRITE = 8     /**< writing is allowed */
};

/** The file handle of a memory file. */
enum {
  T_BUFFER_FILE = 5 /**< not a file of the system's */
};

typedef struct T_BufferRedirect T_BufferRedirect;

/** Points the calling thread's file layer at a block of memory until T_StopRedirectToBuffer. Redirections nest and
 *  stop in reverse order. Seeks are not bounded; a read beyond the length or a write beyond the block fails. Bytes that
 *  a seek skipped keep what the block held.
 *  @param buffer the block, or null
 *  @param size bytes of the block; ignored without one
 *  @param file receives T_BUFFER_FILE; may be null
 *  @return SUCCESS; ERR_INVALID_PARAMETER (null redirect); ERR_NO_MEMORY. */
T_API int32_t T_StartRedirectToBuffer(T_BufferRedirect** redirect, T_FileHandle* file, uint32_t flags, void* buffer,
                                      uint64_t size) T_NOTHROW;

/** Restores the previous table and reports the final buffer (now the caller's) and length; either may be null.
 *  @return SUCCESS; ERR_INVALID_PARAMETER (null redirect). */
T_API int32_t T_StopRedirectToBuffer(T_BufferRedirect* redirect, void** buffer, uint64_t* length) T_NOTHROW;

/* ---- The system's files ---------------------------------------------------------------------------------------- */

/** @param userData ignored, here and below: these functions are the default callbacks. @return a file, or -1 */
T_API T_FileHandle T_OsOpen(const wchar_t* name, int32_t flags, int32_t mode, void* userData) T_NOTHROW;
/** With a narrow name (text.h). @return a file, or -1 */
T_API T_FileHandle T_OsOpenA(const char* name, int32_t flags, int32_t mode, void* userData) T_NOTHROW;

/** Attributes of T_OsCreat. Delete-on-close unlinks at close on Linux; hidden and system mean nothing there. */
enum {
  T_ATTRIBUTE_READ_ONLY = 1,      /**< reading only */
  T_ATTRIBUTE_HIDDEN = 2,         /**< not listed by Windows */
  T_ATTRIBUTE_SYSTEM = 4,         /**< marked as the system's on Windows */
  T_ATTRIBUTE_DELETE_ON_CLOSE = 8 /**< gone when it is closed */
};

/** Creates or empties a file, shared for reading and writing; opened for reading only with T_ATTRIBUTE_READ_ONLY.
 *  @return a file, or -1 */
T_API T_FileHandle T_OsCreat(const wchar_t* name, int32_t attributes) T_NOTHROW;
/** With a narrow name (text.h). @return a file, or -1 */
T_API T_FileHandle T_OsCreatA(const char* name, int32_t attributes) T_NOTHROW;

/** @return bytes read (0 at the end), or -1 */
T_API int64_t T_OsRead(T_FileHandle file, void* buffer, uint32_t bytes, void* userData) T_NOTHROW;
/** A count of 0 cuts the file at the current position and returns 0. @return bytes written, or -1 */
T_API int64_t T_OsWrite(T_FileHandle file, const void* buffer, uint32_t bytes, void* userData) T_NOTHROW;
/** Like T_RedirectedReadBig and T_RedirectedWriteBig on the system's files; a count of 0 moves nothing. */
T_API int64_t T_OsReadBig(T_FileHandle file, void* buffer, uint64_t bytes, void* userData) T_NOTHROW;
/** The other way. @return bytes written, or -1 */
T_API int64_t T_OsWriteBig(T_FileHandle file, const void* buffer, uint64_t bytes, void* userData) T_NOTHROW;
/** @param origin 0 start, 1 current, anything else end. @return the new position; 0 also on failure. */
T_API int64_t T_OsSeek(T_FileHandle file, int64_t offset, int32_t origin, void* userData) T_NOTHROW;
/** The same; large offsets need no other function here. @return the new position; 0 also on failure. */
T_API int64_t T_OsSeekBig(T_FileHandle file, int64_t offset, int32_t origin, void* userData) T_NOTHROW;
/** @return 0 or -1 */
T_API int32_t T_OsClose(T_FileHandle file, void* userData) T_NOTHROW;
/** @return 0 or -1 */
T_API int32_t T_OsDelete(const wchar_t* name) T_NOTHROW;
/** With a narrow name (text.h). @return 0 or -1 */
T_API int32_t T_OsDeleteA(const char* name) T_NOTHROW;
/** Cuts or lengthens a file. @return 0 or -1 */
T_API int32_t T_OsSetFileSize(T_FileHandle file, int64_t bytes) T_NOTHROW;

/** @return ERR_DISK_FULL when the system's last error is a full disk (ENOSPC, EDQUOT; Windows 39, 112), else status */
T_API int32_t T_OsGetLastError(int32_t status) T_NOTHROW;

/** Creates a new, empty temporary file that nobody else had, and gives its name.
 *  @param directory where; null for the thread's temporary directory
 *  @param name receives the path
 *  @param length room of name in wide characters, terminator included
 *  @return SUCCESS; ERR_INVALID_PARAMETER (null name, or too little room; no file is left); ERR_DISK_FULL;
 *          ERR_FILE_WRITE when the file cannot be created. */
T_API int32_t T_OsGetTempName(const wchar_t* directory, wchar_t* name, uint32_t length) T_NOTHROW;
/** With narrow text; length counts bytes. ERR_NO_MEMORY comes on top; no file is left by a failure. */
T_API int32_t T_OsGetTempNameA(const char* directory, char* name, uint32_t length) T_NOTHROW;

T_EXTERN_C_END

#endif
