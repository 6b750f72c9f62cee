/* The public headers from C: what the C compiler makes of them, and calls through them. Abi_test.cpp asks. */

#include <string.h>

#include "tests/AbiFacts.h"

static const struct AbiFact facts[] = {TARN_ABI_FACTS(TARN_ABI_FACT)};

const struct AbiFact* FactsInC(size_t* count) {
  *count = sizeof facts / sizeof facts[0];
  return facts;
}

const char* UseBitmapInC(const struct CCalls* calls) {
  T_Version version;
  BitmapHandle bitmap;
  uint8_t row[12] = {0}, back[12];
  int32_t y;

  if (calls->T_VersionInfo_(&version, sizeof version) != SUCCESS) return "version";
  if (strcmp(version.Product, "Tarn Imaging Kernel") != 0) return "product name";
  if (calls->T_InitBitmap_(&bitmap, sizeof bitmap, 3, 5, 24) != SUCCESS) return "init";
  if (bitmap.BytesPerLine != sizeof row || bitmap.Size != 60 || bitmap.XResolution != 150) return "geometry";
  if (calls->T_AllocateBitmap_(&bitmap, TYPE_CONV) != SUCCESS) return "allocate";
  for (y = 0; y < bitmap.Height; ++y) {
    row[0] = (uint8_t)(y + 1);
    if (calls->T_PutBitmapRow_(&bitmap, row, (uint32_t)y, sizeof row) != (int64_t)sizeof row) return "put";
  }
  for (y = 0; y < bitmap.Height; ++y) {
    if (calls->T_GetBitmapRow_(&bitmap, back, (uint32_t)y, sizeof back) != (int64_t)sizeof back) return "get";
    if (back[0] != y + 1) return "row contents";
  }
  calls->T_FreeBitmap_(&bitmap);
  return (bitmap.Flags & T_FLAG_ALLOCATED) == 0 ? NULL : "free";
}
