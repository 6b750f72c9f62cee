// Bitmaps and rows in another size.

#include "engine/Operations.h"

namespace tarn::engine {
namespace {

const std::vector<int64_t> kFailures = {ERR_NO_MEMORY, ERR_FILE_WRITE, ERR_FILE_SEEK, ERR_FILE_READ, ERR_DISK_FULL};

/// Wider and lower, or the other way round.
Operation Size(const char* name, uint32_t flags, bool wider) {
  return {.name = name, .kinds = kAllKinds, .failures = kFailures, .call = [flags, wider](Work& w) {
            const int32_t width = w.shape.width, height = w.shape.height;
            return T_SizeBitmap(&w.subject.record, wider ? width * 2 + 1 : (width + 2) / 3,
                                wider ? (height + 1) / 2 : height * 3 + 1, flags);
          }};
}

/// Into a bitmap of the same kind.
Operation Resize(const char* name, uint32_t perspective, int32_t (*resize)(BitmapHandle*, BitmapHandle*)) {
  return {.name = name,
          .kinds = kAllKinds,
          .failures = kFailures,
          .leaves = kOtherRows | kUnpacked,
          .prepare =
              [perspective](Work& w) {
                const Shape shape = {(w.shape.width + 1) / 2, w.shape.height + 3, w.shape.bits};
                w.other.MakeBlank(w.kind, shape);
                w.other.record.ViewPerspective = perspective;
              },
          .call = [resize](Work& w) { return resize(&w.subject.record, &w.other.record); }};
}

int64_t Stream(Work& w, uint32_t flags) {
  void* state = nullptr;
  const int32_t width = w.shape.width + 5, height = (w.shape.height + 1) / 2;
  int32_t status = T_StartResizeBitmap(&state, &w.subject.record, width, height, flags);
  if (status != SUCCESS) return status;
  const Shape shape = {width, height, w.shape.bits};
  w.buffer.assign(size_t{shape.RowBytes()} * static_cast<uint32_t>(height), 0);
  for (int32_t row = 0; row < height && status == SUCCESS; ++row)
    status = T_GetResizedRowCol(state, w.buffer.data() + size_t{shape.RowBytes()} * static_cast<uint32_t>(row),
                                static_cast<uint32_t>(row), 0, shape.RowBytes());
  T_StopResizeBitmap(state);
  return status;
}

}  // namespace

void AddScaleOperations(std::vector<Operation>& table) {
  table.push_back(Size("T_SizeBitmap wider, nearest", RESIZE_NEAREST, true));
  table.push_back(Size("T_SizeBitmap higher, nearest", RESIZE_NEAREST, false));
  table.push_back(Size("T_SizeBitmap wider, area", RESIZE_AREA, true));
  table.push_back(Size("T_SizeBitmap higher, area", RESIZE_AREA, false));
  table.push_back(Size("T_SizeBitmap wider, smooth", RESIZE_SMOOTH, true));
  table.push_back(Size("T_SizeBitmap higher, smooth", RESIZE_SMOOTH, false));
  table.push_back(Size("T_SizeBitmap, ink count", RESIZE_INK_COUNT, false));
  table.back().depths = DepthBit(1);
  table.back().prepare = [](Work& w) { T_CreateBitmapGrayPalette(&w.subject.record); };  // ink is a gray level's
  const auto nearest = [](BitmapHandle* s, BitmapHandle* d) { return T_ResizeBitmap(s, d, RESIZE_NEAREST); };
  table.push_back(Resize("T_ResizeBitmap", 1, nearest));
  table.push_back(Resize("T_ResizeBitmap to another perspective", 6, nearest));
  table.push_back(Resize("T_ResampleBitmapInt", 1,
                         [](BitmapHandle* s, BitmapHandle* d) { return T_ResampleBitmapInt(s, d, sizeof *s); }));
  table.push_back(Resize("T_BicubicResampleBitmapInt", 1,
                         [](BitmapHandle* s, BitmapHandle* d) { return T_BicubicResampleBitmapInt(s, d, sizeof *s); }));
  table.push_back({.name = "T_GetResizedRowCol", .kinds = kAllKinds, .failures = kFailures, .call = [](Work& w) {
                     return Stream(w, RESIZE_SMOOTH);
                   }});
  table.push_back({.name = "T_StartResize", .failures = {ERR_NO_MEMORY}, .call = [](Work& w) -> int64_t {
                     ResizeRowState* state = nullptr;
                     const int32_t started = T_StartResize(w.shape.width, w.shape.height, 0, 5, &state);
                     if (started == SUCCESS) T_StopResize(state);
                     return started;
                   }});
}

}  // namespace tarn::engine
