// Flipping, mirroring, rotating.

#include "Common/Internal/Rotate.h"
#include "engine/Operations.h"

namespace tarn::engine {
namespace {

const std::vector<int64_t> kFailures = {ERR_NO_MEMORY, ERR_FILE_WRITE, ERR_FILE_SEEK, ERR_FILE_READ, ERR_DISK_FULL};

Operation InPlace(const char* name, std::function<int64_t(BitmapHandle& bitmap)> change) {
  return {.name = name, .kinds = kAllKinds, .failures = kFailures, .call = [change](Work& w) {
            return change(w.subject.record);
          }};
}

constexpr uint32_t kFill = 0x00C08040;

/// Between two perspectives that the record is said to have and gets.
Operation Perspective(const char* name, uint32_t from, uint32_t to) {
  Operation row =
      InPlace(name, [to](BitmapHandle& b) { return T_ChangeBitmapViewPerspective(nullptr, &b, sizeof b, to); });
  row.prepare = [from](Work& w) { w.subject.record.ViewPerspective = from; };
  return row;
}

Operation Rotation(const char* name, int32_t angle, uint32_t flags) {
  return InPlace(name, [=](BitmapHandle& b) { return T_RotateBitmap(&b, angle, flags, kFill); });
}

/// Samples are mixed where indices are gray levels.
Operation GrayRotation(const char* name, int32_t angle, uint32_t flags) {
  Operation row = Rotation(name, angle, flags);
  row.depths = ~uint64_t{0x7F};
  row.prepare = [](Work& w) {
    if (w.shape.bits == 8) T_CreateBitmapGrayPalette(&w.subject.record);
  };
  return row;
}

}  // namespace

void AddGeometryOperations(std::vector<Operation>& table) {
  table.push_back(InPlace("T_FlipBitmap", [](BitmapHandle& b) { return T_FlipBitmap(&b); }));
  table.push_back(InPlace("T_ReverseBitmap", [](BitmapHandle& b) { return T_ReverseBitmap(&b); }));
  table.push_back(Perspective("T_ChangeBitmapViewPerspective, main diagonal", 1, 5));
  table.push_back(Perspective("T_ChangeBitmapViewPerspective, other diagonal", 7, 1));
  table.push_back(Perspective("T_ChangeBitmapViewPerspective, left to right", 3, 4));
  table.push_back(
      {.name = "T_ChangeBitmapViewPerspective, copy", .kinds = kAllKinds, .failures = kFailures, .call = [](Work& w) {
         return T_ChangeBitmapViewPerspective(&w.made, &w.subject.record, sizeof w.made, 6);
       }});
  table.push_back(Rotation("T_RotateBitmap, quarter turn right", 9000, ROTATE_RESIZE));
  table.push_back(Rotation("T_RotateBitmap, quarter turn left", -9000, ROTATE_RESIZE));
  Operation pieces = Rotation("T_RotateBitmap, quarter turn of a file by pieces", 9000, ROTATE_RESIZE);
  pieces.kinds = Bit(Kind::kDisk);
  pieces.alone = true;
  pieces.prepare = [](Work& w) {
    const int64_t before = SetTurnRoom(100);
    w.Later([before] { SetTurnRoom(before); });
  };
  table.push_back(pieces);
  table.push_back(Rotation("T_RotateBitmap, half turn", 18000, 0));
  table.push_back(Rotation("T_RotateBitmap, nearest", 1730, 0));
  table.push_back(GrayRotation("T_RotateBitmap, corrected", -12345, ROTATE_RESIZE | ROTATE_CORRECT));
  table.push_back(GrayRotation("T_RotateBitmap, bilinear", 1730, ROTATE_RESIZE | ROTATE_BILINEAR));
}

}  // namespace tarn::engine
