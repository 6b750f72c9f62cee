// Combining, warping, scrambling.

#include "engine/Operations.h"

namespace tarn::engine {
namespace {

const std::vector<int64_t> kFailures = {ERR_NO_MEMORY, ERR_FILE_WRITE, ERR_FILE_SEEK, ERR_FILE_READ, ERR_DISK_FULL};

/// The subject and another bitmap of a kind (kCount: the subject's own) and depth (0: the subject's own).
Operation WithOther(const char* name, Kind kind, int32_t bits, std::function<int64_t(Work& w)> call) {
  return {.name = name,
          .kinds = kAllKinds,
          .failures = kFailures,
          .prepare =
              [kind, bits](Work& w) {
                Shape shape = w.shape;
                if (bits) shape.bits = bits;
                w.other.Make(kind == Kind::kCount || !shape.Suits(kind) ? w.kind : kind, shape, 41);
              },
          .call = std::move(call)};
}

/// The same, with colours of deep gray by a table in one of the two.
Operation WithTable(const char* name, bool inSubject, std::function<int64_t(Work& w)> call) {
  Operation row = WithOther(name, Kind::kBlock, inSubject ? 24 : 12, std::move(call));
  if (inSubject) row.depths = DepthBit(12) | DepthBit(16);
  row.prepare = [inSubject, prepare = row.prepare](Work& w) {
    prepare(w);
    GiveTable(inSubject ? w.subject.record : w.other.record, w.random);
  };
  return row;
}

/// Corners around and beyond the bitmap.
int64_t WarpOnto(BitmapHandle& target, BitmapHandle& source, uint32_t flags) {
  const int32_t width = 256 * target.Width, height = 256 * target.Height;
  const T_WarpPoint points[4] = {{700, -300}, {width + 900, 400}, {width - 1100, height + 77}, {-200, height - 500}};
  return T_CombineBitmapWarp(&target, points, &source, nullptr, flags);
}

}  // namespace

void AddCombineOperations(std::vector<Operation>& table) {
  table.push_back(WithOther("T_CombineBitmapKrn, or", Kind::kCount, 0, [](Work& w) -> int64_t {
    return T_CombineBitmapKrn(&w.subject.record, 5, 1, &w.other.record, 2, 3, 24, 6,
                              T_COMBINE_OR | T_COMBINE_INVERT_SOURCE);
  }));
  table.push_back(WithOther("T_CombineBitmapKrn, copy of colours on disk", Kind::kDisk, 24, [](Work& w) -> int64_t {
    return T_CombineBitmapKrn(&w.subject.record, -3, 0, &w.other.record, 0, 2, 30, 20, T_COMBINE_COPY);
  }));
  table.push_back(WithOther("T_CombineBitmapKrn, alpha", Kind::kBlock, 32, [](Work& w) -> int64_t {
    return T_CombineBitmapKrn(&w.subject.record, 1, 1, &w.other.record, 0, 0, 30, 20, T_COMBINE_ALPHA);
  }));
  table.push_back({.name = "T_CombineBitmapKrn, onto itself",
                   .kinds = kAllKinds,
                   .failures = kFailures,
                   .call = [](Work& w) -> int64_t {
                     BitmapHandle& b = w.subject.record;
                     return T_CombineBitmapKrn(&b, 4, 2, &b, 1, 0, 30, 8, T_COMBINE_AVERAGE);
                   }});
  // Memory of the caller's in which the second bitmap begins a row and four bytes later.
  table.push_back({.name = "T_CombineBitmapKrn, onto the rows before its own",
                   .kinds = Bit(Kind::kCaller),
                   .failures = kFailures,
                   .prepare =
                       [](Work& w) {
                         T_InitBitmap(&w.other.record, 212, w.shape.width, w.shape.height - 2, w.shape.bits);
                         T_AllocateBitmap(&w.other.record, TYPE_USER);
                         T_SetBitmapDataPointer(&w.other.record, w.subject.record.Data + w.shape.RowBytes() + 4,
                                                uint64_t{w.other.record.Size});
                       },
                   .call = [](Work& w) -> int64_t {
                     return T_CombineBitmapKrn(&w.subject.record, 1, 2, &w.other.record, 0, 0, 17, 7, T_COMBINE_XOR);
                   }});
  const auto average = [](Work& w) -> int64_t {
    return T_CombineBitmapKrn(&w.subject.record, 2, 1, &w.other.record, 1, 0, 30, 20, T_COMBINE_AVERAGE);
  };
  table.push_back(WithTable("T_CombineBitmapKrn, onto a table's colours", true, average));
  table.push_back(WithTable("T_CombineBitmapKrn, from a table's colours", false, average));
  table.push_back(WithTable("T_CombineBitmapWarp, from a table's colours", false, [](Work& w) -> int64_t {
    return WarpOnto(w.subject.record, w.other.record, T_WARP_NEAREST);
  }));
  table.push_back(WithOther("T_CombineBitmapWarp, nearest", Kind::kCount, 0, [](Work& w) -> int64_t {
    return WarpOnto(w.subject.record, w.other.record, T_WARP_NEAREST);
  }));
  table.push_back(WithOther("T_CombineBitmapWarp, bilinear", Kind::kSwapTiles, 0, [](Work& w) -> int64_t {
    return WarpOnto(w.subject.record, w.other.record, T_WARP_BILINEAR);
  }));
  table.push_back(
      {.name = "T_CombineBitmapWarp, onto itself",
       .kinds = kAllKinds,
       .failures = kFailures,
       .call = [](Work& w) -> int64_t { return WarpOnto(w.subject.record, w.subject.record, T_WARP_BILINEAR); }});
  table.push_back(
      {.name = "T_ScrambleBitmap", .kinds = kAllKinds, .failures = kFailures, .call = [](Work& w) -> int64_t {
         return T_ScrambleBitmap(&w.subject.record, 3, 1, w.shape.width - 6, w.shape.height - 2, 0xABCD1234,
                                 T_SCRAMBLE_SCRAMBLE);
       }});
  table.push_back(
      {.name = "T_ScrambleBitmap, restore", .kinds = kAllKinds, .failures = kFailures, .call = [](Work& w) -> int64_t {
         return T_ScrambleBitmap(&w.subject.record, 0, 0, w.shape.width, w.shape.height, 7, T_SCRAMBLE_RESTORE);
       }});
}

}  // namespace tarn::engine
