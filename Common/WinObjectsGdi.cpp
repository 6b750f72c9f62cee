// Tracked GDI objects: metafiles, regions, fonts, palettes, brushes, pens, bitmaps and device contexts. Windows library
// only.

#include "Common/Internal/SystemObject.h"
#include "tarn/windows.h"

namespace {

/// Ending a recording releases its device context, which the ledger knows from the start of the recording, and makes
/// the metafile.
template <class Metafile>
Metafile EndRecording(HDC dc, Metafile(WINAPI* close)(HDC), tarn::Here here) noexcept {
  if (tarn::CreationRefused(here)) return nullptr;
  tarn::Untrack(dc, here);
  return tarn::Track(close(dc), here);
}

}  // namespace

// ---- Metafiles
HDC T_WinCreateMetaFileW(LPCWSTR name, uint32_t line, const wchar_t* file) noexcept {
  return tarn::Create({line, file}, CreateMetaFileW, name);
}

HDC T_WinCreateMetaFileA(LPCSTR name, uint32_t line, const wchar_t* file) noexcept {
  return tarn::Create({line, file}, CreateMetaFileA, name);
}

HMETAFILE T_WinCloseMetaFile(HDC dc, uint32_t line, const wchar_t* file) noexcept {
  return EndRecording(dc, CloseMetaFile, {line, file});
}

HMETAFILE T_WinGetMetaFileW(LPCWSTR name, uint32_t line, const wchar_t* file) noexcept {
  return tarn::Create({line, file}, GetMetaFileW, name);
}

HMETAFILE T_WinGetMetaFileA(LPCSTR name, uint32_t line, const wchar_t* file) noexcept {
  return tarn::Create({line, file}, GetMetaFileA, name);
}

HMETAFILE T_WinCopyMetaFileW(HMETAFILE source, LPCWSTR name, uint32_t line, const wchar_t* file) noexcept {
  return tarn::Create({line, file}, CopyMetaFileW, source, name);
}

HMETAFILE T_WinCopyMetaFileA(HMETAFILE source, LPCSTR name, uint32_t line, const wchar_t* file) noexcept {
  return tarn::Create({line, file}, CopyMetaFileA, source, name);
}

HMETAFILE T_WinSetMetaFileBitsEx(UINT bytes, const BYTE* data, uint32_t line, const wchar_t* file) noexcept {
  return tarn::Create({line, file}, SetMetaFileBitsEx, bytes, data);
}

BOOL T_WinDeleteMetaFile(HMETAFILE metafile, uint32_t line, const wchar_t* file) noexcept {
  tarn::Untrack(metafile, {line, file});
  return DeleteMetaFile(metafile);
}

// ---- Enhanced metafiles
HDC T_WinCreateEnhMetaFileW(HDC reference, LPCWSTR name, const RECT* frame, LPCWSTR description, uint32_t line,
                            const wchar_t* file) noexcept {
  return tarn::Create({line, file}, CreateEnhMetaFileW, reference, name, frame, description);
}

HDC T_WinCreateEnhMetaFileA(HDC reference, LPCSTR name, const RECT* frame, LPCSTR description, uint32_t line,
                            const wchar_t* file) noexcept {
  return tarn::Create({line, file}, CreateEnhMetaFileA, reference, name, frame, description);
}

HENHMETAFILE T_WinCloseEnhMetaFile(HDC dc, uint32_t line, const wchar_t* file) noexcept {
  return EndRecording(dc, CloseEnhMetaFile, {line, file});
}

HENHMETAFILE T_WinGetEnhMetaFileW(LPCWSTR name, uint32_t line, const wchar_t* file) noexcept {
  return tarn::Create({line, file}, GetEnhMetaFileW, name);
}

HENHMETAFILE T_WinGetEnhMetaFileA(LPCSTR name, uint32_t line, const wchar_t* file) noexcept {
  return tarn::Create({line, file}, GetEnhMetaFileA, name);
}

HENHMETAFILE T_WinCopyEnhMetaFileW(HENHMETAFILE source, LPCWSTR name, uint32_t line, const wchar_t* file) noexcept {
  return tarn::Create({line, file}, CopyEnhMetaFileW, source, name);
}

HENHMETAFILE T_WinCopyEnhMetaFileA(HENHMETAFILE source, LPCSTR name, uint32_t line, const wchar_t* file) noexcept {
  return tarn::Create({line, file}, CopyEnhMetaFileA, source, name);
}

HENHMETAFILE T_WinSetEnhMetaFileBits(UINT bytes, const BYTE* data, uint32_t line, const wchar_t* file) noexcept {
  return tarn::Create({line, file}, SetEnhMetaFileBits, bytes, data);
}

BOOL T_WinDeleteEnhMetaFile(HENHMETAFILE metafile, uint32_t line, const wchar_t* file) noexcept {
  tarn::Untrack(metafile, {line, file});
  return DeleteEnhMetaFile(metafile);
}

// ---- Regions
HRGN T_WinPathToRegion(HDC dc, uint32_t line, const wchar_t* file) noexcept {
  return tarn::Create({line, file}, PathToRegion, dc);
}

HRGN T_WinExtCreateRegion(const XFORM* transform, DWORD bytes, const RGNDATA* data, uint32_t line,
                          const wchar_t* file) noexcept {
  return tarn::Create({line, file}, ExtCreateRegion, transform, bytes, data);
}

HRGN T_WinCreateRoundRectRgn(int left, int top, int right, int bottom, int width, int height, uint32_t line,
                             const wchar_t* file) noexcept {
  return tarn::Create({line, file}, CreateRoundRectRgn, left, top, right, bottom, width, height);
}

HRGN T_WinCreateRectRgnIndirect(const RECT* rect, uint32_t line, const wchar_t* file) noexcept {
  return tarn::Create({line, file}, CreateRectRgnIndirect, rect);
}

HRGN T_WinCreateRectRgn(int left, int top, int right, int bottom, uint32_t line, const wchar_t* file) noexcept {
  return tarn::Create({line, file}, CreateRectRgn, left, top, right, bottom);
}

HRGN T_WinCreatePolyPolygonRgn(const POINT* points, const int* counts, int polygons, int mode, uint32_t line,
                               const wchar_t* file) noexcept {
  return tarn::Create({line, file}, CreatePolyPolygonRgn, points, counts, polygons, mode);
}

HRGN T_WinCreatePolygonRgn(const POINT* points, int count, int mode, uint32_t line, const wchar_t* file) noexcept {
  return tarn::Create({line, file}, CreatePolygonRgn, points, count, mode);
}

HRGN T_WinCreateEllipticRgnIndirect(const RECT* rect, uint32_t line, const wchar_t* file) noexcept {
  return tarn::Create({line, file}, CreateEllipticRgnIndirect, rect);
}

HRGN T_WinCreateEllipticRgn(int left, int top, int right, int bottom, uint32_t line, const wchar_t* file) noexcept {
  return tarn::Create({line, file}, CreateEllipticRgn, left, top, right, bottom);
}

// ---- Fonts, palettes, brushes and pens
HFONT T_WinCreateFontIndirectW(const LOGFONTW* font, uint32_t line, const wchar_t* file) noexcept {
  return tarn::Create({line, file}, CreateFontIndirectW, font);
}

HFONT T_WinCreateFontIndirectA(const LOGFONTA* font, uint32_t line, const wchar_t* file) noexcept {
  return tarn::Create({line, file}, CreateFontIndirectA, font);
}

HFONT T_WinCreateFontW(int height, int width, int escapement, int orientation, int weight, DWORD italic,
                       DWORD underline, DWORD strikeOut, DWORD charSet, DWORD outPrecision, DWORD clipPrecision,
                       DWORD quality, DWORD pitchAndFamily, LPCWSTR face, uint32_t line, const wchar_t* file) noexcept {
  return tarn::Create({line, file}, CreateFontW, height, width, escapement, orientation, weight, italic, underline,
                      strikeOut, charSet, outPrecision, clipPrecision, quality, pitchAndFamily, face);
}

HFONT T_WinCreateFontA(int height, int width, int escapement, int orientation, int weight, DWORD italic,
                       DWORD underline, DWORD strikeOut, DWORD charSet, DWORD outPrecision, DWORD clipPrecision,
                       DWORD quality, DWORD pitchAndFamily, LPCSTR face, uint32_t line, const wchar_t* file) noexcept {
  return tarn::Create({line, file}, CreateFontA, height, width, escapement, orientation, weight, italic, underline,
                      strikeOut, charSet, outPrecision, clipPrecision, quality, pitchAndFamily, face);
}

HPALETTE T_WinCreatePalette(const LOGPALETTE* palette, uint32_t line, const wchar_t* file) noexcept {
  return tarn::Create({line, file}, CreatePalette, palette);
}

HBRUSH T_WinCreateSolidBrush(COLORREF color, uint32_t line, const wchar_t* file) noexcept {
  return tarn::Create({line, file}, CreateSolidBrush, color);
}

HBRUSH T_WinCreatePatternBrush(HBITMAP pattern, uint32_t line, const wchar_t* file) noexcept {
  return tarn::Create({line, file}, CreatePatternBrush, pattern);
}

HBRUSH T_WinCreateHatchBrush(int hatch, COLORREF color, uint32_t line, const wchar_t* file) noexcept {
  return tarn::Create({line, file}, CreateHatchBrush, hatch, color);
}

HBRUSH T_WinCreateDIBPatternBrushPt(const void* packedDib, UINT usage, uint32_t line, const wchar_t* file) noexcept {
  return tarn::Create({line, file}, CreateDIBPatternBrushPt, packedDib, usage);
}

HBRUSH T_WinCreateBrushIndirect(const LOGBRUSH* brush, uint32_t line, const wchar_t* file) noexcept {
  return tarn::Create({line, file}, CreateBrushIndirect, brush);
}

HPEN T_WinExtCreatePen(DWORD style, DWORD width, const LOGBRUSH* brush, DWORD styleCount, const DWORD* styles,
                       uint32_t line, const wchar_t* file) noexcept {
  return tarn::Create({line, file}, ExtCreatePen, style, width, brush, styleCount, styles);
}

HPEN T_WinCreatePenIndirect(const LOGPEN* pen, uint32_t line, const wchar_t* file) noexcept {
  return tarn::Create({line, file}, CreatePenIndirect, pen);
}

HPEN T_WinCreatePen(int style, int width, COLORREF color, uint32_t line, const wchar_t* file) noexcept {
  return tarn::Create({line, file}, CreatePen, style, width, color);
}

// ---- Bitmaps and images
HANDLE T_WinLoadImageW(HINSTANCE instance, LPCWSTR name, UINT type, int width, int height, UINT flags, uint32_t line,
                       const wchar_t* file) noexcept {
  return tarn::Create({line, file}, LoadImageW, instance, name, type, width, height, flags);
}

HANDLE T_WinLoadImageA(HINSTANCE instance, LPCSTR name, UINT type, int width, int height, UINT flags, uint32_t line,
                       const wchar_t* file) noexcept {
  return tarn::Create({line, file}, LoadImageA, instance, name, type, width, height, flags);
}

HBITMAP T_WinLoadBitmapW(HINSTANCE instance, LPCWSTR name, uint32_t line, const wchar_t* file) noexcept {
  return tarn::Create({line, file}, LoadBitmapW, instance, name);
}

HBITMAP T_WinLoadBitmapA(HINSTANCE instance, LPCSTR name, uint32_t line, const wchar_t* file) noexcept {
  return tarn::Create({line, file}, LoadBitmapA, instance, name);
}

HBITMAP T_WinCreateDIBSection(HDC dc, const BITMAPINFO* info, UINT usage, void** bits, HANDLE section, DWORD offset,
                              uint32_t line, const wchar_t* file) noexcept {
  return tarn::Create({line, file}, CreateDIBSection, dc, info, usage, bits, section, offset);
}

HBITMAP T_WinCreateDIBitmap(HDC dc, const BITMAPINFOHEADER* header, DWORD flags, const void* bits,
                            const BITMAPINFO* info, UINT usage, uint32_t line, const wchar_t* file) noexcept {
  return tarn::Create({line, file}, CreateDIBitmap, dc, header, flags, bits, info, usage);
}

HBITMAP T_WinCreateCompatibleBitmap(HDC dc, int width, int height, uint32_t line, const wchar_t* file) noexcept {
  return tarn::Create({line, file}, CreateCompatibleBitmap, dc, width, height);
}

HBITMAP T_WinCreateBitmapIndirect(const BITMAP* bitmap, uint32_t line, const wchar_t* file) noexcept {
  return tarn::Create({line, file}, CreateBitmapIndirect, bitmap);
}

HBITMAP T_WinCreateBitmap(int width, int height, UINT planes, UINT bitsPerPixel, const void* bits, uint32_t line,
                          const wchar_t* file) noexcept {
  return tarn::Create({line, file}, CreateBitmap, width, height, planes, bitsPerPixel, bits);
}

BOOL T_WinDeleteObject(HGDIOBJ object, uint32_t line, const wchar_t* file) noexcept {
  tarn::Untrack(object, {line, file});
  return DeleteObject(object);
}

// ---- Device contexts
HDC T_WinGetWindowDC(HWND window, uint32_t line, const wchar_t* file) noexcept {
  return tarn::Create({line, file}, GetWindowDC, window);
}

HDC T_WinGetDCEx(HWND window, HRGN clip, DWORD flags, uint32_t line, const wchar_t* file) noexcept {
  return tarn::Create({line, file}, GetDCEx, window, clip, flags);
}

HDC T_WinGetDC(HWND window, uint32_t line, const wchar_t* file) noexcept {
  return tarn::Create({line, file}, GetDC, window);
}

HDC T_WinCreateCompatibleDC(HDC dc, uint32_t line, const wchar_t* file) noexcept {
  return tarn::Create({line, file}, CreateCompatibleDC, dc);
}

HDC T_WinCreateDCW(LPCWSTR driver, LPCWSTR device, LPCWSTR output, const DEVMODEW* mode, uint32_t line,
                   const wchar_t* file) noexcept {
  return tarn::Create({line, file}, CreateDCW, driver, device, output, mode);
}

HDC T_WinCreateDCA(LPCSTR driver, LPCSTR device, LPCSTR output, const DEVMODEA* mode, uint32_t line,
                   const wchar_t* file) noexcept {
  return tarn::Create({line, file}, CreateDCA, driver, device, output, mode);
}

int T_WinReleaseDC(HWND window, HDC dc, uint32_t line, const wchar_t* file) noexcept {
  tarn::Untrack(dc, {line, file});
  return ReleaseDC(window, dc);
}

BOOL T_WinDeleteDC(HDC dc, uint32_t line, const wchar_t* file) noexcept {
  tarn::Untrack(dc, {line, file});
  return DeleteDC(dc);
}
