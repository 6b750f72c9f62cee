#include "engine/Operations.h"

#include <cstring>

#include "Common/Internal/Storage.h"

namespace tarn::engine {

Work::~Work() {
  T_FreeBitmap(&made);
  subject.Free();
  other.Free();
  while (!later_.empty()) {
    later_.back()();
    later_.pop_back();
  }
}

std::wstring Work::FileName(const wchar_t* name) {
  const std::wstring path = scene.Directory().Name() + L"/" + name;
  Later([path] { T_OsDelete(path.c_str()); });
  return path;
}

const std::vector<Operation>& Operations() {
  static const std::vector<Operation> table = [] {
    std::vector<Operation> rows;
    AddStorageOperations(rows);
    AddRowOperations(rows);
    AddCopyOperations(rows);
    AddDibOperations(rows);
    AddPixelOperations(rows);
    AddCombineOperations(rows);
    AddColorOperations(rows);
    AddGeometryOperations(rows);
    AddScaleOperations(rows);
    AddOverlayOperations(rows);
    AddMemoryOperations(rows);
    AddFileOperations(rows);
    return rows;
  }();
  return table;
}

std::string Contents(const BitmapHandle& record, Bytes& contents) {
  contents.clear();
  if (record.StructSize != sizeof record) return {};
  constexpr uint32_t kStorageFlags = T_FLAG_IN_MEMORY | T_FLAG_ON_DISK | T_FLAG_LOCKED | T_FLAG_COMPRESSED |
                                     T_FLAG_USER_DATA | T_FLAG_HANDLE_DATA | T_FLAG_TILED | T_FLAG_SUPER_COMPRESSED;
  BitmapHandle fields = record;
  fields.MemoryHandle = fields.CachedRowOffset = fields.DataOffset = fields.Size = fields.Region = 0;
  fields.Data = nullptr;
  fields.CachedRow = 0;
  fields.Flags &= ~kStorageFlags;
  fields.Palette = fields.LUT = nullptr;
  fields.GrayParams = fields.DitherContext = nullptr;
  fields.Overlays = nullptr;
  const auto append = [&contents](const void* from, size_t bytes) {
    const auto* const start = static_cast<const uint8_t*>(from);
    contents.insert(contents.end(), start, start + bytes);
  };
  append(&fields, sizeof fields);
  if (record.Palette) append(record.Palette, record.Colors * sizeof(T_PaletteEntry));
  if (record.LUT) append(record.LUT, record.LUTLength * sizeof(T_PaletteEntry));
  if (record.GrayParams) append(record.GrayParams, kGrayParamsBytes);
  const bool pixels = (record.Flags & T_FLAG_ALLOCATED) && !((record.Flags & T_FLAG_USER_DATA) && !record.Data);
  if (!pixels) return {};
  Bytes rows;
  const std::string wrong = ReadPixels(record, rows);
  append(rows.data(), rows.size());
  return wrong;
}

}  // namespace tarn::engine
