// Damaged records in the hands of whatever changes, reads or makes whole pictures.

#include "Hostile.h"

namespace tarn {
namespace {

using Call = int64_t (*)(BitmapHandle* record, HostileRoom& room);

HostileProbe Changes(const char* name, Call call) { return {name, true, call, true}; }
HostileProbe Reads(const char* name, Call call) { return {name, false, call, true}; }

constexpr T_PaletteEntry kFour[4] = {{1, 2, 3, 0}, {5, 6, 7, 0}, {200, 100, 0, 0}, {255, 255, 255, 0}};

int64_t Warp(BitmapHandle* to, BitmapHandle* from, HostileRoom& r, uint32_t flags) {
  const int32_t width = 256 * r.shape.width, height = 256 * r.shape.height;
  const T_WarpPoint points[4] = {{700, -300}, {width + 900, 400}, {width - 1100, height + 77}, {-200, height - 500}};
  return T_CombineBitmapWarp(to, points, from, nullptr, flags);
}

/// A one-bit overlay of the other's size at place 0, not for a record of a wrong size.
int64_t SetOverlay(BitmapHandle* b, HostileRoom& r) {
  engine::Picture overlay;
  overlay.Make(engine::Kind::kBlock, {r.shape.width + 3, r.shape.height, 1}, 9);
  const int32_t status = T_SetOverlayBitmap(b, 0, &overlay.record, T_OVERLAY_COPY);
  return status;
}

int64_t Stream(BitmapHandle* b, HostileRoom& r, uint32_t flags) {
  void* state = nullptr;
  const int32_t status = T_StartResizeBitmap(&state, b, 50, 4, flags);
  if (status != SUCCESS) return status;
  r.records.assign(1 << 12, 0);  // 50 pixels of any depth
  int32_t got = SUCCESS;
  for (uint32_t row = 0; row < 4 && got == SUCCESS; ++row) got = T_GetResizedRowCol(state, r.records.data(), row, 0, 8);
  T_StopResizeBitmap(state);
  return got;
}

int64_t Dither(BitmapHandle* b, HostileRoom& r) {
  const int32_t status = T_StartDithering(b, kFour, 4);
  if (status != SUCCESS) return status;
  // A line is as wide and deep as the record says when the run begins.
  const int64_t bits = int64_t{b->Width} * b->BitsPerPixel;
  int32_t made = SUCCESS;
  if (bits < 1 << 24) {
    r.in.assign(static_cast<size_t>(bits / 8 + 64), 0x6B);
    r.records.assign(static_cast<size_t>(b->Width) + 64, 0);
    made = T_DitherLine(b, r.in.data(), r.records.data());
  }
  T_StopDithering(b);
  return made;
}

}  // namespace

std::vector<HostileProbe> PictureProbes() {
  return {
      Changes("T_FlipBitmap", [](BitmapHandle* b, HostileRoom&) -> int64_t { return T_FlipBitmap(b); }),
      Changes("T_ReverseBitmap", [](BitmapHandle* b, HostileRoom&) -> int64_t { return T_ReverseBitmap(b); }),
      Changes("T_RotateBitmap, quarter turn",
              [](BitmapHandle* b, HostileRoom&) -> int64_t { return T_RotateBitmap(b, 9000, ROTATE_RESIZE, 0); }),
      Changes("T_RotateBitmap, half turn",
              [](BitmapHandle* b, HostileRoom&) -> int64_t { return T_RotateBitmap(b, 18000, 0, 0); }),
      Changes("T_RotateBitmap, bilinear",
              [](BitmapHandle* b, HostileRoom&) -> int64_t { return T_RotateBitmap(b, 1730, ROTATE_BILINEAR, 0); }),
      Changes("T_RotateBitmap, resized",
              [](BitmapHandle* b, HostileRoom&) -> int64_t { return T_RotateBitmap(b, -400, ROTATE_RESIZE, 0); }),
      Changes("T_RotateBitmap90",
              [](BitmapHandle* b, HostileRoom&) -> int64_t { return T_RotateBitmap90(b, 1, 0, 100); }),
      Changes("T_ChangeBitmapViewPerspective",
              [](BitmapHandle* b, HostileRoom&) -> int64_t {
                return T_ChangeBitmapViewPerspective(nullptr, b, sizeof *b, 5);
              }),
      Reads("T_ChangeBitmapViewPerspective, copy",
            [](BitmapHandle* b, HostileRoom& r) -> int64_t {
              return T_ChangeBitmapViewPerspective(&r.made, b, sizeof *b, 6);
            }),
      Changes("T_RotateBitmapViewPerspective",
              [](BitmapHandle* b, HostileRoom&) -> int64_t { return T_RotateBitmapViewPerspective(b, 90); }),
      Reads("T_PointFromBitmap",
            [](BitmapHandle* b, HostileRoom&) -> int64_t {
              int32_t x = 3, y = 2;
              return T_PointFromBitmap(b, 6, &x, &y);
            }),
      Reads("T_RectToBitmap",
            [](BitmapHandle* b, HostileRoom&) -> int64_t {
              T_Rect rect{1, 2, 5, 6};
              return T_RectToBitmap(b, 6, &rect);
            }),
      Changes("T_ShearBitmap", [](BitmapHandle* b, HostileRoom&) -> int64_t { return T_ShearBitmap(b, -1200, 1, 0); }),
      Changes("T_ShearBitmap, columns",
              [](BitmapHandle* b, HostileRoom&) -> int64_t { return T_ShearBitmap(b, 700, 0, 0); }),
      Changes("T_SizeBitmap, nearest",
              [](BitmapHandle* b, HostileRoom&) -> int64_t { return T_SizeBitmap(b, 61, 5, RESIZE_NEAREST); }),
      Changes("T_SizeBitmap, area",
              [](BitmapHandle* b, HostileRoom&) -> int64_t { return T_SizeBitmap(b, 17, 20, RESIZE_AREA); }),
      Changes("T_SizeBitmap, smooth",
              [](BitmapHandle* b, HostileRoom&) -> int64_t { return T_SizeBitmap(b, 61, 5, RESIZE_SMOOTH); }),
      Changes("T_SizeBitmap, ink",
              [](BitmapHandle* b, HostileRoom&) -> int64_t { return T_SizeBitmap(b, 11, 4, RESIZE_INK_COUNT); }),
      Reads("T_ResizeBitmap from",
            [](BitmapHandle* b, HostileRoom& r) -> int64_t {
              return T_ResizeBitmap(b, &r.other.record, RESIZE_NEAREST);
            }),
      Changes("T_ResizeBitmap to",
              [](BitmapHandle* b, HostileRoom& r) -> int64_t {
                return T_ResizeBitmap(&r.other.record, b, RESIZE_NEAREST);
              }),
      Reads("T_ResampleBitmapInt from",
            [](BitmapHandle* b, HostileRoom& r) -> int64_t {
              return T_ResampleBitmapInt(b, &r.other.record, sizeof *b);
            }),
      Changes("T_BicubicResampleBitmapInt to",
              [](BitmapHandle* b, HostileRoom& r) -> int64_t {
                return T_BicubicResampleBitmapInt(&r.other.record, b, sizeof *b);
              }),
      Reads("T_StartResizeBitmap, nearest",
            [](BitmapHandle* b, HostileRoom& r) -> int64_t { return Stream(b, r, RESIZE_NEAREST); }),
      Reads("T_StartResizeBitmap, smooth",
            [](BitmapHandle* b, HostileRoom& r) -> int64_t { return Stream(b, r, RESIZE_SMOOTH); }),
      Changes("T_ColorResBitmap",
              [](BitmapHandle* b, HostileRoom&) -> int64_t {
                return T_ColorResBitmap(b, b, sizeof *b, 4, T_RES_OPTIMIZED, nullptr, nullptr, 0, nullptr, nullptr);
              }),
      Reads("T_ColorResBitmap, copy",
            [](BitmapHandle* b, HostileRoom& r) -> int64_t {
              return T_ColorResBitmap(b, &r.made, sizeof *b, 24, 0, nullptr, nullptr, 0, nullptr, nullptr);
            }),
      Reads("T_GetBitmapColorCountExt",
            [](BitmapHandle* b, HostileRoom&) -> int64_t {
              uint32_t count = 0;
              return T_GetBitmapColorCountExt(b, &count, nullptr);
            }),
      Changes("T_GrayScaleBitmap 8", [](BitmapHandle* b, HostileRoom&) -> int64_t { return T_GrayScaleBitmap(b, 8); }),
      Changes("T_GrayScaleBitmap 16",
              [](BitmapHandle* b, HostileRoom&) -> int64_t { return T_GrayScaleBitmap(b, 16); }),
      Reads("T_CreateGrayScaleBitmap",
            [](BitmapHandle* b, HostileRoom& r) -> int64_t {
              return T_CreateGrayScaleBitmap(&r.made, b, 12, sizeof *b);
            }),
      Changes("T_Gray32To16", [](BitmapHandle* b, HostileRoom&) -> int64_t { return T_Gray32To16(b); }),
      Changes("T_CombineBitmapKrn to",
              [](BitmapHandle* b, HostileRoom& r) -> int64_t {
                return T_CombineBitmapKrn(b, 2, 1, &r.other.record, 0, 0, 40, 40, T_COMBINE_AVERAGE);
              }),
      Reads("T_CombineBitmapKrn from",
            [](BitmapHandle* b, HostileRoom& r) -> int64_t {
              return T_CombineBitmapKrn(&r.other.record, 2, 1, b, 0, 0, 40, 40, T_COMBINE_XOR);
            }),
      Changes("T_CombineBitmapKrn, onto itself",
              [](BitmapHandle* b, HostileRoom&) -> int64_t {
                return T_CombineBitmapKrn(b, 2, 1, b, 0, 0, 40, 40, T_COMBINE_OR);
              }),
      Changes("T_CombineBitmapWarp to",
              [](BitmapHandle* b, HostileRoom& r) -> int64_t { return Warp(b, &r.other.record, r, T_WARP_BILINEAR); }),
      Reads("T_CombineBitmapWarp from",
            [](BitmapHandle* b, HostileRoom& r) -> int64_t { return Warp(&r.other.record, b, r, T_WARP_NEAREST); }),
      Reads("T_CombineBitmapWarp from, bilinear",
            [](BitmapHandle* b, HostileRoom& r) -> int64_t { return Warp(&r.other.record, b, r, T_WARP_BILINEAR); }),
      Changes("T_ScrambleBitmap",
              [](BitmapHandle* b, HostileRoom& r) -> int64_t {
                return T_ScrambleBitmap(b, 3, 1, r.shape.width - 6, r.shape.height - 2, 5, T_SCRAMBLE_SCRAMBLE);
              }),
      Reads("T_GetBitmapAlpha",
            [](BitmapHandle* b, HostileRoom& r) -> int64_t { return T_GetBitmapAlpha(b, &r.made, sizeof *b); }),
      Changes("T_SetBitmapAlpha to",
              [](BitmapHandle* b, HostileRoom& r) -> int64_t { return T_SetBitmapAlpha(b, &r.other.record); }),
      Reads("T_SetBitmapAlpha from",
            [](BitmapHandle* b, HostileRoom& r) -> int64_t {
              engine::Picture target;
              target.Make(engine::Kind::kBlock, {r.shape.width, r.shape.height, 32}, 2);
              return T_SetBitmapAlpha(&target.record, b);
            }),
      Reads("T_CompactBitmap", [](BitmapHandle* b, HostileRoom&) -> int64_t { return T_CompactBitmap(b); }),
      Reads(
          "T_ChangeBitmapCompression 1024",
          [](BitmapHandle* b, HostileRoom&) -> int64_t { return T_ChangeBitmapCompression(b, TYPE_SUPERCOMPRESSED); }),
      Reads("T_SetOverlayBitmap", SetOverlay),
      Changes("T_MoveOverlayBits, to",
              [](BitmapHandle* b, HostileRoom& r) -> int64_t {
                const int64_t set = SetOverlay(b, r);
                return set == SUCCESS ? T_MoveOverlayBits(b, 0, T_OVERLAY_TO_BITMAP) : set;
              }),
      Reads("T_MoveOverlayBits, from",
            [](BitmapHandle* b, HostileRoom& r) -> int64_t {
              const int64_t set = SetOverlay(b, r);
              return set == SUCCESS ? T_MoveOverlayBits(b, 0, T_OVERLAY_FROM_BITMAP) : set;
            }),
      Reads("T_SetOverlayBitmap, of a damaged one",
            [](BitmapHandle* b, HostileRoom& r) -> int64_t {
              return T_SetOverlayBitmap(&r.other.record, 0, b, T_OVERLAY_COPY);
            }),
      Reads("T_StartDithering", Dither),
      Reads("T_SetBitmapNewPalette",
            [](BitmapHandle* b, HostileRoom&) -> int64_t { return T_SetBitmapNewPalette(b, kFour, 4); }),
      Reads("T_KrnSizeBitmapRgn",
            [](BitmapHandle* b, HostileRoom&) -> int64_t { return T_KrnSizeBitmapRgn(b, 10, 10); }),
      Changes("T_ChangeToDIB",
              [](BitmapHandle* b, HostileRoom&) -> int64_t {
                void* dib = nullptr;
                const int32_t status = T_ChangeToDIB(b, &dib);
                if (status == SUCCESS) T_OsFreeHandle(reinterpret_cast<uintptr_t>(dib), 1, L"here");
                return status;
              }),
  };
}

}  // namespace tarn
