// Gray scale and other changes of a bitmap's format.

#include "Platform/Here.h"
#include "engine/Operations.h"

namespace tarn::engine {
namespace {

const std::vector<int64_t> kFailures = {ERR_NO_MEMORY, ERR_FILE_WRITE, ERR_FILE_SEEK, ERR_FILE_READ, ERR_DISK_FULL};

Operation GrayScale(const char* name, int32_t bits) {
  return {.name = name, .kinds = kAllKinds, .failures = kFailures, .call = [bits](Work& w) {
            return T_GrayScaleBitmap(&w.subject.record, bits);
          }};
}

Operation Narrow(const char* name, int32_t (*narrow)(BitmapHandle*)) {
  return {.name = name,
          .kinds = kAllKinds,
          .depths = DepthBit(32),
          .failures = kFailures,
          .prepare =
              [](Work& w) {
                w.subject.record.Order = T_ORDER_GRAY;
                w.subject.record.MinValue = 1000;
                w.subject.record.MaxValue = 0x70000000;
              },
          .call = [narrow](Work& w) { return narrow(&w.subject.record); }};
}

void GiveTable(Work& w) {
  BitmapHandle& record = w.subject.record;
  const Here here = TARN_HERE;
  record.Order = T_ORDER_GRAY;
  record.LUTLength = 4096;
  record.LUT = static_cast<T_PaletteEntry*>(T_GlobalAlloc(4096, sizeof(T_PaletteEntry), here.line, here.file));
  for (uint32_t i = 0; i < 4096; ++i) record.LUT[i] = {w.random.Byte(), w.random.Byte(), w.random.Byte(), 0};
  record.Flags |= T_FLAG_LUT_IN_USE;
}

}  // namespace

void AddColorOperations(std::vector<Operation>& table) {
  table.push_back(GrayScale("T_GrayScaleBitmap 8", 8));
  table.push_back(GrayScale("T_GrayScaleBitmap 12", 12));
  table.push_back(GrayScale("T_GrayScaleBitmap 16", 16));
  table.push_back(GrayScale("T_GrayScaleBitmap 32", 32));
  Operation decoded = GrayScale("T_GrayScaleBitmap through a table", 16);
  decoded.depths = DepthBit(12) | DepthBit(16);
  decoded.prepare = GiveTable;
  table.push_back(decoded);
  table.push_back({.name = "T_CreateGrayScaleBitmap", .kinds = kAllKinds, .failures = kFailures, .call = [](Work& w) {
                     return T_CreateGrayScaleBitmap(&w.made, &w.subject.record, 8, sizeof w.made);
                   }});
  table.push_back(Narrow("T_Gray32To16", T_Gray32To16));
  table.push_back(Narrow("T_Gray32To8", T_Gray32To8));
}

}  // namespace tarn::engine
