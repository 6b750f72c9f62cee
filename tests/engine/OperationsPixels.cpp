// Logical palettes, single pixels and filling.

#include "engine/Operations.h"

namespace tarn::engine {
namespace {

const T_PaletteEntry kFour[4] = {{1, 2, 3, 0}, {5, 6, 7, 0}, {200, 100, 0, 0}, {255, 255, 255, 0}};

T_LogicalPalette MakeLogical() { return T_CreatePalette(kFour, 4); }

/// A pixel of a tile's last row.
constexpr int32_t kRow = kTileRows - 1;
constexpr int32_t kColumn = 11;

/// A function that makes a logical palette, from the one in `block` or from the subject.
Operation MakeLogicalPalette(const char* name, T_LogicalPalette (*make)(Work& w)) {
  return {.name = name,
          .kinds = Bit(Kind::kBlock),
          .depths = kPaletteDepths,
          .failures = {ERR_NO_MEMORY},
          .prepare =
              [](Work& w) {
                T_CreateBitmapGrayPalette(&w.subject.record);
                w.block = MakeLogical();
                w.Later([block = w.block] { T_DeletePalette(block); });
              },
          .call = [make](Work& w) -> int64_t {
            w.handle = reinterpret_cast<uintptr_t>(make(w));
            return w.handle ? SUCCESS : ERR_NO_MEMORY;
          },
          .finish = [](Work& w) { T_DeletePalette(reinterpret_cast<T_LogicalPalette>(w.handle)); }};
}

}  // namespace

void AddPixelOperations(std::vector<Operation>& table) {
  table.push_back(MakeLogicalPalette("T_CreatePalette", [](Work&) { return MakeLogical(); }));
  table.push_back(MakeLogicalPalette("T_DupPalette", [](Work& w) { return T_DupPalette(w.block); }));
  table.push_back(
      MakeLogicalPalette("T_DupBitmapPalette", [](Work& w) { return T_DupBitmapPalette(&w.subject.record); }));
  Operation set = MakeLogicalPalette("T_SetBitmapPalette", nullptr);
  set.leaves = kNoPalette;
  set.call = [](Work& w) -> int64_t { return T_SetBitmapPalette(&w.subject.record, w.block); };
  set.finish = nullptr;
  table.push_back(set);
  // Without memory for its palette the first entry is the answer.
  Operation nearest = set;
  nearest.name = "T_GetNearestPaletteIndex";
  nearest.leaves = kNothing;
  nearest.failures = {0};
  nearest.call = [](Work& w) -> int64_t { return T_GetNearestPaletteIndex(&w.subject.record, 0xFFFFFF) != 0; };
  table.push_back(nearest);

  const std::vector<int64_t> getting = {ERR_NO_MEMORY, ERR_FILE_SEEK, ERR_FILE_READ};
  const std::vector<int64_t> putting = {ERR_NO_MEMORY, ERR_FILE_SEEK, ERR_FILE_READ, ERR_FILE_WRITE};
  table.push_back(
      {.name = "T_GetPixelColor", .kinds = kAllKinds, .failures = {T_NO_COLOR}, .call = [](Work& w) -> int64_t {
         const uint32_t color = T_GetPixelColor(&w.subject.record, kRow, kColumn);
         w.buffer.assign(1, static_cast<uint8_t>(color));
         return color == T_NO_COLOR ? int64_t{T_NO_COLOR} : int64_t{SUCCESS};
       }});
  table.push_back(
      {.name = "T_PutPixelColor",
       .kinds = kAllKinds,
       .failures = putting,
       .leaves = kSubjectRows,
       .call = [](Work& w) -> int64_t { return T_PutPixelColor(&w.subject.record, kRow, kColumn, 0x804020); }});
  table.push_back({.name = "T_GetPixelData", .kinds = kAllKinds, .failures = getting, .call = [](Work& w) -> int64_t {
                     w.buffer.assign(8, 0);
                     return T_GetPixelData(&w.subject.record, w.buffer.data(), kRow, kColumn, 8);
                   }});
  table.push_back({.name = "T_PutPixelData",
                   .kinds = kAllKinds,
                   .failures = putting,
                   .leaves = kSubjectRows,
                   .prepare = [](Work& w) { w.buffer.assign(8, 0x5A); },
                   .call = [](Work& w) -> int64_t {
                     return T_PutPixelData(&w.subject.record, w.buffer.data(), kRow, kColumn, 8);
                   }});

  const std::vector<int64_t> filling = {ERR_NO_MEMORY, ERR_FILE_SEEK, ERR_FILE_READ, ERR_FILE_WRITE, ERR_DISK_FULL};
  table.push_back({.name = "T_FillBitmap", .kinds = kAllKinds, .failures = filling, .call = [](Work& w) -> int64_t {
                     return T_FillBitmap(&w.subject.record, 0x00B0A0E0);
                   }});
  table.push_back(
      {.name = "T_FillBitmap, one byte", .kinds = kAllKinds, .failures = filling, .call = [](Work& w) -> int64_t {
         return T_FillBitmap(&w.subject.record, 0x00FFFFFF);
       }});
  table.push_back({.name = "T_ClearBitmap", .kinds = kAllKinds, .failures = filling, .call = [](Work& w) -> int64_t {
                     return T_ClearBitmap(&w.subject.record);
                   }});
}

}  // namespace tarn::engine
