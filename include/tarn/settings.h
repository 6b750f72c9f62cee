/** @file
 *  Per-thread defaults and callbacks, and the version record. A thread starts from the library's defaults; what it
 *  changes holds for itself only.
 */
#ifndef TARN_SETTINGS_H
#define TARN_SETTINGS_H

#include "types.h"

T_EXTERN_C_BEGIN

/** @return the method that new bitmaps get, 0..8; T_DITHER_DEFAULT in a new thread */
T_API uint32_t T_GetDefaultDithering(void) T_NOTHROW;
/** @param method 0..8. @return SUCCESS; ERR_INVALID_PARAMETER (the method stays). */
T_API int32_t T_DefaultDithering(uint32_t method) T_NOTHROW;

/** @return dots per inch across, as they were set */
T_API int32_t T_GetDefaultXResolution(void) T_NOTHROW;
/** @return dots per inch downwards, as they were set */
T_API int32_t T_GetDefaultYResolution(void) T_NOTHROW;
/** Dots per inch given to new bitmaps; any value is stored, bitmaps take 150 for values below 1. @return the previous
 *  value. */
T_API int32_t T_SetDefaultXResolution(int32_t dotsPerInch) T_NOTHROW;
/** The same downwards. */
T_API int32_t T_SetDefaultYResolution(int32_t dotsPerInch) T_NOTHROW;

/** Directory of temporary files, room for this many wide characters with the terminator. */
enum {
  T_TEMP_DIRECTORY_LENGTH = 264 /**< wide characters */
};

/** Copies the directory as far as `length` wide characters go, always terminated. @return SUCCESS;
 *  ERR_INVALID_PARAMETER (null buffer, or length 0). */
T_API int32_t T_GetTempDirectory(wchar_t* buffer, uint32_t length) T_NOTHROW;
/** @return SUCCESS; ERR_INVALID_PARAMETER (null, too long, or not an existing directory). */
T_API int32_t T_SetTempDirectory(const wchar_t* path) T_NOTHROW;

/** The same two with narrow text (text.h). The directory is cut at a whole character, always terminated. @return as
 *  above; ERR_INVALID_PARAMETER also for text that cannot be converted; ERR_NO_MEMORY. */
T_API int32_t T_GetTempDirectoryA(char* buffer, uint32_t length) T_NOTHROW;
/** @return as T_SetTempDirectory; ERR_INVALID_PARAMETER also for text that cannot be converted. */
T_API int32_t T_SetTempDirectoryA(const char* path) T_NOTHROW;

/** Sets the progress callback and hands back the previous pair; each out pointer may be null. */
T_API void T_SetStatusCallBack(T_StatusCallback callback, void* userData, T_StatusCallback* previous,
                               void** previousUserData) T_NOTHROW;
/** @param userData may be null. @return the callback, null when none. */
T_API T_StatusCallback T_GetStatusCallBack(void** userData) T_NOTHROW;
/** The same for operations that copy bitmaps. */
T_API void T_SetCopyStatusCallBack(T_StatusCallback callback, void* userData, T_StatusCallback* previous,
                                   void** previousUserData) T_NOTHROW;
/** T_GetStatusCallBack for those. @return the callback, null when none. */
T_API T_StatusCallback T_GetCopyStatusCallBack(void** userData) T_NOTHROW;

/** Font substitution of the toolkit's vector library: kept here, called there. */
typedef int32_t (*T_SubstituteFontCallback)(void* font, void* userData);
/** @return SUCCESS */
T_API int32_t T_VecSetSubstituteFontCallback(T_SubstituteFontCallback callback, void* userData) T_NOTHROW;
/** @return SUCCESS; ERR_INVALID_PARAMETER (either pointer null). */
T_API int32_t T_VecGetSubstituteFontCallback(T_SubstituteFontCallback* callback, void** userData) T_NOTHROW;

/** Match table of 32,768 entries lent to the dithering engine by the calling thread. @return the previous table. */
T_API uint32_t* T_SetUserMatchTable(uint32_t* table) T_NOTHROW;

/** Version of the library. */
typedef struct T_Version {
  uint32_t StructSize; /**< 108 */
  char Product[60];    /**< "Tarn Imaging Kernel" */
  uint32_t Reserved;
  uint32_t MajorNumber;
  uint32_t MinorNumber;
  char Date[16];
  char Time[16];
} T_Version;
T_STATIC_ASSERT(sizeof(T_Version) == 108, "the version record is 108 bytes");

/** @param structSize 108. @return SUCCESS; ERR_INVALID_PARAMETER (null); ERR_BAD_STRUCT_SIZE. */
T_API int32_t T_VersionInfo(T_Version* version, uint32_t structSize) T_NOTHROW;

T_EXTERN_C_END

#endif
