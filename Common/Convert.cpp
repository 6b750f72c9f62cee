// Conversion of lines of pixels between formats.

#include "tarn/convert.h"

#include <initializer_list>

#include "Common/Internal/LineConverter.h"

using namespace tarn;

int32_t T_ConvertBufferExt(void* buffer, int32_t width, int32_t sourceBits, int32_t targetBits, uint32_t sourceOrder,
                           uint32_t targetOrder, const T_PaletteEntry* sourcePalette,
                           const T_PaletteEntry* targetPalette, uint32_t flags, int32_t lowBit,
                           int32_t highBit) noexcept {
  if (!buffer || width < 1) return ERR_INVALID_PARAMETER;
  LineConverter converter;
  TARN_TRY(converter.Open({sourceBits, sourceOrder, sourcePalette}, {targetBits, targetOrder, targetPalette},
                          {flags, lowBit, highBit}));
  auto* const line = static_cast<uint8_t*>(buffer);
  converter.Convert(line, line, width);
  return SUCCESS;
}

int32_t T_ConvertBuffer(void* buffer, int32_t width, int32_t sourceBits, int32_t targetBits, uint32_t sourceOrder,
                        uint32_t targetOrder, const T_PaletteEntry* sourcePalette,
                        const T_PaletteEntry* targetPalette) noexcept {
  return T_ConvertBufferExt(buffer, width, sourceBits, targetBits, sourceOrder, targetOrder, sourcePalette,
                            targetPalette, 0, -1, -1);
}

uint64_t T_CalcConvertSize(int32_t sourceWidth, int32_t sourceBits, int32_t targetWidth, int32_t targetBits) noexcept {
  const auto lineBytes = [](int32_t width, int32_t bits) -> uint64_t {
    const int64_t depth = bits == 0 ? 8 : bits;
    if (width < 0 || depth < 0) return 0;
    return (static_cast<uint64_t>(width) * static_cast<uint64_t>(depth) + 31) / 32 * 4;
  };
  uint64_t most = lineBytes(sourceWidth, sourceBits);
  for (const int32_t bits : {sourceBits, targetBits}) {
    const uint64_t bytes = lineBytes(targetWidth, bits);
    if (bytes > most) most = bytes;
  }
  return most;
}

void T_GetGrayParams(int32_t bits, int32_t maximum, int32_t lowBit, int32_t highBit, int32_t* significant,
                     uint32_t* mask, int32_t* shift) noexcept {
  const GrayParams params = GrayParamsOf(bits, maximum, lowBit, highBit);
  if (significant) *significant = params.significant;
  if (mask) *mask = params.mask;
  if (shift) *shift = params.shift;
}
