// Dithering line by line.

#include "tarn/dither.h"

#include "Common/Internal/Checks.h"
#include "Common/Internal/DitherRun.h"
#include "Common/Internal/Nearest.h"
#include "tarn/memory.h"

using namespace tarn;

int32_t T_StartDithering(BitmapHandle* bitmap, const T_PaletteEntry* palette, uint32_t count) noexcept {
  TARN_TRY(RequireSize(bitmap, ERR_INVALID_PARAMETER));
  if (count == 0 || count > 256) return ERR_INVALID_PARAMETER;
  return T_StartDitheringExt(bitmap, palette, count, BitsFor(count), nullptr);
}

int32_t T_StartDitheringExt(BitmapHandle* bitmap, const T_PaletteEntry* palette, uint32_t count, uint32_t bits,
                            uint32_t* matchTable) noexcept {
  TARN_TRY(RequireSize(bitmap, ERR_INVALID_PARAMETER));
  Status status = SUCCESS;
  DitherRun* const run =
      DitherRun::Create(*bitmap, bitmap->DitheringMethod, {palette, count, bits, matchTable}, status);
  if (run) bitmap->DitherContext = run;
  return status.code;
}

int32_t T_DitherLine(BitmapHandle* bitmap, const void* source, void* target) noexcept {
  if (!bitmap || !bitmap->DitherContext || !source || !target) return ERR_INVALID_PARAMETER;
  TARN_TRY(RequireSize(bitmap, ERR_INVALID_PARAMETER));
  if (bitmap->Flags & T_FLAG_SIGNED_DATA) return ERR_SIGNED_DATA;
  static_cast<DitherRun*>(bitmap->DitherContext)
      ->Line(static_cast<uint8_t*>(target), static_cast<const uint8_t*>(source));
  return SUCCESS;
}

int32_t T_StopDithering(BitmapHandle* bitmap) noexcept {
  if (!bitmap) return ERR_INVALID_PARAMETER;
  DitherRun::Destroy(static_cast<DitherRun*>(bitmap->DitherContext));
  bitmap->DitherContext = nullptr;
  return SUCCESS;
}

uint32_t* T_CreateUserMatchTable(const T_PaletteEntry* entries, uint32_t count) noexcept {
  if (!entries || count == 0) return nullptr;
  const Here here = TARN_HERE;
  auto* const table = static_cast<uint32_t*>(T_LocalAlloc(kMatchKeys, sizeof(uint32_t), here.line, here.file));
  if (!table) return nullptr;
  const NearestSearch search(entries, count);
  for (uint32_t key = 0; key < kMatchKeys; ++key)
    table[key] = search.Find(key >> 10 << 3, (key >> 5 & 31) << 3, (key & 31) << 3) + 1;
  return table;
}

int32_t T_FreeUserMatchTable(uint32_t* table) noexcept {
  const Here here = TARN_HERE;
  if (table) T_LocalFree(table, here.line, here.file);
  return SUCCESS;
}
