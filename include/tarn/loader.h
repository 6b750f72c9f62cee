/** @file
 *  Libraries loaded at run time: the toolkit's own, which lie beside this one, or any by its full path. The current
 *  folder and the system's search path are never looked at, where anybody could have put a library of that name.
 */
#ifndef TARN_LOADER_H
#define TARN_LOADER_H

#include "types.h"

T_EXTERN_C_BEGIN

typedef struct T_Library T_Library;

/** Loads a library. Each success counts: the system unloads a library with its last T_UnloadLibrary.
 *  @param library gets it; null after a failure
 *  @param name a file name without a folder, looked for beside this library, or a full path
 *  @return SUCCESS; ERR_INVALID_PARAMETER (null, empty, a relative path); ERR_NO_MEMORY; ERR_LIBRARY_NOT_LOADED (not
 *          there, damaged, for another processor, or it lacks a library of its own). */
T_API int32_t T_LoadLibrary(T_Library** library, const wchar_t* name) T_NOTHROW;
/** With a narrow name (text.h). @return the same */
T_API int32_t T_LoadLibraryA(T_Library** library, const char* name) T_NOTHROW;

/** @param function gets the address, which holds until the library is unloaded; null after a failure
 *  @return SUCCESS; ERR_LIBRARY_NOT_LOADED (null library); ERR_INVALID_PARAMETER (null, or no export of this name). */
T_API int32_t T_GetLibraryFunction(T_Library* library, const char* name, void** function) T_NOTHROW;

/** Null is ignored. */
T_API void T_UnloadLibrary(T_Library* library) T_NOTHROW;

T_EXTERN_C_END

#ifdef __cplusplus

/** A library that is unloaded with the object. */
class T_DllLoader {
 public:
  T_METHOD T_DllLoader() noexcept : library_(nullptr), status_(ERR_LIBRARY_NOT_LOADED) {}
  T_METHOD ~T_DllLoader() noexcept { T_UnloadLibrary(library_); }
  T_DllLoader(const T_DllLoader&) = delete;
  T_DllLoader& operator=(const T_DllLoader&) = delete;

  /** Unloads what was loaded before, then loads. @return what T_LoadLibrary gives */
  T_METHOD int32_t Load(const wchar_t* name) noexcept {
    T_UnloadLibrary(library_);
    return status_ = T_LoadLibrary(&library_, name);
  }
  T_METHOD int32_t LoadA(const char* name) noexcept {
    T_UnloadLibrary(library_);
    return status_ = T_LoadLibraryA(&library_, name);
  }
  /** Unloads; the status is ERR_LIBRARY_NOT_LOADED again. */
  T_METHOD void Unload() noexcept {
    T_UnloadLibrary(library_);
    library_ = nullptr;
    status_ = ERR_LIBRARY_NOT_LOADED;
  }
  /** ERR_LIBRARY_NOT_LOADED before anything was loaded, else what the last Load gave. */
  T_METHOD int32_t Status() const noexcept { return status_; }
  /** The address of an exported function; null when nothing is loaded or it has no such function. */
  T_METHOD void* Function(const char* name) const noexcept {
    void* function = nullptr;
    T_GetLibraryFunction(library_, name, &function);
    return function;
  }

 private:
  T_Library* library_;
  int32_t status_;
};

#endif

#endif
