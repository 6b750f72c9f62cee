// Flipping, mirroring, rotating.

#include "engine/Operations.h"

namespace tarn::engine {
namespace {

const std::vector<int64_t> kFailures = {ERR_NO_MEMORY, ERR_FILE_WRITE, ERR_FILE_SEEK, ERR_FILE_READ, ERR_DISK_FULL};

Operation InPlace(const char* name, std::function<int64_t(BitmapHandle& bitmap)> change) {
  return {.name = name, .kinds = kAllKinds, .failures = kFailures, .call = [change](Work& w) {
            return change(w.subject.record);
          }};
}

}  // namespace

void AddGeometryOperations(std::vector<Operation>& table) {
  table.push_back(InPlace("T_FlipBitmap", [](BitmapHandle& b) { return T_FlipBitmap(&b); }));
  table.push_back(InPlace("T_ReverseBitmap", [](BitmapHandle& b) { return T_ReverseBitmap(&b); }));
}

}  // namespace tarn::engine
