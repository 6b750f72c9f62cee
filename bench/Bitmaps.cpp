#include "Bitmaps.h"

namespace bench {

Bitmap::Bitmap(int32_t width, int32_t height, int32_t bits, uint32_t memoryType) {
  Require(T_InitBitmap(&record_, sizeof record_, width, height, bits) == SUCCESS, "T_InitBitmap");
  Require(T_AllocateBitmap(&record_, memoryType) == SUCCESS, "T_AllocateBitmap");
}

TiledThreshold::TiledThreshold() {
  T_GetMemoryThresholds(nullptr, &before_, nullptr, nullptr, nullptr);
  Require(T_SetMemoryThresholds(0, 1, 0, 0, 0, T_THRESHOLD_MAX_CONVENTIONAL) == SUCCESS, "T_SetMemoryThresholds");
}

TiledThreshold::~TiledThreshold() { T_SetMemoryThresholds(0, before_, 0, 0, 0, T_THRESHOLD_MAX_CONVENTIONAL); }

}  // namespace bench
