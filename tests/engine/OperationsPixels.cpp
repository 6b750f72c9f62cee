// Logical palettes, single pixels and filling.

#include "engine/Operations.h"

namespace tarn::engine {
namespace {

const T_PaletteEntry kFour[4] = {{1, 2, 3, 0}, {5, 6, 7, 0}, {200, 100, 0, 0}, {255, 255, 255, 0}};

T_LogicalPalette MakeLogical() { return T_CreatePalette(kFour, 4); }

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
}

}  // namespace tarn::engine
