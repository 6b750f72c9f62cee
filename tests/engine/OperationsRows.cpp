// Rows, parts of rows, segments and compressed rows.

#include <algorithm>

#include "engine/Operations.h"

namespace tarn::engine {
namespace {

const std::vector<int64_t> kGetting = {ERR_NO_MEMORY, ERR_FILE_SEEK, ERR_FILE_READ};
const std::vector<int64_t> kPutting = {ERR_NO_MEMORY, ERR_FILE_SEEK, ERR_FILE_READ, ERR_FILE_WRITE, 0};

void Lock(Work& w) { T_LockBitmap(&w.subject.record); }

/// A buffer of noise for `rows` rows and half of the next one; the first row is a tile's last.
void Buffer(Work& w, uint32_t rows) {
  Lock(w);
  w.buffer.resize(size_t{w.shape.RowBytes()} * rows + w.shape.RowBytes() / 2);
  for (uint8_t& byte : w.buffer) byte = w.random.Byte();
}
constexpr uint32_t kFirstRow = kTileRows - 1;

void BufferOfRows(Work& w) { Buffer(w, 2); }

uint32_t MiddleColumn(const Work& w) { return static_cast<uint32_t>(w.shape.width) / 2; }

/// Room for the records of `rows` rows, whatever they hold.
size_t RecordRoom(const Work& w, uint32_t rows) {
  const auto width = static_cast<size_t>(w.shape.width);
  return (4 + 2 * (width + 1) + 4 * (width / 65528)) * rows;
}

constexpr uint32_t kRecords = 4;

/// Records of noise rows in the buffer.
void MakeRecords(Work& w) {
  Lock(w);
  const Bytes rows = MakeContent({w.shape.width, static_cast<int32_t>(kRecords), 1}, w.random.Next());
  w.buffer.assign(RecordRoom(w, kRecords), 0);
  T_CompressRows(w.buffer.data(), rows.data(), static_cast<uint32_t>(w.shape.width), kRecords);
}

void RoomForRecords(Work& w) {
  Lock(w);
  w.buffer.assign(RecordRoom(w, kRecords), 0);
}

Operation Segments(const char* name, int32_t preserveAlpha, uint64_t depths) {
  return {.name = name,
          .kinds = kAllKinds,
          .depths = depths,
          .failures = kPutting,
          .leaves = kSubjectRows,
          .prepare = [](Work& w) { Buffer(w, 1); },
          .call = [preserveAlpha](Work& w) -> int64_t {
            const auto width = static_cast<uint32_t>(w.shape.width);
            const uint32_t segments[] = {0, 1, 2, width / 2, width / 2 + 1, width};
            return T_PutBitmapRowSegments(&w.subject.record, w.buffer.data(), kFirstRow, 1, segments, 6, preserveAlpha);
          }};
}

}  // namespace

void AddRowOperations(std::vector<Operation>& table) {
  table.push_back(
      {.name = "T_GetBitmapRow",
       .kinds = kAllKinds,
       .failures = kGetting,
       .wanted = Operation::kByteCount,
       .shortCounts = true,
       .prepare = BufferOfRows,
       .call = [](Work& w) { return T_GetBitmapRow(&w.subject.record, w.buffer.data(), kFirstRow, w.buffer.size()); }});
  table.push_back({.name = "T_GetBitmapRowCol",
                   .kinds = kAllKinds,
                   .failures = kGetting,
                   .wanted = Operation::kByteCount,
                   .shortCounts = true,
                   .prepare = BufferOfRows,
                   .call = [](Work& w) {
                     return T_GetBitmapRowCol(&w.subject.record, w.buffer.data(), kFirstRow, MiddleColumn(w),
                                              w.buffer.size());
                   }});
  table.push_back(
      {.name = "T_PutBitmapRow",
       .kinds = kAllKinds,
       .failures = kPutting,
       .leaves = kSubjectRows,
       .wanted = Operation::kByteCount,
       .shortCounts = true,
       .dependsOnKind = true,  // compressed rows keep no padding
       .prepare = BufferOfRows,
       .call = [](Work& w) { return T_PutBitmapRow(&w.subject.record, w.buffer.data(), kFirstRow, w.buffer.size()); }});
  table.push_back({.name = "T_PutBitmapRowCol",
                   .kinds = kAllKinds,
                   .failures = kPutting,
                   .leaves = kSubjectRows,
                   .wanted = Operation::kByteCount,
                   .shortCounts = true,
                   .dependsOnKind = true,  // compressed rows keep no padding
                   .prepare = BufferOfRows,
                   .call = [](Work& w) {
                     return T_PutBitmapRowCol(&w.subject.record, w.buffer.data(), kFirstRow, MiddleColumn(w),
                                              w.buffer.size());
                   }});
  table.push_back(Segments("T_PutBitmapRowSegments", 0, kAllDepths));
  table.push_back(Segments("T_PutBitmapRowSegments, alpha kept", 1, DepthBit(32) | DepthBit(64)));

  const std::vector<int64_t> getting = {ERR_NO_MEMORY, ERR_FILE_SEEK, ERR_FILE_READ, ERR_FILE_WRITE};
  table.push_back({.name = "T_GetBitmapRowCompressed",
                   .kinds = kAllKinds,
                   .depths = DepthBit(1),
                   .failures = getting,
                   .prepare = RoomForRecords,
                   .call = [](Work& w) {
                     return T_GetBitmapRowCompressed(&w.subject.record, nullptr, w.buffer.data(), 1, kRecords);
                   }});
  table.push_back({.name = "T_GetBitmapRowColCompressed",
                   .kinds = kAllKinds,
                   .depths = DepthBit(1),
                   .failures = getting,
                   .wanted = 9,
                   .prepare = RoomForRecords,
                   .call = [](Work& w) {
                     return T_GetBitmapRowColCompressed(&w.subject.record, nullptr, w.buffer.data(), kFirstRow, 5, 9);
                   }});
  table.push_back({.name = "T_PutBitmapRowCompressed",
                   .kinds = kAllKinds,
                   .depths = DepthBit(1),
                   .failures = kPutting,
                   .leaves = kSubjectRows | kUnpacked,
                   .prepare = MakeRecords,
                   .call = [](Work& w) {
                     return T_PutBitmapRowCompressed(&w.subject.record, nullptr, w.buffer.data(), 1, kRecords);
                   }});
  // Runs that do not add up to the row are made canonical first.
  table.push_back(
      {.name = "T_PutBitmapRowCompressed, records of another width",
       .kinds = kAllKinds,
       .depths = DepthBit(1),
       .failures = kPutting,
       .leaves = kSubjectRows | kUnpacked,
       .prepare =
           [](Work& w) {
             const int32_t width = w.shape.width;
             w.shape.width = width + 8;
             MakeRecords(w);
             w.shape.width = width;
           },
       .call =
           [](Work& w) { return T_PutBitmapRowCompressed(&w.subject.record, nullptr, w.buffer.data(), 1, kRecords); }});
  // The runs take more room than packed rows, so the bitmap stops being compressed.
  table.push_back({.name = "T_PutBitmapRowCompressed, many runs",
                   .kinds = kAllKinds,
                   .depths = DepthBit(1),
                   .failures = kPutting,
                   .leaves = kSubjectRows | kUnpacked,
                   .prepare =
                       [](Work& w) {
                         Lock(w);
                         const Bytes rows(size_t{w.shape.RowBytes()} * static_cast<uint32_t>(w.shape.height), 0x55);
                         w.buffer.assign(RecordRoom(w, static_cast<uint32_t>(w.shape.height)), 0);
                         T_CompressRows(w.buffer.data(), rows.data(), static_cast<uint32_t>(w.shape.width),
                                        static_cast<uint32_t>(w.shape.height));
                       },
                   .call =
                       [](Work& w) {
                         return T_PutBitmapRowCompressed(&w.subject.record, nullptr, w.buffer.data(), 0,
                                                         static_cast<uint32_t>(w.shape.height));
                       }});
  table.push_back({.name = "T_PutBitmapRowColCompressed",
                   .kinds = kAllKinds,
                   .depths = DepthBit(1),
                   .failures = kPutting,
                   .leaves = kSubjectRows | kUnpacked,
                   .wanted = 2,
                   .shortCounts = true,
                   .dependsOnKind = true,  // compressed rows keep no padding
                   .prepare = MakeRecords,
                   .call = [](Work& w) {
                     return T_PutBitmapRowColCompressed(&w.subject.record, nullptr, w.buffer.data(), kFirstRow, 5, 9);
                   }});
}

}  // namespace tarn::engine
