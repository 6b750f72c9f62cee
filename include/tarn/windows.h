/** @file
 *  Tracked system objects: Windows calls that make or release an object, with the caller's line and source file for the
 *  resource ledger. Includes <windows.h>, so tarn.h leaves this header to those who want it.
 *
 *  For Windows only. On every other platform the header is empty: these wrappers, the drawing context and the display
 *  dispatch exist in the Windows library alone.
 *
 *  Every function takes the arguments of the Windows function it is named after (T_WinCreateMutexW: CreateMutexW) and
 *  then the caller's line and file (such as L".\\Common\\Alloc.cpp"; the text must stay valid while the object lives).
 *  It returns what Windows returned and leaves the last error as Windows left it. A creating function enters the new
 *  object in the ledger, unless the call failed; a releasing function takes it out before it calls Windows. Objects may
 *  cross: what was made here may be released by Windows' own function and the other way round, at the price of a wrong
 *  leak report. Any thread may call, within the rules of the Windows function.
 */
#ifndef TARN_WINDOWS_H
#define TARN_WINDOWS_H

#if defined(_WIN32)

#include <windows.h>

#include "types.h"

T_EXTERN_C_BEGIN

/* ---- Kernel objects, released by T_WinCloseHandle --------------------------------------------------------------- */

/** CreateMutexW */
T_API HANDLE T_WinCreateMutexW(LPSECURITY_ATTRIBUTES security, BOOL owned, LPCWSTR name, uint32_t line,
                               const wchar_t* file) T_NOTHROW;
/** CreateMutexA */
T_API HANDLE T_WinCreateMutexA(LPSECURITY_ATTRIBUTES security, BOOL owned, LPCSTR name, uint32_t line,
                               const wchar_t* file) T_NOTHROW;
/** CreateEventW */
T_API HANDLE T_WinCreateEventW(LPSECURITY_ATTRIBUTES security, BOOL manualReset, BOOL signalled, LPCWSTR name,
                               uint32_t line, const wchar_t* file) T_NOTHROW;
/** CreateEventA */
T_API HANDLE T_WinCreateEventA(LPSECURITY_ATTRIBUTES security, BOOL manualReset, BOOL signalled, LPCSTR name,
                               uint32_t line, const wchar_t* file) T_NOTHROW;
/** CreateThread */
T_API HANDLE T_WinCreateThread(LPSECURITY_ATTRIBUTES security, SIZE_T stackSize, LPTHREAD_START_ROUTINE start,
                               LPVOID argument, DWORD flags, LPDWORD threadId, uint32_t line,
                               const wchar_t* file) T_NOTHROW;
/** CreateFileMappingW */
T_API HANDLE T_WinCreateFileMappingW(HANDLE mappedFile, LPSECURITY_ATTRIBUTES security, DWORD protection,
                                     DWORD sizeHigh, DWORD sizeLow, LPCWSTR name, uint32_t line,
                                     const wchar_t* file) T_NOTHROW;
/** CreateFileMappingA */
T_API HANDLE T_WinCreateFileMappingA(HANDLE mappedFile, LPSECURITY_ATTRIBUTES security, DWORD protection,
                                     DWORD sizeHigh, DWORD sizeLow, LPCSTR name, uint32_t line,
                                     const wchar_t* file) T_NOTHROW;
/** Like CreateFileW, INVALID_HANDLE_VALUE is the failure. */
T_API HANDLE T_WinCreateFileW(LPCWSTR name, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security,
                              DWORD disposition, DWORD flags, HANDLE templateFile, uint32_t line,
                              const wchar_t* file) T_NOTHROW;
/** CreateFileA */
T_API HANDLE T_WinCreateFileA(LPCSTR name, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security, DWORD disposition,
                              DWORD flags, HANDLE templateFile, uint32_t line, const wchar_t* file) T_NOTHROW;
/** Enters *duplicate when the call succeeds and gives one. A source closed by DUPLICATE_CLOSE_SOURCE stays entered. */
T_API BOOL T_WinDuplicateHandle(HANDLE sourceProcess, HANDLE source, HANDLE targetProcess, LPHANDLE duplicate,
                                DWORD access, BOOL inherit, DWORD options, uint32_t line,
                                const wchar_t* file) T_NOTHROW;

/** CloseHandle */
T_API BOOL T_WinCloseHandle(HANDLE object, uint32_t line, const wchar_t* file) T_NOTHROW;

/* ---- Metafiles, released by T_WinDeleteMetaFile ----------------------------------------------------------------- */

/** A recording device context, ended by T_WinCloseMetaFile. */
T_API HDC T_WinCreateMetaFileW(LPCWSTR name, uint32_t line, const wchar_t* file) T_NOTHROW;
/** CreateMetaFileA */
T_API HDC T_WinCreateMetaFileA(LPCSTR name, uint32_t line, const wchar_t* file) T_NOTHROW;
/** Ends a recording: takes the device context out of the ledger and enters the metafile. */
T_API HMETAFILE T_WinCloseMetaFile(HDC dc, uint32_t line, const wchar_t* file) T_NOTHROW;
/** GetMetaFileW */
T_API HMETAFILE T_WinGetMetaFileW(LPCWSTR name, uint32_t line, const wchar_t* file) T_NOTHROW;
/** GetMetaFileA */
T_API HMETAFILE T_WinGetMetaFileA(LPCSTR name, uint32_t line, const wchar_t* file) T_NOTHROW;
/** CopyMetaFileW */
T_API HMETAFILE T_WinCopyMetaFileW(HMETAFILE source, LPCWSTR name, uint32_t line, const wchar_t* file) T_NOTHROW;
/** CopyMetaFileA */
T_API HMETAFILE T_WinCopyMetaFileA(HMETAFILE source, LPCSTR name, uint32_t line, const wchar_t* file) T_NOTHROW;
/** SetMetaFileBitsEx */
T_API HMETAFILE T_WinSetMetaFileBitsEx(UINT bytes, const BYTE* data, uint32_t line, const wchar_t* file) T_NOTHROW;

/** DeleteMetaFile */
T_API BOOL T_WinDeleteMetaFile(HMETAFILE metafile, uint32_t line, const wchar_t* file) T_NOTHROW;

/* ---- Enhanced metafiles, released by T_WinDeleteEnhMetaFile ------------------------------------------------------ */

/** A recording device context, ended by T_WinCloseEnhMetaFile. */
T_API HDC T_WinCreateEnhMetaFileW(HDC reference, LPCWSTR name, const RECT* frame, LPCWSTR description, uint32_t line,
                                  const wchar_t* file) T_NOTHROW;
/** CreateEnhMetaFileA */
T_API HDC T_WinCreateEnhMetaFileA(HDC reference, LPCSTR name, const RECT* frame, LPCSTR description, uint32_t line,
                                  const wchar_t* file) T_NOTHROW;
/** Ends a recording: takes the device context out of the ledger and enters the metafile. */
T_API HENHMETAFILE T_WinCloseEnhMetaFile(HDC dc, uint32_t line, const wchar_t* file) T_NOTHROW;
/** GetEnhMetaFileW */
T_API HENHMETAFILE T_WinGetEnhMetaFileW(LPCWSTR name, uint32_t line, const wchar_t* file) T_NOTHROW;
/** GetEnhMetaFileA */
T_API HENHMETAFILE T_WinGetEnhMetaFileA(LPCSTR name, uint32_t line, const wchar_t* file) T_NOTHROW;
/** CopyEnhMetaFileW */
T_API HENHMETAFILE T_WinCopyEnhMetaFileW(HENHMETAFILE source, LPCWSTR name, uint32_t line,
                                         const wchar_t* file) T_NOTHROW;
/** CopyEnhMetaFileA */
T_API HENHMETAFILE T_WinCopyEnhMetaFileA(HENHMETAFILE source, LPCSTR name, uint32_t line,
                                         const wchar_t* file) T_NOTHROW;
/** SetEnhMetaFileBits */
T_API HENHMETAFILE T_WinSetEnhMetaFileBits(UINT bytes, const BYTE* data, uint32_t line, const wchar_t* file) T_NOTHROW;

/** DeleteEnhMetaFile */
T_API BOOL T_WinDeleteEnhMetaFile(HENHMETAFILE metafile, uint32_t line, const wchar_t* file) T_NOTHROW;

/* ---- Windows and dialogs, released by T_WinDestroyWindow -------------------------------------------------------- */

/** CreateDialogParamW */
T_API HWND T_WinCreateDialogParamW(HINSTANCE instance, LPCWSTR dialog, HWND parent, DLGPROC procedure, LPARAM parameter,
                                   uint32_t line, const wchar_t* file) T_NOTHROW;
/** CreateDialogParamA */
T_API HWND T_WinCreateDialogParamA(HINSTANCE instance, LPCSTR dialog, HWND parent, DLGPROC procedure, LPARAM parameter,
                                   uint32_t line, const wchar_t* file) T_NOTHROW;
/** CreateDialogIndirectParamW */
T_API HWND T_WinCreateDialogIndirectParamW(HINSTANCE instance, LPCDLGTEMPLATEW dialog, HWND parent, DLGPROC procedure,
                                           LPARAM parameter, uint32_t line, const wchar_t* file) T_NOTHROW;
/** CreateDialogIndirectParamA */
T_API HWND T_WinCreateDialogIndirectParamA(HINSTANCE instance, LPCDLGTEMPLATEA dialog, HWND parent, DLGPROC procedure,
                                           LPARAM parameter, uint32_t line, const wchar_t* file) T_NOTHROW;
/** CreateWindowExW */
T_API HWND T_WinCreateWindowExW(DWORD extendedStyle, LPCWSTR className, LPCWSTR title, DWORD style, int x, int y,
                                int width, int height, HWND parent, HMENU menu, HINSTANCE instance, LPVOID parameter,
                                uint32_t line, const wchar_t* file) T_NOTHROW;
/** CreateWindowExA */
T_API HWND T_WinCreateWindowExA(DWORD extendedStyle, LPCSTR className, LPCSTR title, DWORD style, int x, int y,
                                int width, int height, HWND parent, HMENU menu, HINSTANCE instance, LPVOID parameter,
                                uint32_t line, const wchar_t* file) T_NOTHROW;

/** DestroyWindow */
T_API BOOL T_WinDestroyWindow(HWND window, uint32_t line, const wchar_t* file) T_NOTHROW;

/* ---- Regions, released by T_WinDeleteObject --------------------------------------------------------------------- */

/** PathToRegion */
T_API HRGN T_WinPathToRegion(HDC dc, uint32_t line, const wchar_t* file) T_NOTHROW;
/** ExtCreateRegion */
T_API HRGN T_WinExtCreateRegion(const XFORM* transform, DWORD bytes, const RGNDATA* data, uint32_t line,
                                const wchar_t* file) T_NOTHROW;
/** CreateRoundRectRgn */
T_API HRGN T_WinCreateRoundRectRgn(int left, int top, int right, int bottom, int width, int height, uint32_t line,
                                   const wchar_t* file) T_NOTHROW;
/** CreateRectRgnIndirect */
T_API HRGN T_WinCreateRectRgnIndirect(const RECT* rect, uint32_t line, const wchar_t* file) T_NOTHROW;
/** CreateRectRgn */
T_API HRGN T_WinCreateRectRgn(int left, int top, int right, int bottom, uint32_t line, const wchar_t* file) T_NOTHROW;
/** CreatePolyPolygonRgn */
T_API HRGN T_WinCreatePolyPolygonRgn(const POINT* points, const int* counts, int polygons, int mode, uint32_t line,
                                     const wchar_t* file) T_NOTHROW;
/** CreatePolygonRgn */
T_API HRGN T_WinCreatePolygonRgn(const POINT* points, int count, int mode, uint32_t line,
                                 const wchar_t* file) T_NOTHROW;
/** CreateEllipticRgnIndirect */
T_API HRGN T_WinCreateEllipticRgnIndirect(const RECT* rect, uint32_t line, const wchar_t* file) T_NOTHROW;
/** CreateEllipticRgn */
T_API HRGN T_WinCreateEllipticRgn(int left, int top, int right, int bottom, uint32_t line,
                                  const wchar_t* file) T_NOTHROW;

/* ---- Fonts, palettes, brushes and pens, released by T_WinDeleteObject ------------------------------------------- */

/** CreateFontIndirectW */
T_API HFONT T_WinCreateFontIndirectW(const LOGFONTW* font, uint32_t line, const wchar_t* file) T_NOTHROW;
/** CreateFontIndirectA */
T_API HFONT T_WinCreateFontIndirectA(const LOGFONTA* font, uint32_t line, const wchar_t* file) T_NOTHROW;
/** CreateFontW */
T_API HFONT T_WinCreateFontW(int height, int width, int escapement, int orientation, int weight, DWORD italic,
                             DWORD underline, DWORD strikeOut, DWORD charSet, DWORD outPrecision, DWORD clipPrecision,
                             DWORD quality, DWORD pitchAndFamily, LPCWSTR face, uint32_t line,
                             const wchar_t* file) T_NOTHROW;
/** CreateFontA */
T_API HFONT T_WinCreateFontA(int height, int width, int escapement, int orientation, int weight, DWORD italic,
                             DWORD underline, DWORD strikeOut, DWORD charSet, DWORD outPrecision, DWORD clipPrecision,
                             DWORD quality, DWORD pitchAndFamily, LPCSTR face, uint32_t line,
                             const wchar_t* file) T_NOTHROW;
/** CreatePalette */
T_API HPALETTE T_WinCreatePalette(const LOGPALETTE* palette, uint32_t line, const wchar_t* file) T_NOTHROW;
/** CreateSolidBrush */
T_API HBRUSH T_WinCreateSolidBrush(COLORREF color, uint32_t line, const wchar_t* file) T_NOTHROW;
/** CreatePatternBrush */
T_API HBRUSH T_WinCreatePatternBrush(HBITMAP pattern, uint32_t line, const wchar_t* file) T_NOTHROW;
/** CreateHatchBrush */
T_API HBRUSH T_WinCreateHatchBrush(int hatch, COLORREF color, uint32_t line, const wchar_t* file) T_NOTHROW;
/** CreateDIBPatternBrushPt */
T_API HBRUSH T_WinCreateDIBPatternBrushPt(const void* packedDib, UINT usage, uint32_t line,
                                          const wchar_t* file) T_NOTHROW;
/** CreateBrushIndirect */
T_API HBRUSH T_WinCreateBrushIndirect(const LOGBRUSH* brush, uint32_t line, const wchar_t* file) T_NOTHROW;
/** ExtCreatePen */
T_API HPEN T_WinExtCreatePen(DWORD style, DWORD width, const LOGBRUSH* brush, DWORD styleCount, const DWORD* styles,
                             uint32_t line, const wchar_t* file) T_NOTHROW;
/** CreatePenIndirect */
T_API HPEN T_WinCreatePenIndirect(const LOGPEN* pen, uint32_t line, const wchar_t* file) T_NOTHROW;
/** CreatePen */
T_API HPEN T_WinCreatePen(int style, int width, COLORREF color, uint32_t line, const wchar_t* file) T_NOTHROW;

/* ---- Bitmaps and images, released by T_WinDeleteObject ---------------------------------------------------------- */

/** Cursors and icons too; they are released by Windows' own functions. */
T_API HANDLE T_WinLoadImageW(HINSTANCE instance, LPCWSTR name, UINT type, int width, int height, UINT flags,
                             uint32_t line, const wchar_t* file) T_NOTHROW;
/** LoadImageA */
T_API HANDLE T_WinLoadImageA(HINSTANCE instance, LPCSTR name, UINT type, int width, int height, UINT flags,
                             uint32_t line, const wchar_t* file) T_NOTHROW;
/** LoadBitmapW */
T_API HBITMAP T_WinLoadBitmapW(HINSTANCE instance, LPCWSTR name, uint32_t line, const wchar_t* file) T_NOTHROW;
/** LoadBitmapA */
T_API HBITMAP T_WinLoadBitmapA(HINSTANCE instance, LPCSTR name, uint32_t line, const wchar_t* file) T_NOTHROW;
/** CreateDIBSection */
T_API HBITMAP T_WinCreateDIBSection(HDC dc, const BITMAPINFO* info, UINT usage, void** bits, HANDLE section,
                                    DWORD offset, uint32_t line, const wchar_t* file) T_NOTHROW;
/** CreateDIBitmap */
T_API HBITMAP T_WinCreateDIBitmap(HDC dc, const BITMAPINFOHEADER* header, DWORD flags, const void* bits,
                                  const BITMAPINFO* info, UINT usage, uint32_t line, const wchar_t* file) T_NOTHROW;
/** CreateCompatibleBitmap */
T_API HBITMAP T_WinCreateCompatibleBitmap(HDC dc, int width, int height, uint32_t line, const wchar_t* file) T_NOTHROW;
/** CreateBitmapIndirect */
T_API HBITMAP T_WinCreateBitmapIndirect(const BITMAP* bitmap, uint32_t line, const wchar_t* file) T_NOTHROW;
/** CreateBitmap */
T_API HBITMAP T_WinCreateBitmap(int width, int height, UINT planes, UINT bitsPerPixel, const void* bits, uint32_t line,
                                const wchar_t* file) T_NOTHROW;

/** Releases regions, fonts, palettes, brushes, pens and bitmaps. */
T_API BOOL T_WinDeleteObject(HGDIOBJ object, uint32_t line, const wchar_t* file) T_NOTHROW;

/* ---- Device contexts -------------------------------------------------------------------------------------------- */

/** Of a window or, for null, of the screen; released by T_WinReleaseDC. */
T_API HDC T_WinGetWindowDC(HWND window, uint32_t line, const wchar_t* file) T_NOTHROW;
/** GetDCEx */
T_API HDC T_WinGetDCEx(HWND window, HRGN clip, DWORD flags, uint32_t line, const wchar_t* file) T_NOTHROW;
/** GetDC */
T_API HDC T_WinGetDC(HWND window, uint32_t line, const wchar_t* file) T_NOTHROW;
/** In memory or of a device; released by T_WinDeleteDC. */
T_API HDC T_WinCreateCompatibleDC(HDC dc, uint32_t line, const wchar_t* file) T_NOTHROW;
/** CreateDCW */
T_API HDC T_WinCreateDCW(LPCWSTR driver, LPCWSTR device, LPCWSTR output, const DEVMODEW* mode, uint32_t line,
                         const wchar_t* file) T_NOTHROW;
/** CreateDCA */
T_API HDC T_WinCreateDCA(LPCSTR driver, LPCSTR device, LPCSTR output, const DEVMODEA* mode, uint32_t line,
                         const wchar_t* file) T_NOTHROW;

/** ReleaseDC */
T_API int T_WinReleaseDC(HWND window, HDC dc, uint32_t line, const wchar_t* file) T_NOTHROW;
/** DeleteDC */
T_API BOOL T_WinDeleteDC(HDC dc, uint32_t line, const wchar_t* file) T_NOTHROW;

/* ---- Drawing into a bitmap -------------------------------------------------------------------------------------- */

/** Makes a device context whose drawing lands in a bitmap of any format and storage. It shows the picture upright, as
 *  T_ConvertToDIB makes it, and draws in those colours. Pixels that are drawn come into the bitmap with T_UpdateTarnDC
 *  and T_DeleteTarnDC, as T_PutPixelColor puts them; all others keep every bit, also where the bitmap is deeper than
 *  what is drawn on. Meanwhile the record must stay where it is, and nothing else may change the bitmap's size.
 *  @param dc gets the device context, to be ended by T_DeleteTarnDC; null after a failure. Its own bitmap must stay
 *         selected into it, or selected again before it ends.
 *  @return SUCCESS; ERR_INVALID_PARAMETER (null; unallocated); ERR_BAD_STRUCT_SIZE; ERR_NO_MEMORY (or no more GDI
 *          objects); what T_ConvertToDIB gives. */
T_API int32_t T_CreateTarnDC(BitmapHandle* bitmap, HDC* dc) T_NOTHROW;
/** Brings what was drawn since into the bitmap. The device context goes on.
 *  @return SUCCESS; ERR_INVALID_PARAMETER (no device context of T_CreateTarnDC's); ERR_NO_BITMAP (freed meanwhile);
 *          ERR_BAD_STRUCT_SIZE; ERR_NO_MEMORY; what T_PutPixelColor gives. After a failure the bitmap is as it was. */
T_API int32_t T_UpdateTarnDC(HDC dc) T_NOTHROW;
/** T_UpdateTarnDC, after which the device context is gone, also when that failed. @return as T_UpdateTarnDC */
T_API int32_t T_DeleteTarnDC(HDC dc) T_NOTHROW;

/* ---- The display ------------------------------------------------------------------------------------------------ */

/** What the toolkit's display library does for this one; functions may be null. */
typedef struct T_DisDispatch {
  uint32_t StructSize; /**< sizeof(T_DisDispatch) */
  uint32_t Reserved;
  /** Releases a region. @return SUCCESS or a status */
  int32_t (*DeleteRegion)(uint64_t region);
  /** Told when drawing has changed pixels inside a rectangle of the upright picture. */
  void (*Changed)(BitmapHandle* bitmap, const RECT* rectangle);
} T_DisDispatch;

/** The table is process-wide, kept by reference and must stay valid; null takes it away.
 *  @return the previous table; null also for a table of another StructSize, which changes nothing */
T_API const T_DisDispatch* T_SetDisDispatch(const T_DisDispatch* table) T_NOTHROW;

/** Releases a bitmap's region through the display and clears the field; a bitmap without one stays as it is.
 *  @return SUCCESS; ERR_INVALID_PARAMETER (null); ERR_BAD_STRUCT_SIZE; ERR_NO_DISPATCH (no table, or none that deletes
 *          regions); what the display gives: the region then stays. */
T_API int32_t T_DeleteTarnRgn(BitmapHandle* bitmap) T_NOTHROW;

T_EXTERN_C_END

#endif /* _WIN32 */

#endif
