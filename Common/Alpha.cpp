// The alpha channel, out of a bitmap and into it.

#include "tarn/alpha.h"

#include <cstring>

#include "Common/Internal/Checks.h"
#include "Common/Internal/Duplicate.h"
#include "Common/Internal/Geometry.h"
#include "Common/Internal/Hooks.h"
#include "Common/Internal/Rows.h"
#include "tarn/bitmap.h"
#include "tarn/colors.h"
#include "tarn/flip.h"
#include "tarn/gray.h"
#include "tarn/palette.h"
#include "tarn/rotate.h"

namespace tarn {
namespace {

bool HasAlpha(const BitmapHandle& bitmap) noexcept {
  const int32_t bits = bitmap.BitsPerPixel;
  return (bits == 16 || bits == 32 || bits == 64) && bitmap.Order != T_ORDER_GRAY;
}

// ---- Lines ---------------------------------------------------------------------------------------------------------

/// `alpha`: bytes, or 16-bit samples from 64-bit pixels.
void TakeAlpha(uint8_t* alpha, const uint8_t* pixels, int32_t width, int32_t bits) noexcept {
  for (int32_t i = 0; i < width; ++i) {
    if (bits == 64) {
      std::memcpy(alpha + 2 * static_cast<size_t>(i), pixels + 8 * static_cast<size_t>(i) + 6, 2);
    } else if (bits == 32) {
      alpha[i] = pixels[4 * static_cast<size_t>(i) + 3];
    } else {
      alpha[i] = pixels[2 * static_cast<size_t>(i) + 1] & 0x80 ? 255 : 0;
    }
  }
}

void PutAlpha(uint8_t* pixels, const uint8_t* alpha, int32_t width, int32_t bits, bool oneBit) noexcept {
  for (int32_t i = 0; i < width; ++i) {
    const auto at = static_cast<size_t>(i);
    if (bits == 64) {
      std::memcpy(pixels + 8 * at + 6, alpha + 2 * at, 2);
    } else if (bits == 32) {
      pixels[4 * at + 3] = alpha[at];
    } else {
      const bool set = oneBit ? alpha[at / 8] >> (7 - at % 8) & 1 : alpha[at] >= 128;
      uint8_t& high = pixels[2 * at + 1];
      high = static_cast<uint8_t>(set ? high | 0x80 : high & 0x7F);
    }
  }
}

// ---- Out -----------------------------------------------------------------------------------------------------------

Status FillAlpha(BitmapHandle& alpha, BitmapHandle& source) noexcept {
  if (!HasAlpha(source)) return SUCCESS;  // fresh storage is zero
  const BitmapLock lock(source);
  RowReader from(source, TARN_HERE);
  RowWriter to(alpha, TARN_HERE);
  TARN_TRY(from.Open());
  TARN_TRY(to.Open());
  const int32_t width = source.Width, height = source.Height, bits = source.BitsPerPixel;
  const size_t used = static_cast<size_t>(width) * (bits == 64 ? 2 : 1);
  for (int32_t row = 0; row < height; ++row) {
    const uint8_t* const line = from.Row(row);
    if (!line) return from.status();
    uint8_t* const place = to.Row(row);
    TakeAlpha(place, line, width, bits);
    std::memset(place + used, 0, alpha.BytesPerLine - used);
    TARN_TRY(to.Commit());
  }
  return SUCCESS;
}

/// alpha has storage from here on: whoever calls frees it when this fails.
Status FinishAlpha(BitmapHandle& alpha, BitmapHandle& source) noexcept {
  if (const T_BitmapCreationHook hook = BitmapCreationHook()) TARN_TRY(hook(&alpha, &source, 0, 0));
  if (alpha.BitsPerPixel == 8) TARN_TRY(T_CreateBitmapGrayPalette(&alpha));
  return FillAlpha(alpha, source);
}

// ---- In ------------------------------------------------------------------------------------------------------------

/// A bitmap whose stored samples are the levels that a target of these bits takes.
bool IsDirect(const BitmapHandle& alpha, const BitmapHandle& target) noexcept {
  const int32_t bits = alpha.BitsPerPixel;
  if (alpha.ViewPerspective != target.ViewPerspective) return false;
  if (alpha.Flags & (T_FLAG_SIGNED_DATA | T_FLAG_LUT_IN_USE)) return false;
  switch (target.BitsPerPixel) {
    case 64:
      return bits == 16 && alpha.Order == T_ORDER_GRAY && alpha.LowBit < 1 &&
             (alpha.HighBit < 0 || alpha.HighBit == 15);
    case 32:
      return bits == 8 && T_IsGrayScaleBitmap(&alpha) == 1;
    default:
      return (bits == 1 || bits == 8) && T_IsGrayScaleBitmap(&alpha) == 1;
  }
}

/// A bitmap that frees itself, for the steps on the way.
struct Temporary {
  ~Temporary() {
    if (live) T_FreeBitmap(&record);
  }
  BitmapHandle record{};
  bool live = false;
};

Status PutRows(BitmapHandle& target, BitmapHandle& alpha) noexcept {
  const BitmapLock lockTarget(target);
  const BitmapLock lockAlpha(alpha);
  RowReader values(alpha, TARN_HERE);
  RowReader old(target, TARN_HERE);
  RowWriter to(target, TARN_HERE);
  TARN_TRY(values.Open());
  TARN_TRY(old.Open());
  TARN_TRY(to.Open());
  const auto least = [](int32_t a, int32_t b) { return a < b ? a : b; };
  const int32_t width = least(target.Width, alpha.Width), height = least(target.Height, alpha.Height);
  for (int32_t row = 0; row < height; ++row) {
    const uint8_t* const line = values.Row(row);
    if (!line) return values.status();
    const uint8_t* const before = old.Row(row);
    if (!before) return old.status();
    uint8_t* const place = to.Row(row);
    if (place != before) std::memcpy(place, before, target.BytesPerLine);
    PutAlpha(place, line, width, target.BitsPerPixel, alpha.BitsPerPixel == 1);
    TARN_TRY(to.Commit());
  }
  return SUCCESS;
}

/// Rows of both lie in memory: nothing can fail once the first is changed.
bool CannotFail(BitmapHandle& target, BitmapHandle& alpha) noexcept {
  const BitmapLock lockTarget(target);
  const BitmapLock lockAlpha(alpha);
  RowReader a(target, TARN_HERE), b(alpha, TARN_HERE);
  return a.Open().Ok() && a.InOneBlock() && b.Open().Ok() && b.InOneBlock();
}

Status SetAlpha(BitmapHandle& target, BitmapHandle& given) noexcept {
  const QuietCallback quiet;
  const bool converted = !HasAlpha(target);
  Temporary result;  // when the target has to be changed aside
  if (converted) {
    const int32_t bits = target.BitsPerPixel == 48 ? 64 : 32;
    TARN_TRY(T_ColorResBitmap(&target, &result.record, sizeof target, bits, 0, nullptr, nullptr, 0, nullptr, nullptr));
    result.live = true;
  }
  BitmapHandle& shape = converted ? result.record : target;
  Temporary copy;
  BitmapHandle* alpha = &given;
  if (!IsDirect(given, shape)) {
    TARN_TRY(T_CreateGrayScaleBitmap(&copy.record, &given, shape.BitsPerPixel == 64 ? 16 : 8, sizeof given));
    copy.live = true;
    if (copy.record.ViewPerspective != shape.ViewPerspective)
      TARN_TRY(T_ChangeBitmapViewPerspective(nullptr, &copy.record, sizeof given, shape.ViewPerspective));
    alpha = &copy.record;
  }
  if (!GeometryHolds(*alpha) || !GeometryHolds(shape)) return ERR_INVALID_PARAMETER;
  if (!converted && CannotFail(target, *alpha)) return PutRows(target, *alpha);
  if (!converted) {
    TARN_TRY(CopyWhole(result.record, target));
    result.live = true;
  }
  TARN_TRY(PutRows(result.record, *alpha));
  ReplaceWhole(target, result.record);
  result.live = false;
  return SUCCESS;
}

}  // namespace
}  // namespace tarn

using namespace tarn;

int32_t T_GetBitmapAlpha(BitmapHandle* source, BitmapHandle* alpha, uint32_t structSize) noexcept {
  if (!source || !IsAllocated(*source) || !alpha) return ERR_INVALID_PARAMETER;
  if (source->StructSize != sizeof *source || structSize != sizeof *alpha) return ERR_BAD_STRUCT_SIZE;
  if (source->Flags & T_FLAG_SIGNED_DATA) return ERR_SIGNED_DATA;
  if (!GeometryHolds(*source) || alpha == source) return ERR_INVALID_PARAMETER;
  const int32_t bits = source->BitsPerPixel == 64 ? 16 : 8;
  TARN_TRY(T_InitBitmap(alpha, structSize, source->Width, source->Height, bits));
  alpha->Order = bits == 16 ? T_ORDER_GRAY : T_ORDER_RGB;
  alpha->ViewPerspective = source->ViewPerspective;
  alpha->XResolution = source->XResolution;
  alpha->YResolution = source->YResolution;
  TARN_TRY(T_AllocateBitmap(alpha, source->Flags & T_FLAG_ON_DISK ? TYPE_DISK : TYPE_CONV));
  const Status finished = FinishAlpha(*alpha, *source);
  if (!finished.Ok()) T_FreeBitmap(alpha);
  return finished.code;
}

int32_t T_SetBitmapAlpha(BitmapHandle* target, BitmapHandle* alpha) noexcept {
  if (!target || !alpha || !IsAllocated(*target) || !IsAllocated(*alpha)) return ERR_INVALID_PARAMETER;
  if (target->StructSize != sizeof *target || alpha->StructSize != sizeof *alpha) return ERR_BAD_STRUCT_SIZE;
  if (target->Flags & T_FLAG_SIGNED_DATA) return ERR_SIGNED_DATA;
  return SetAlpha(*target, *alpha).code;
}

void T_SetRowAlphaValues(int32_t bitsPerPixel, void* row, uint64_t bytes, uint16_t alpha) noexcept {
  if (!row || (bitsPerPixel != 32 && bitsPerPixel != 64)) return;
  auto* const line = static_cast<uint8_t*>(row);
  const uint64_t pixel = static_cast<uint32_t>(bitsPerPixel) / 8;
  for (uint64_t at = 0; at + pixel <= bytes; at += pixel) {
    if (pixel == 4) {
      line[at + 3] = static_cast<uint8_t>(alpha);
    } else {
      std::memcpy(line + at + 6, &alpha, 2);
    }
  }
}
