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

constexpr uint32_t kDitherColors = 20;

/// A run over all lines of a bitmap to a palette that is no fixed table.
int64_t DitherAll(Work& w) {
  BitmapHandle& record = w.subject.record;
  T_PaletteEntry palette[kDitherColors];
  for (uint8_t i = 0; i < kDitherColors; ++i)
    palette[i] = {static_cast<uint8_t>(13 * i), i, static_cast<uint8_t>(200 - i), 0};
  const int32_t started = T_StartDithering(&record, palette, kDitherColors);
  if (started != SUCCESS) return started;
  const size_t bytes = (static_cast<size_t>(w.shape.width) * 5 + 7) / 8;
  w.buffer.assign(bytes * static_cast<uint32_t>(w.shape.height), 0);
  Bytes line(w.shape.RowBytes());
  for (int32_t row = 0; row < w.shape.height; ++row) {
    T_GetBitmapRow(&record, line.data(), static_cast<uint32_t>(row), line.size());
    T_DitherLine(&record, line.data(), w.buffer.data() + bytes * static_cast<uint32_t>(row));
  }
  return T_StopDithering(&record);
}

Operation Resolve(const char* name, int32_t bits, uint32_t flags) {
  return {.name = name, .kinds = kAllKinds, .failures = kFailures, .call = [=](Work& w) {
            return T_ColorResBitmap(&w.subject.record, nullptr, sizeof(BitmapHandle), bits, flags, nullptr, nullptr, 0,
                                    nullptr, nullptr);
          }};
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
  Operation decodedCopy = table.back();
  decodedCopy.name = "T_CreateGrayScaleBitmap through a table";
  decodedCopy.depths = DepthBit(12) | DepthBit(16);
  decodedCopy.prepare = GiveTable;
  table.push_back(decodedCopy);
  table.push_back(Resolve("T_ColorResBitmap 1", 1, T_RES_FIXED | T_RES_DITHER(DITHER_FLOYD_STEINBERG)));
  table.push_back(Resolve("T_ColorResBitmap 4, optimized", 4, T_RES_OPTIMIZED | T_RES_DITHER(DITHER_STUCKI)));
  table.push_back(Resolve("T_ColorResBitmap 8, web", 8, T_RES_WEB | T_RES_DITHER(DITHER_ORDERED)));
  table.push_back(Resolve("T_ColorResBitmap 24", 24, 0));
  table.push_back(
      {.name = "T_ColorResBitmap into another", .kinds = kAllKinds, .failures = kFailures, .call = [](Work& w) {
         return T_ColorResBitmap(&w.subject.record, &w.made, sizeof w.made, 2, T_RES_OPTIMIZED, nullptr, nullptr, 0,
                                 nullptr, nullptr);
       }});
  table.push_back({.name = "T_GetBitmapColorCountExt", .kinds = kAllKinds, .failures = kFailures, .call = [](Work& w) {
                     uint32_t count = 20;
                     T_PaletteEntry palette[20] = {};
                     const int32_t status = T_GetBitmapColorCountExt(&w.subject.record, &count, palette);
                     const auto* const bytes = reinterpret_cast<const uint8_t*>(palette);
                     w.buffer.assign(bytes, bytes + sizeof palette);
                     w.buffer.push_back(static_cast<uint8_t>(count));
                     return status;
                   }});
  for (const uint32_t method : {DITHER_NONE, DITHER_FLOYD_STEINBERG, DITHER_STEVENSON_ARCE}) {
    static const char* const names[] = {"T_DitherLine", "T_DitherLine, one line of errors",   nullptr, nullptr,
                                        nullptr,        "T_DitherLine, three lines of errors"};
    table.push_back({.name = names[method],
                     .kinds = Bit(Kind::kBlock),
                     .failures = {ERR_NO_MEMORY},
                     .prepare = [method](Work& w) { w.subject.record.DitheringMethod = method; },
                     .call = DitherAll});
  }
  table.push_back({.name = "T_CreateUserMatchTable",
                   .depths = DepthBit(1),
                   .failures = {ERR_NO_MEMORY},
                   .call = [](Work& w) -> int64_t {
                     w.block = T_CreateUserMatchTable(T_IntGetNetscapePalette(), 216);
                     return w.block ? SUCCESS : ERR_NO_MEMORY;
                   },
                   .finish =
                       [](Work& w) {
                         const auto* const bytes = static_cast<const uint8_t*>(w.block);
                         w.buffer.assign(bytes, bytes + sizeof(uint32_t) * T_MATCH_TABLE_ENTRIES);
                         T_FreeUserMatchTable(static_cast<uint32_t*>(w.block));
                       }});
  table.push_back(Narrow("T_Gray32To16", T_Gray32To16));
  table.push_back(Narrow("T_Gray32To8", T_Gray32To8));
}

}  // namespace tarn::engine
