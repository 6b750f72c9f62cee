// Overlays: entering and leaving a list, and moving bits.

#include "engine/Operations.h"

namespace tarn::engine {
namespace {

constexpr uint64_t kPlaneDepths = DepthBit(8) | DepthBit(12) | DepthBit(16) | DepthBit(32);

/// A one-bit overlay that hangs over the subject's edges, at place 0.
void SetOverlay(Work& w, Kind kind, uint32_t mode) {
  if (w.shape.bits == 32) w.subject.record.Order = T_ORDER_GRAY;
  w.other.Make(kind, {w.shape.width + 5, w.shape.height, 1}, 7);
  T_SetOverlayBitmap(&w.subject.record, 0, &w.other.record, mode);
  const T_OverlayAttributes attributes{sizeof attributes, -2, 3, 0, T_OVERLAY_VISIBLE, 5};
  T_SetOverlayAttributes(&w.subject.record, 0, &attributes, T_OVERLAY_POSITION | T_OVERLAY_BIT);
}

void Overlay(Work& w) { SetOverlay(w, Kind::kBlock, T_OVERLAY_COPY); }
void OverlayInFile(Work& w) { SetOverlay(w, Kind::kDisk, T_OVERLAY_MOVE); }

Operation MoveBits(const char* name, uint32_t direction) {
  return {.name = name,
          .kinds = kAllKinds,
          .depths = kPlaneDepths,
          .failures = {ERR_NO_MEMORY, ERR_FILE_WRITE, ERR_FILE_SEEK, ERR_FILE_READ, ERR_DISK_FULL},
          .prepare = Overlay,
          .call = [direction](Work& w) { return T_MoveOverlayBits(&w.subject.record, 0, direction); },
          .finish =
              [direction](Work& w) {
                if (direction == T_OVERLAY_FROM_BITMAP)
                  T_GetOverlayBitmap(&w.subject.record, 0, &w.made, 212, T_OVERLAY_MOVE);
              }};
}

}  // namespace

void AddOverlayOperations(std::vector<Operation>& table) {
  table.push_back(MoveBits("T_MoveOverlayBits, from", T_OVERLAY_FROM_BITMAP));
  table.push_back(MoveBits("T_MoveOverlayBits, to", T_OVERLAY_TO_BITMAP));
  table.push_back(MoveBits("T_MoveOverlayBits, from, to a file", T_OVERLAY_FROM_BITMAP));
  table.back().prepare = OverlayInFile;
  table.push_back(MoveBits("T_MoveOverlayBits, to, from a file", T_OVERLAY_TO_BITMAP));
  table.back().prepare = OverlayInFile;
  table.push_back(
      {.name = "T_SetOverlayBitmap",
       .kinds = kAllKinds,
       .depths = kPlaneDepths,
       .failures = {ERR_NO_MEMORY},
       .prepare = Overlay,
       .call = [](Work& w) { return T_SetOverlayBitmap(&w.subject.record, 1, &w.other.record, T_OVERLAY_COPY); }});
  table.push_back(
      {.name = "T_GetOverlayBitmap",
       .kinds = kAllKinds,
       .depths = kPlaneDepths,
       .failures = {ERR_NO_MEMORY},
       .prepare = Overlay,
       .call = [](Work& w) { return T_GetOverlayBitmap(&w.subject.record, 0, &w.made, 212, T_OVERLAY_COPY); }});
}

}  // namespace tarn::engine
