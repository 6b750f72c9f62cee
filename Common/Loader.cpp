// Libraries loaded at run time.

#define T_EXPORT_METHODS  // of the classes in the next header
#include "tarn/loader.h"

#include "Common/Internal/Modules.h"
#include "Common/Internal/Text.h"
#include "tarn/memory.h"

struct T_Library {
  void* module;
};

using namespace tarn;

int32_t T_LoadLibrary(T_Library** library, const wchar_t* name) noexcept {
  if (!library) return ERR_INVALID_PARAMETER;
  *library = nullptr;
  if (!name || !*name) return ERR_INVALID_PARAMETER;
  const bool full = platform::IsFullPath(name);
  if (!full && platform::HasFolder(name)) return ERR_INVALID_PARAMETER;
  const Here here = TARN_HERE;
  auto* const made = static_cast<T_Library*>(T_LocalAllocInit(1, sizeof(T_Library), here.line, here.file));
  if (!made) return ERR_NO_MEMORY;
  made->module = full ? platform::ModuleOpen(name) : OpenModuleBeside(name);
  if (!made->module) {
    T_LocalFree(made, here.line, here.file);
    return ERR_LIBRARY_NOT_LOADED;
  }
  *library = made;
  return SUCCESS;
}

int32_t T_LoadLibraryA(T_Library** library, const char* name) noexcept {
  return T_LoadLibrary(library, WideName(name));
}

int32_t T_GetLibraryFunction(T_Library* library, const char* name, void** function) noexcept {
  if (function) *function = nullptr;
  if (!library) return ERR_LIBRARY_NOT_LOADED;
  if (!name || !function) return ERR_INVALID_PARAMETER;
  *function = platform::ModuleSymbol(library->module, name);
  return *function ? SUCCESS : ERR_INVALID_PARAMETER;
}

void T_UnloadLibrary(T_Library* library) noexcept {
  if (!library) return;
  const Here here = TARN_HERE;
  platform::ModuleClose(library->module);
  T_LocalFree(library, here.line, here.file);
}
