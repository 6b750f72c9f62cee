// Tracked kernel objects, windows and dialogs. Windows library only; GDI's objects are in WinObjectsGdi.cpp.

#include "Common/Internal/SystemObject.h"
#include "tarn/windows.h"

// ---- Kernel objects
HANDLE T_WinCreateMutexW(LPSECURITY_ATTRIBUTES security, BOOL owned, LPCWSTR name, uint32_t line,
                         const wchar_t* file) noexcept {
  return tarn::Create({line, file}, CreateMutexW, security, owned, name);
}

HANDLE T_WinCreateMutexA(LPSECURITY_ATTRIBUTES security, BOOL owned, LPCSTR name, uint32_t line,
                         const wchar_t* file) noexcept {
  return tarn::Create({line, file}, CreateMutexA, security, owned, name);
}

HANDLE T_WinCreateEventW(LPSECURITY_ATTRIBUTES security, BOOL manualReset, BOOL signalled, LPCWSTR name, uint32_t line,
                         const wchar_t* file) noexcept {
  return tarn::Create({line, file}, CreateEventW, security, manualReset, signalled, name);
}

HANDLE T_WinCreateEventA(LPSECURITY_ATTRIBUTES security, BOOL manualReset, BOOL signalled, LPCSTR name, uint32_t line,
                         const wchar_t* file) noexcept {
  return tarn::Create({line, file}, CreateEventA, security, manualReset, signalled, name);
}

HANDLE T_WinCreateThread(LPSECURITY_ATTRIBUTES security, SIZE_T stackSize, LPTHREAD_START_ROUTINE start,
                         LPVOID argument, DWORD flags, LPDWORD threadId, uint32_t line, const wchar_t* file) noexcept {
  return tarn::Create({line, file}, CreateThread, security, stackSize, start, argument, flags, threadId);
}

HANDLE T_WinCreateFileMappingW(HANDLE mappedFile, LPSECURITY_ATTRIBUTES security, DWORD protection, DWORD sizeHigh,
                               DWORD sizeLow, LPCWSTR name, uint32_t line, const wchar_t* file) noexcept {
  return tarn::Create({line, file}, CreateFileMappingW, mappedFile, security, protection, sizeHigh, sizeLow, name);
}

HANDLE T_WinCreateFileMappingA(HANDLE mappedFile, LPSECURITY_ATTRIBUTES security, DWORD protection, DWORD sizeHigh,
                               DWORD sizeLow, LPCSTR name, uint32_t line, const wchar_t* file) noexcept {
  return tarn::Create({line, file}, CreateFileMappingA, mappedFile, security, protection, sizeHigh, sizeLow, name);
}

HANDLE T_WinCreateFileW(LPCWSTR name, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security, DWORD disposition,
                        DWORD flags, HANDLE templateFile, uint32_t line, const wchar_t* file) noexcept {
  const tarn::Here here{line, file};
  if (tarn::CreationRefused(here)) return INVALID_HANDLE_VALUE;
  return tarn::Track(CreateFileW(name, access, share, security, disposition, flags, templateFile), here);
}

HANDLE T_WinCreateFileA(LPCSTR name, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security, DWORD disposition,
                        DWORD flags, HANDLE templateFile, uint32_t line, const wchar_t* file) noexcept {
  const tarn::Here here{line, file};
  if (tarn::CreationRefused(here)) return INVALID_HANDLE_VALUE;
  return tarn::Track(CreateFileA(name, access, share, security, disposition, flags, templateFile), here);
}

BOOL T_WinDuplicateHandle(HANDLE sourceProcess, HANDLE source, HANDLE targetProcess, LPHANDLE duplicate, DWORD access,
                          BOOL inherit, DWORD options, uint32_t line, const wchar_t* file) noexcept {
  const tarn::Here here{line, file};
  if (tarn::CreationRefused(here)) return FALSE;
  const BOOL done = DuplicateHandle(sourceProcess, source, targetProcess, duplicate, access, inherit, options);
  if (done && duplicate != nullptr) tarn::Track(*duplicate, here);
  return done;
}

BOOL T_WinCloseHandle(HANDLE object, uint32_t line, const wchar_t* file) noexcept {
  tarn::Untrack(object, {line, file});
  return CloseHandle(object);
}

// ---- Windows and dialogs
HWND T_WinCreateDialogParamW(HINSTANCE instance, LPCWSTR dialog, HWND parent, DLGPROC procedure, LPARAM parameter,
                             uint32_t line, const wchar_t* file) noexcept {
  return tarn::Create({line, file}, CreateDialogParamW, instance, dialog, parent, procedure, parameter);
}

HWND T_WinCreateDialogParamA(HINSTANCE instance, LPCSTR dialog, HWND parent, DLGPROC procedure, LPARAM parameter,
                             uint32_t line, const wchar_t* file) noexcept {
  return tarn::Create({line, file}, CreateDialogParamA, instance, dialog, parent, procedure, parameter);
}

HWND T_WinCreateDialogIndirectParamW(HINSTANCE instance, LPCDLGTEMPLATEW dialog, HWND parent, DLGPROC procedure,
                                     LPARAM parameter, uint32_t line, const wchar_t* file) noexcept {
  return tarn::Create({line, file}, CreateDialogIndirectParamW, instance, dialog, parent, procedure, parameter);
}

HWND T_WinCreateDialogIndirectParamA(HINSTANCE instance, LPCDLGTEMPLATEA dialog, HWND parent, DLGPROC procedure,
                                     LPARAM parameter, uint32_t line, const wchar_t* file) noexcept {
  return tarn::Create({line, file}, CreateDialogIndirectParamA, instance, dialog, parent, procedure, parameter);
}

HWND T_WinCreateWindowExW(DWORD extendedStyle, LPCWSTR className, LPCWSTR title, DWORD style, int x, int y, int width,
                          int height, HWND parent, HMENU menu, HINSTANCE instance, LPVOID parameter, uint32_t line,
                          const wchar_t* file) noexcept {
  return tarn::Create({line, file}, CreateWindowExW, extendedStyle, className, title, style, x, y, width, height,
                      parent, menu, instance, parameter);
}

HWND T_WinCreateWindowExA(DWORD extendedStyle, LPCSTR className, LPCSTR title, DWORD style, int x, int y, int width,
                          int height, HWND parent, HMENU menu, HINSTANCE instance, LPVOID parameter, uint32_t line,
                          const wchar_t* file) noexcept {
  return tarn::Create({line, file}, CreateWindowExA, extendedStyle, className, title, style, x, y, width, height,
                      parent, menu, instance, parameter);
}

BOOL T_WinDestroyWindow(HWND window, uint32_t line, const wchar_t* file) noexcept {
  tarn::Untrack(window, {line, file});
  return DestroyWindow(window);
}
