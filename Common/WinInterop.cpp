// Drawing into bitmaps by Windows' own functions, and what the display sets. Windows library only.

#include <windows.h>

#include <cstring>

#include "Common/Internal/Checks.h"
#include "Common/Internal/Dib.h"
#include "Common/Internal/Duplicate.h"
#include "Common/Internal/Rows.h"
#include "Platform/Platform.h"
#include "tarn/dib.h"
#include "tarn/flip.h"
#include "tarn/memory.h"
#include "tarn/pixel.h"
#include "tarn/windows.h"

namespace tarn {
namespace {

/// A device context on a bitmap: it draws into a section, and what differs from the picture as it was goes back.
struct Canvas {
  HDC dc;
  HBITMAP section;
  HGDIOBJ selectedBefore;
  BitmapHandle* bitmap;
  uint64_t dib;   // block: header, colour table, the rows as they were
  uint8_t* rows;  // of the section
  DibLayout layout;
  Canvas* next;
};

constinit platform::CriticalSection canvasSection;
constinit Canvas* canvases = nullptr;               // guarded by canvasSection
constinit const T_DisDispatch* dispatch = nullptr;  // guarded by canvasSection

const T_DisDispatch* Dispatch() noexcept {
  const platform::Guard guard(canvasSection);
  return dispatch;
}

/// Null when the device context is none of ours. A canvas that is `taken` is out of the list.
Canvas* Find(HDC dc, bool taken) noexcept {
  const platform::Guard guard(canvasSection);
  for (Canvas** at = &canvases; *at; at = &(*at)->next) {
    Canvas* const canvas = *at;
    if (canvas->dc != dc) continue;
    if (taken) *at = canvas->next;
    return canvas;
  }
  return nullptr;
}

void Free(Canvas* canvas) noexcept {
  const Here here = TARN_HERE;
  if (canvas->selectedBefore) SelectObject(canvas->dc, canvas->selectedBefore);
  if (canvas->dc) T_WinDeleteDC(canvas->dc, here.line, here.file);
  if (canvas->section) T_WinDeleteObject(canvas->section, here.line, here.file);
  if (canvas->dib) T_OsFreeHandle(canvas->dib, here.line, here.file);
  T_LocalFree(canvas, here.line, here.file);
}

Status Prepare(Canvas& canvas, BitmapHandle& bitmap) noexcept {
  const Here here = TARN_HERE;
  void* dib = nullptr;
  {
    const QuietCallback quiet;
    TARN_TRY(T_ConvertToDIB(&bitmap, &dib));
  }
  canvas.bitmap = &bitmap;
  canvas.dib = reinterpret_cast<uintptr_t>(dib);
  const auto* const block = static_cast<const uint8_t*>(T_OsLockHandle(canvas.dib, here.line, here.file));
  if (!block) return ERR_NO_MEMORY;
  TARN_TRY(ReadDibLayout({block, DibBytes::kUnlimited, nullptr, DibBytes::kUnlimited}, canvas.layout));
  void* rows = nullptr;
  canvas.section = T_WinCreateDIBSection(nullptr, reinterpret_cast<const BITMAPINFO*>(block), DIB_RGB_COLORS, &rows,
                                         nullptr, 0, here.line, here.file);
  if (!canvas.section || !rows) return ERR_NO_MEMORY;
  canvas.rows = static_cast<uint8_t*>(rows);
  std::memcpy(rows, canvas.layout.pixels, canvas.layout.pixelBytes);
  canvas.dc = T_WinCreateCompatibleDC(nullptr, here.line, here.file);
  if (!canvas.dc) return ERR_NO_MEMORY;
  canvas.selectedBefore = SelectObject(canvas.dc, canvas.section);
  return canvas.selectedBefore ? SUCCESS : ERR_NO_MEMORY;
}

// ---- Back into the bitmap ------------------------------------------------------------------------------------------

uint32_t IndexAt(const uint8_t* row, int32_t column, int32_t bits) noexcept {
  const int32_t at = column * bits;
  return row[at >> 3] >> (8 - bits - (at & 7)) & ((1u << bits) - 1);
}

/// Bytes or, below 8 bits, the byte of a pixel.
const uint8_t* PixelAt(const uint8_t* row, int32_t column, int32_t bits) noexcept {
  return row + static_cast<int64_t>(column) * bits / 8;
}

bool Differs(const uint8_t* a, const uint8_t* b, int32_t column, int32_t bits) noexcept {
  if (bits < 8) return IndexAt(a, column, bits) != IndexAt(b, column, bits);
  return std::memcmp(PixelAt(a, column, bits), PixelAt(b, column, bits), static_cast<size_t>(bits / 8)) != 0;
}

uint32_t ColorAt(const DibLayout& layout, const uint8_t* row, int32_t column) noexcept {
  const uint8_t* pixel = PixelAt(row, column, layout.bits);
  if (layout.bits <= 8) {
    const uint32_t index = IndexAt(row, column, layout.bits);
    if (index >= layout.tableEntries) return 0;
    pixel = layout.table + uint64_t{index} * layout.tableEntryBytes;
  } else if (layout.bits == 16) {
    const uint32_t word = pixel[0] | pixel[1] * 256u;
    const auto wide = [](uint32_t five) { return five << 3 | five >> 2; };
    return wide(word >> 10 & 31) | wide(word >> 5 & 31) << 8 | wide(word & 31) << 16;
  }
  return pixel[2] | pixel[1] * 256u | pixel[0] * 65536u;
}

/// Puts the pixels that were drawn. `changed` grows to hold them, in columns and rows of the upright picture.
Status PutDrawn(const Canvas& canvas, BitmapHandle& bitmap, RECT& changed) noexcept {
  const DibLayout& layout = canvas.layout;
  const uint64_t rowBytes = DibRowBytes(layout.width, layout.bits);
  const BitmapLock lock(bitmap);
  for (int32_t y = 0; y < layout.height; ++y) {
    const uint64_t at = static_cast<uint64_t>(layout.height - 1 - y) * rowBytes;
    const uint8_t* const before = layout.pixels + at;
    const uint8_t* const now = canvas.rows + at;
    if (std::memcmp(before, now, rowBytes) == 0) continue;
    for (int32_t x = 0; x < layout.width; ++x) {
      if (!Differs(before, now, x, layout.bits)) continue;
      int32_t column = x;
      int32_t row = y;
      T_PointToBitmap(&bitmap, 1, &column, &row);
      const int32_t put = T_PutPixelColor(&bitmap, row, column, ColorAt(layout, now, x));
      if (put != SUCCESS && put != ERR_EMPTY_AREA) return put;  // the hook may keep pixels as they are
      const RECT pixel{x, y, x + 1, y + 1};
      UnionRect(&changed, &changed, &pixel);
    }
  }
  return SUCCESS;
}

Status Update(Canvas& canvas) noexcept {
  BitmapHandle& bitmap = *canvas.bitmap;
  GdiFlush();
  TARN_TRY(RequireAllocatedThenSize(&bitmap, ERR_NO_BITMAP));
  RECT changed{};
  bool inPlace;
  {
    const BitmapLock lock(bitmap);
    inPlace = LiesInMemory(bitmap);
  }
  if (inPlace) {
    TARN_TRY(PutDrawn(canvas, bitmap, changed));
  } else {
    BitmapHandle copy{};
    TARN_TRY(CopyWhole(copy, bitmap));
    const Status put = PutDrawn(canvas, copy, changed);
    if (!put.Ok()) {
      T_FreeBitmap(&copy);
      return put;
    }
    ReplaceWhole(bitmap, copy);
  }
  // The block is ours, and from now on this is the picture as it was.
  std::memcpy(const_cast<uint8_t*>(canvas.layout.pixels), canvas.rows, canvas.layout.pixelBytes);
  const T_DisDispatch* const display = Dispatch();
  if (display && display->Changed && !IsRectEmpty(&changed)) display->Changed(&bitmap, &changed);
  return SUCCESS;
}

}  // namespace
}  // namespace tarn

using namespace tarn;

int32_t T_CreateTarnDC(BitmapHandle* bitmap, HDC* dc) noexcept {
  if (!dc) return ERR_INVALID_PARAMETER;
  *dc = nullptr;
  TARN_TRY(RequireAllocatedThenSize(bitmap, ERR_INVALID_PARAMETER));
  const Here here = TARN_HERE;
  auto* const canvas = static_cast<Canvas*>(T_LocalAllocInit(1, sizeof(Canvas), here.line, here.file));
  if (!canvas) return ERR_NO_MEMORY;
  const Status prepared = Prepare(*canvas, *bitmap);
  if (!prepared.Ok()) {
    Free(canvas);
    return prepared.code;
  }
  *dc = canvas->dc;
  const platform::Guard guard(canvasSection);
  canvas->next = canvases;
  canvases = canvas;
  return SUCCESS;
}

int32_t T_UpdateTarnDC(HDC dc) noexcept {
  Canvas* const canvas = Find(dc, false);
  return canvas ? Update(*canvas).code : ERR_INVALID_PARAMETER;
}

int32_t T_DeleteTarnDC(HDC dc) noexcept {
  Canvas* const canvas = Find(dc, true);
  if (!canvas) return ERR_INVALID_PARAMETER;
  const Status updated = Update(*canvas);
  Free(canvas);
  return updated.code;
}

const T_DisDispatch* T_SetDisDispatch(const T_DisDispatch* table) noexcept {
  if (table && table->StructSize != sizeof *table) return nullptr;
  const platform::Guard guard(canvasSection);
  const T_DisDispatch* const previous = dispatch;
  dispatch = table;
  return previous;
}

int32_t T_DeleteTarnRgn(BitmapHandle* bitmap) noexcept {
  TARN_TRY(RequireSize(bitmap, ERR_INVALID_PARAMETER));
  const T_DisDispatch* const display = Dispatch();
  if (!display || !display->DeleteRegion) return ERR_NO_DISPATCH;
  if (bitmap->Region == 0) return SUCCESS;
  const int32_t deleted = display->DeleteRegion(bitmap->Region);
  if (deleted == SUCCESS) bitmap->Region = 0;
  return deleted;
}
