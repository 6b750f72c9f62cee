// Duplicates, copies of pixels, palettes.

#include <cstring>

#include "Common/Internal/Overlays.h"
#include "Platform/Here.h"
#include "engine/Operations.h"

namespace tarn::engine {
namespace {

// Regions that are blocks of the heap.
int32_t DuplicateRegion(uint64_t* region, const BitmapHandle*) {
  const Here here = TARN_HERE;
  *region = reinterpret_cast<uintptr_t>(T_LocalAlloc(1, 16, here.line, here.file));
  return *region ? SUCCESS : ERR_NO_MEMORY;
}
void DeleteRegion(uint64_t region) {
  const Here here = TARN_HERE;
  T_LocalFree(reinterpret_cast<void*>(region), here.line, here.file);
}
int32_t ShiftRegion(BitmapHandle* destination, const BitmapHandle* source, int32_t, int32_t) {
  uint64_t region = 0;
  const int32_t status = DuplicateRegion(&region, source);
  destination->Region = region;
  return status;
}
constexpr T_RegionHooks kRegionHooks = {
    sizeof(T_RegionHooks), 0, DuplicateRegion, DeleteRegion, nullptr, nullptr, nullptr, nullptr, ShiftRegion, nullptr};

T_OverlayList* MakeOverlays() {
  const Here here = TARN_HERE;
  auto* const list = static_cast<T_OverlayList*>(
      T_LocalAllocInit(1, sizeof(T_OverlayList) + 3 * sizeof(Overlay), here.line, here.file));
  list->count = 3;  // the second has no bitmap
  for (const uint32_t i : {0u, 2u}) {
    T_CreateBitmap(&list->Items()[i].bitmap, sizeof(BitmapHandle), TYPE_CONV, 5, 4, 8, 0, nullptr, 1, nullptr, 0);
    list->Items()[i].inUse = 1;
  }
  return list;
}

/// Gives the subject everything that a bitmap can own.
void Furnish(Work& w) {
  BitmapHandle& record = w.subject.record;
  const Here here = TARN_HERE;
  if (w.shape.bits <= 8) T_CreateBitmapGrayPalette(&record);
  if (w.shape.bits == 12 || w.shape.bits == 16) {
    record.LUTLength = 256;
    record.LUT = static_cast<T_PaletteEntry*>(T_GlobalAlloc(256, sizeof(T_PaletteEntry), here.line, here.file));
    for (uint32_t i = 0; i < 256; ++i) record.LUT[i] = {w.random.Byte(), w.random.Byte(), w.random.Byte(), 0};
    record.Flags |= T_FLAG_LUT_IN_USE;
  }
  static_cast<uint8_t*>(record.GrayParams)[7] = w.random.Byte();
  record.Overlays = MakeOverlays();
  const T_RegionHooks* const before = T_SetRegionHooks(&kRegionHooks);
  w.Later([before] { T_SetRegionHooks(before); });
  uint64_t region = 0;
  DuplicateRegion(&region, nullptr);
  record.Region = region;
}

Operation Duplicate(const char* name, uint32_t mode, int32_t otherBits) {
  return {.name = name,
          .kinds = kAllKinds,
          .failures = {ERR_NO_MEMORY, ERR_FILE_WRITE, ERR_FILE_SEEK, ERR_FILE_READ, ERR_DISK_FULL},
          .alone = true,  // region hooks are the process's
          .prepare = Furnish,
          .call =
              [=](Work& w) {
                return T_DupBitmapNewDim(&w.made, &w.subject.record, sizeof w.made, w.shape.width + 3,
                                         w.shape.height - 1, otherBits ? otherBits : w.shape.bits, mode);
              },
          .finish = [mode](Work& w) { T_FreeDuplicateBitmap(&w.made, mode); },
          .afterFailure = [](Work& w) -> std::string {
            return w.made.Palette || w.made.Region || w.made.Overlays || w.made.LUT || w.made.GrayParams
                       ? "the duplicate still has something; "
                       : "";
          }};
}

Operation CopyInto(Kind target, uint64_t depths = kAllDepths) {
  static std::string names[kKinds];
  std::string& name = names[static_cast<int>(target)];
  name = std::string("T_CopyBitmapData into ") + NameOf(target);
  return {.name = name.c_str(),
          .kinds = kAllKinds,
          .depths = depths,
          .failures = {ERR_NO_MEMORY, ERR_FILE_WRITE, ERR_FILE_SEEK, ERR_FILE_READ},
          .leaves = kOtherRows | kUnpacked,
          .prepare = [target](Work& w) { w.other.Make(w.shape.Suits(target) ? target : Kind::kBlock, w.shape, 99); },
          .call = [](Work& w) { return T_CopyBitmapData(&w.other.record, &w.subject.record); }};
}

const std::vector<int64_t> kCopying = {ERR_NO_MEMORY, ERR_FILE_WRITE, ERR_FILE_SEEK, ERR_FILE_READ, ERR_DISK_FULL};

/// A bitmap made from the subject, which has all that a bitmap can own.
Operation CopyToNew(const char* name, std::function<int64_t(BitmapHandle*, BitmapHandle*, const Shape&)> copy) {
  return {.name = name,
          .kinds = kAllKinds,
          .failures = kCopying,
          .alone = true,  // region hooks are the process's
          .prepare = Furnish,
          .call = [copy](Work& w) { return copy(&w.made, &w.subject.record, w.shape); },
          .afterFailure = [](Work& w) -> std::string {
            return w.made.Palette || w.made.Region || w.made.Overlays || w.made.LUT || w.made.GrayParams
                       ? "the copy still has something; "
                       : "";
          }};
}

/// The subject replaced by a part of itself.
Operation CutDown(const char* name, std::function<int64_t(BitmapHandle*, const Shape&)> cut) {
  return {.name = name,
          .kinds = kAllKinds,
          .failures = kCopying,
          .alone = true,
          .prepare = Furnish,
          .call = [cut](Work& w) { return cut(&w.subject.record, w.shape); }};
}

void AddCopiesAndCuts(std::vector<Operation>& table) {
  table.push_back(CopyToNew(
      "T_CopyBitmap", [](BitmapHandle* to, BitmapHandle* from, const Shape&) { return T_CopyBitmap(to, from, 212); }));
  table.push_back(CopyToNew("T_CopyBitmap2, disk", [](BitmapHandle* to, BitmapHandle* from, const Shape&) {
    return T_CopyBitmap2(to, from, TYPE_DISK, 212);
  }));
  table.push_back(CopyToNew("T_CopyBitmap2, tiles", [](BitmapHandle* to, BitmapHandle* from, const Shape&) {
    return T_CopyBitmap2(to, from, TYPE_TILED, 212);
  }));
  table.push_back(CopyToNew("T_CopyBitmap2, compressed", [](BitmapHandle* to, BitmapHandle* from, const Shape&) {
    return T_CopyBitmap2(to, from, TYPE_COMPRESSED | TYPE_NODISK, 212);
  }));
  table.push_back(CopyToNew("T_CopyBitmapRect, inside", [](BitmapHandle* to, BitmapHandle* from, const Shape& shape) {
    return T_CopyBitmapRect(to, from, 212, shape.width / 3, 1, (shape.width + 2) / 3, shape.height - 1);
  }));
  table.push_back(CopyToNew("T_CopyBitmapRect, whole rows", [](BitmapHandle* to, BitmapHandle* from, const Shape& s) {
    return T_CopyBitmapRect(to, from, 212, 0, 1, s.width, s.height);
  }));
  table.push_back(CopyToNew("T_CopyBitmapRect2, disk", [](BitmapHandle* to, BitmapHandle* from, const Shape& shape) {
    return T_CopyBitmapRect2(to, from, 212, -3, -1, shape.width, shape.height, TYPE_DISK);
  }));
  table.push_back(CutDown("T_CopyBitmapRect in place", [](BitmapHandle* bitmap, const Shape& shape) {
    return T_CopyBitmapRect(nullptr, bitmap, 212, -5, -2, shape.width + 3, shape.height + 5);
  }));
  table.push_back(CutDown("T_CopyBitmapRect2 in place, disk", [](BitmapHandle* bitmap, const Shape& shape) {
    return T_CopyBitmapRect2(bitmap, bitmap, 212, 0, 0, shape.width, shape.height - 1, TYPE_DISK);
  }));
  table.push_back(CutDown("T_TrimBitmap", [](BitmapHandle* bitmap, const Shape& shape) {
    return T_TrimBitmap(bitmap, shape.width / 2, 1, shape.width, shape.height);
  }));
}

/// A function that makes a palette for the caller.
Operation MakePalette(const char* name, T_PaletteEntry* (*make)(uint32_t bits)) {
  return {.name = name,
          .depths = kPaletteDepths,
          .failures = {ERR_NO_MEMORY},
          .call = [make](Work& w) -> int64_t {
            w.block = make(static_cast<uint32_t>(w.shape.bits));
            return w.block ? SUCCESS : ERR_NO_MEMORY;
          },
          .finish =
              [](Work& w) {
                const Here here = TARN_HERE;
                T_GlobalFree(w.block, here.line, here.file);
              }};
}

/// A function that gives a bitmap without palette one.
Operation GivePalette(const char* name, int64_t failure, std::function<int64_t(BitmapHandle*)> give) {
  return {.name = name,
          .kinds = Bit(Kind::kBlock),
          .depths = kPaletteDepths,
          .failures = {failure},
          .call = [give = std::move(give)](Work& w) { return give(&w.subject.record); }};
}

const T_PaletteEntry kEntries[2] = {{1, 2, 3, 4}, {5, 6, 7, 8}};

}  // namespace

void AddCopyOperations(std::vector<Operation>& table) {
  table.push_back(Duplicate("T_DupBitmapNewDim 0", 0, 0));
  table.push_back(Duplicate("T_DupBitmapNewDim, storage", DUP_STORAGE, 0));
  table.push_back(Duplicate("T_DupBitmapNewDim, storage of 24 bits", DUP_STORAGE, 24));
  table.push_back(Duplicate("T_DupBitmapNewDim, palette and region", DUP_PALETTE | DUP_REGION, 0));
  table.push_back(Duplicate("T_DupBitmapNewDim, overlays", DUP_OVERLAYS, 0));
  table.push_back(Duplicate("T_DupBitmapNewDim, everything", DUP_STORAGE | DUP_PALETTE | DUP_REGION | DUP_OVERLAYS, 0));
  for (int kind = 0; kind < kKinds; ++kind)
    table.push_back(CopyInto(static_cast<Kind>(kind), DepthsOf(static_cast<Kind>(kind))));
  AddCopiesAndCuts(table);

  table.push_back(MakePalette("T_CreateFixedPalette", T_CreateFixedPalette));
  table.push_back(MakePalette("T_CreateGrayPalette", T_CreateGrayPalette));
  table.push_back(MakePalette("T_CreateNewPalette", [](uint32_t) { return T_CreateNewPalette(kEntries, 2); }));
  table.push_back(GivePalette("T_CreateBitmapGrayPalette", ERR_NO_MEMORY, T_CreateBitmapGrayPalette));
  table.push_back(GivePalette("T_CreateBitmapFixedPalette", ERR_NO_MEMORY, T_CreateBitmapFixedPalette));
  table.push_back(GivePalette("T_PutBitmapColors", ERR_NO_MEMORY,
                              [](BitmapHandle* bitmap) { return T_PutBitmapColors(bitmap, 0, 2, kEntries); }));
  Operation replaced = GivePalette("T_SetBitmapNewPalette", 0,
                                   [](BitmapHandle* bitmap) { return T_SetBitmapNewPalette(bitmap, kEntries, 2); });
  replaced.leaves = kNoPalette;
  replaced.prepare = [](Work& w) { T_CreateBitmapGrayPalette(&w.subject.record); };
  table.push_back(replaced);
  replaced.name = "T_CopyBitmapPalette";
  replaced.prepare = [](Work& w) {
    T_CreateBitmapGrayPalette(&w.subject.record);
    w.other.Make(Kind::kBlock, w.shape, 1);
    T_CreateBitmapFixedPalette(&w.other.record);
  };
  replaced.call = [](Work& w) { return T_CopyBitmapPalette(&w.subject.record, &w.other.record); };
  table.push_back(replaced);
}

}  // namespace tarn::engine
