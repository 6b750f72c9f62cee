// Device-independent bitmaps in and out.

#include <cstring>

#include "DibBytes.h"
#include "engine/Operations.h"

namespace tarn::engine {
namespace {

const std::vector<int64_t> kFailures = {ERR_NO_MEMORY, ERR_FILE_WRITE, ERR_FILE_SEEK, ERR_FILE_READ, ERR_DISK_FULL};

/// Takes over what the call has made, so that it is compared and freed.
void TakeBlock(Work& w) {
  const uint64_t block = test::HandleOf(w.block);
  const auto* const start = static_cast<const uint8_t*>(T_OsLockHandle(block, 1, L"here"));
  const size_t bytes = 40 + 4 * test::Get32(start + 32) + test::Get32(start + 20);
  w.buffer.assign(start, start + bytes);
  T_OsUnlockHandle(block, 1, L"here");
  test::FreeBlock(w.block);
}

Operation ToDib(const char* name, uint32_t perspective, int32_t (*call)(BitmapHandle*, void**)) {
  return {.name = name,
          .kinds = kAllKinds,
          .failures = kFailures,
          .prepare = [perspective](Work& w) { w.subject.record.ViewPerspective = perspective; },
          .call = [call](Work& w) { return call(&w.subject.record, &w.block); },
          .finish = TakeBlock,
          .afterFailure = [](Work& w) -> std::string { return w.block ? "a block was handed out; " : ""; }};
}

/// A DIB of the shape's extents; depths that a DIB lacks take another one.
test::DibPlan PlanOf(const Shape& shape, bool runs) {
  test::DibPlan plan;
  plan.width = shape.width;
  plan.height = shape.height;
  plan.bits = runs ? (shape.bits % 2 ? 4 : 8) : shape.bits <= 8 ? 8 : 32;
  if (!runs && plan.bits == 32) {
    plan.compression = 3;
    plan.masks[0] = 0x3FF, plan.masks[1] = 0xF0000, plan.masks[2] = 0xF8000000;
  }
  if (!runs) return plan;
  plan.compression = plan.bits == 8 ? 1 : 2;
  plan.imageBytes = 60;
  return plan;
}

test::Bytes DibOf(Work& w, bool runs) {
  const test::DibPlan plan = PlanOf(w.shape, runs);
  test::Bytes rows(runs ? plan.imageBytes : plan.RowBytes() * static_cast<uint32_t>(w.shape.height));
  for (uint8_t& byte : rows) byte = w.random.Byte();
  return test::Joined(test::DibHead(plan), rows);
}

void StoreOn(Work& w, uint32_t type) {
  T_SetDefaultMemoryType(type);
  w.Later([] { T_SetDefaultMemoryType(TYPE_CONV); });
}

Operation ReadDib(const char* name, bool runs, uint32_t type) {
  return {.name = name,
          .failures = kFailures,
          .prepare =
              [=](Work& w) {
                StoreOn(w, type);
                const auto dib = std::make_shared<test::Bytes>(DibOf(w, runs));
                w.block = dib->data();
                w.Later([dib] {});  // lives until then
              },
          .call = [](Work& w) { return T_ConvertFromDIB(&w.made, sizeof w.made, w.block, nullptr); }};
}

Operation TakeDib(const char* name, bool runs, uint32_t type) {
  return {.name = name,
          .failures = kFailures,
          .prepare =
              [=](Work& w) {
                StoreOn(w, type);
                w.block = test::BlockOf(DibOf(w, runs));
              },
          .call = [](Work& w) { return T_ChangeFromDIB(&w.made, sizeof w.made, w.block); }};
}

}  // namespace

void AddDibOperations(std::vector<Operation>& table) {
  table.push_back(ToDib("T_ConvertToDIB", 4, T_ConvertToDIB));
  table.push_back(ToDib("T_ConvertToDIB, turned", 6, T_ConvertToDIB));
  table.push_back(ToDib("T_ChangeToDIB", 1, T_ChangeToDIB));
  table.push_back(ReadDib("T_ConvertFromDIB", false, TYPE_CONV));
  table.push_back(ReadDib("T_ConvertFromDIB, runs to disk", true, TYPE_DISK));
  table.push_back(TakeDib("T_ChangeFromDIB, to disk", false, TYPE_DISK));
  table.push_back(TakeDib("T_ChangeFromDIB, runs", true, TYPE_CONV));
}

}  // namespace tarn::engine
