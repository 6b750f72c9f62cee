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

/// A list of two copies of the subject.
T_BitmapList* ListOf(Work& w) {
  T_BitmapList* list = nullptr;
  T_CreateBitmapList(&list);
  for (int i = 0; i < 2; ++i) {
    BitmapHandle copy;
    T_CopyBitmap(&copy, &w.subject.record, sizeof copy);
    T_InsertBitmapListItem(list, T_LIST_END, &copy);
  }
  w.block = list;
  w.Later([list] { T_DestroyBitmapList(list); });
  return list;
}

}  // namespace

void AddColorOperations(std::vector<Operation>& table) {
  table.push_back(GrayScale("T_GrayScaleBitmap 8", 8));
  table.push_back(GrayScale("T_GrayScaleBitmap 12", 12));
  table.push_back(GrayScale("T_GrayScaleBitmap 16", 16));
  table.push_back(GrayScale("T_GrayScaleBitmap 32", 32));
  Operation decoded = GrayScale("T_GrayScaleBitmap through a table", 16);
  decoded.depths = DepthBit(12) | DepthBit(16);
  decoded.prepare = [](Work& w) { GiveTable(w.subject.record, w.random); };
  table.push_back(decoded);
  table.push_back({.name = "T_CreateGrayScaleBitmap", .kinds = kAllKinds, .failures = kFailures, .call = [](Work& w) {
                     return T_CreateGrayScaleBitmap(&w.made, &w.subject.record, 8, sizeof w.made);
                   }});
  Operation decodedCopy = table.back();
  decodedCopy.name = "T_CreateGrayScaleBitmap through a table";
  decodedCopy.depths = DepthBit(12) | DepthBit(16);
  decodedCopy.prepare = [](Work& w) { GiveTable(w.subject.record, w.random); };
  table.push_back(decodedCopy);
  table.push_back({.name = "T_GetBitmapAlpha", .kinds = kAllKinds, .failures = kFailures, .call = [](Work& w) {
                     return T_GetBitmapAlpha(&w.subject.record, &w.made, sizeof w.made);
                   }});
  table.push_back({.name = "T_SetBitmapAlpha",
                   .kinds = kAllKinds,
                   .failures = kFailures,
                   .prepare =
                       [](Work& w) {
                         w.other.Make(Kind::kBlock, {w.shape.width - 2, w.shape.height + 1, 8}, 7);
                       },
                   .call = [](Work& w) { return T_SetBitmapAlpha(&w.subject.record, &w.other.record); }});
  table.push_back(table.back());
  table.back().name = "T_SetBitmapAlpha, levels in a file";
  table.back().prepare = [](Work& w) {
    const int32_t bits = w.shape.bits == 16 ? 1 : w.shape.bits == 64 ? 16 : 8;
    w.other.Make(Kind::kDisk, {w.shape.width, w.shape.height, bits}, 7);
    if (bits == 8) T_CreateBitmapGrayPalette(&w.other.record);
    if (bits == 16) w.other.record.Order = T_ORDER_GRAY;
  };
  table.push_back({.name = "T_ShearBitmap", .kinds = kAllKinds, .failures = kFailures, .call = [](Work& w) {
                     return T_ShearBitmap(&w.subject.record, -1200, 1, 0);
                   }});
  table.push_back({.name = "T_ShearBitmap, columns", .kinds = kAllKinds, .failures = kFailures, .call = [](Work& w) {
                     return T_ShearBitmap(&w.subject.record, 1200, 0, 0);
                   }});
  Operation decodedColors = Resolve("T_ColorResBitmap 24 through a table", 24, 0);
  decodedColors.depths = DepthBit(12) | DepthBit(16);
  decodedColors.prepare = [](Work& w) { GiveTable(w.subject.record, w.random); };
  table.push_back(decodedColors);
  table.push_back({.name = "T_CopyBitmapListItems",
                   .kinds = Bit(Kind::kBlock),
                   .failures = kFailures,
                   .prepare = [](Work& w) { ListOf(w); },
                   .call =
                       [](Work& w) {
                         T_BitmapList* copied = nullptr;
                         const int32_t status =
                             T_CopyBitmapListItems(&copied, static_cast<T_BitmapList*>(w.block), 0, T_LIST_END);
                         if (status == SUCCESS) T_DestroyBitmapList(copied);
                         return status;
                       }});
  table.push_back({.name = "T_ColorResBitmapList",
                   .kinds = Bit(Kind::kBlock),
                   .depths = DepthBit(24),
                   .failures = kFailures,
                   .prepare =
                       [](Work& w) {
                         T_ColorResBitmap(&w.subject.record, nullptr, sizeof(BitmapHandle), 24, 0, nullptr, nullptr, 0,
                                          nullptr, nullptr);
                       },
                   .call =
                       [](Work& w) {
                         T_BitmapList* list = nullptr;
                         int32_t status = T_CreateBitmapList(&list);
                         if (status != SUCCESS) return status;
                         BitmapHandle copy;
                         status = T_CopyBitmap(&copy, &w.subject.record, sizeof copy);
                         if (status == SUCCESS) status = T_InsertBitmapListItem(list, 0, &copy);
                         if (status == SUCCESS) {
                           status =
                               T_ColorResBitmapList(list, 8, T_RES_PALETTE, T_IntGetNetscapePalette(), nullptr, 200);
                         } else if (copy.Flags & T_FLAG_ALLOCATED) {
                           T_FreeBitmap(&copy);
                         }
                         T_DestroyBitmapList(list);
                         return status;
                       }});
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
