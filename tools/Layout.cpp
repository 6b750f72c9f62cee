#include "Layout.h"

#include <algorithm>
#include <cstring>

#include "Console.h"
#include "Failure.h"

namespace tarn::tool {
namespace {

bool SameColours(const std::vector<T_PaletteEntry>& a, const std::vector<T_PaletteEntry>& b) noexcept {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](const T_PaletteEntry& x, const T_PaletteEntry& y) {
    return x.Red == y.Red && x.Green == y.Green && x.Blue == y.Blue;
  });
}

/// 32-bit samples whose upper half says everything: 16-bit ones that were widened.
bool HalvesAgree(const uint8_t* line, int32_t width) noexcept {
  for (int64_t i = 0; i < width; ++i) {
    if (std::memcmp(line + 4 * i, line + 4 * i + 2, 2) != 0) return false;
  }
  return true;
}

uint64_t WholeWords(int32_t width, int32_t bits) noexcept {
  return (static_cast<uint64_t>(width) * static_cast<uint64_t>(bits) + 31) / 32 * 4;
}

}  // namespace

bool Layout::Gray() const noexcept { return order == T_ORDER_GRAY || (Indexed() && RampOf(palette) != Ramp::kNone); }

bool Layout::operator==(const Layout& other) const noexcept {
  return bits == other.bits && (Indexed() || order == other.order) && SameColours(palette, other.palette);
}

Layout LayoutOf(const Picture& picture) { return {picture.bits, picture.Order(), picture.palette}; }

Layout LayoutOf(const BitmapHandle& bitmap) {
  Layout layout{bitmap.BitsPerPixel, bitmap.Order, {}};
  if (layout.bits > 8) return layout;
  if (layout.order == T_ORDER_GRAY) return {layout.bits, T_ORDER_GRAY, GrayRamp(layout.bits, false)};
  layout.order = T_ORDER_RGB;
  const uint32_t count = 1u << layout.bits;
  layout.palette.resize(count);
  if (T_GetBitmapPaletteEntries(&bitmap, 0, count, layout.palette.data()) == 0) {
    T_GetFixedPalette(layout.palette.data(), static_cast<uint32_t>(layout.bits));
  }
  return layout;
}

Layout GrayLayout(int32_t bits) {
  return {bits, T_ORDER_GRAY, bits <= 8 ? GrayRamp(bits, false) : std::vector<T_PaletteEntry>{}};
}

Layout PaletteLayout(int32_t bits, std::vector<T_PaletteEntry> colours) {
  const T_PaletteEntry last = colours.empty() ? T_PaletteEntry{} : colours.back();
  colours.resize(size_t{1} << bits, last);
  return {bits, T_ORDER_RGB, std::move(colours)};
}

std::string NameOf(const Layout& layout) {
  const std::string bits = std::to_string(layout.bits) + "-bit ";
  if (layout.Gray()) return bits + "gray";
  if (layout.Indexed()) return bits + "palette";
  return bits + (layout.Opacity() ? "colour with opacity" : "colour");
}

std::string SamplesOf(const Layout& layout) {
  if (layout.Indexed()) return layout.Gray() ? "gray ramp" : "palette indices";
  if (layout.order == T_ORDER_GRAY) return layout.bits == 12 ? "gray samples" : "gray samples, low byte first";
  std::string samples = layout.order == T_ORDER_RGB ? "red, green, blue" : "blue, green, red";
  if (layout.bits == 16) return samples + ", 5 bits each";
  if (layout.Opacity()) samples += ", opacity";
  return layout.bits > 32 ? samples + ", 16 bits each, low byte first" : samples;
}

Layout FileLayout(const Layout& layout) {
  if (layout.Indexed()) {
    const bool depthOfFiles = (layout.bits & (layout.bits - 1)) == 0;
    if (!depthOfFiles && RampOf(layout.palette) == Ramp::kBlackIsZero) return GrayLayout(8);
    if (!depthOfFiles) return PaletteLayout(layout.bits == 3 ? 4 : 8, layout.palette);
    return {layout.bits, T_ORDER_RGB, layout.palette};
  }
  if (layout.order == T_ORDER_GRAY) return GrayLayout(16);
  return {layout.bits == 16 ? 24 : layout.bits, T_ORDER_BGR, {}};
}

RowConverter::RowConverter(const Layout& from, const Layout& to, int32_t width)
    : from_(from),
      to_(to),
      width_(width),
      same_(from == to),
      line_(std::max({T_CalcConvertSize(width, from.bits, width, to.bits), WholeWords(width, from.bits),
                      WholeWords(width, to.bits)})) {}

bool RowConverter::Convert(const std::string& file) {
  if (same_) return true;
  const bool fromGray32 = from_.bits == 32 && from_.order == T_ORDER_GRAY;
  if (fromGray32 && to_.order == T_ORDER_GRAY && to_.bits < 32 && !HalvesAgree(line_.data(), width_)) return false;
  const auto palette = [](const Layout& layout) { return layout.palette.empty() ? nullptr : layout.palette.data(); };
  const uint32_t flags = to_.Opacity() && !from_.Opacity() ? T_CONVERT_OPAQUE : 0;
  const int32_t status = T_ConvertBufferExt(line_.data(), width_, from_.bits, to_.bits, from_.order, to_.order,
                                            palette(from_), palette(to_), flags, -1, -1);
  if (status != SUCCESS) ThrowStatus(status, file, "converting " + NameOf(from_) + " to " + NameOf(to_));
  const uint64_t used = (static_cast<uint64_t>(width_) * static_cast<uint64_t>(to_.bits) + 7) / 8;
  std::fill(line_.begin() + static_cast<ptrdiff_t>(used),
            line_.begin() + static_cast<ptrdiff_t>(WholeWords(width_, to_.bits)), uint8_t{0});
  return true;
}

StorageChoice PassingStorage(const StorageChoice& choice, int32_t bits) {
  StorageChoice passing = choice;
  if (choice.kind == StorageKind::kCompressed && bits != 1) passing.kind = StorageKind::kAuto;
  if (choice.kind == StorageKind::kSuper && !SuperCompressible(bits)) passing.kind = StorageKind::kAuto;
  return passing;
}

std::unique_ptr<Bitmap> Converted(Bitmap& source, const Layout& layout, const StorageChoice& storage,
                                  const std::string& file, Progress& progress) {
  const BitmapHandle& from = source.Handle();
  auto target = std::make_unique<Bitmap>(from.Width, from.Height, layout, from.ViewPerspective, storage, file);
  target->Handle().XResolution = from.XResolution;
  target->Handle().YResolution = from.YResolution;
  RowConverter converter(LayoutOf(from), layout, from.Width);
  for (int32_t row = 0; row < from.Height; ++row) {
    source.GetRow(row, converter.Line());
    if (!converter.Convert(file)) {
      throw Failure(Exit::kDepth, file, "32-bit gray of more than 16 significant bits; no format here holds it");
    }
    target->PutRow(row, converter.Line());
    progress.Step();
  }
  return target;
}

}  // namespace tarn::tool
