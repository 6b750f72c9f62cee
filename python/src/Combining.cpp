// Two bitmaps at once: combining, warping, overlays; hiding parts of one.

#include <cmath>

#include "Binding.h"

namespace tarn::python {
namespace {

void Combine(PyBitmap& target, PyBitmap& source, int32_t left, int32_t top, py::handle area, uint32_t operation,
             uint32_t invert) {
  const Area part = area.is_none() ? Area{0, 0, Now(source).bitmap.width(), source.bitmap.height()} : AreaOf(area);
  Work({&target, &source}, [&] {
    return detail::done(T_CombineBitmapKrn(&target.Record(), left, top, &source.Record(), part.left, part.top,
                                           part.width, part.height, operation | invert));
  });
}

int32_t Fraction(double pixels) {
  const double rounded = std::nearbyint(pixels * 256);
  if (!(std::abs(rounded) <= T_WARP_LIMIT)) RaiseAs(PyExc_ValueError, "a corner is too far away");
  return static_cast<int32_t>(rounded);
}

void Warp(PyBitmap& target, PyBitmap& source, const std::vector<std::pair<double, double>>& corners, py::handle area,
          uint32_t method) {
  if (corners.size() != 4) RaiseAs(PyExc_ValueError, "four corners make a quadrilateral");
  T_WarpPoint points[4];
  for (size_t i = 0; i < 4; ++i) points[i] = {Fraction(corners[i].first), Fraction(corners[i].second)};
  T_Rect rect{};
  if (!area.is_none()) {
    const Area part = AreaOf(area);
    const int64_t right = int64_t{part.left} + part.width, bottom = int64_t{part.top} + part.height;
    if (right != static_cast<int32_t>(right) || bottom != static_cast<int32_t>(bottom)) Raise(ERR_INVALID_PARAMETER);
    rect = {part.left, part.top, static_cast<int32_t>(right), static_cast<int32_t>(bottom)};
  }
  Work({&target, &source}, [&] {
    return detail::done(
        T_CombineBitmapWarp(&target.Record(), points, &source.Record(), area.is_none() ? nullptr : &rect, method));
  });
}

void Scramble(PyBitmap& bitmap, uint32_t key, py::handle area, bool restore) {
  const Area part = area.is_none() ? Area{0, 0, Now(bitmap).bitmap.width(), bitmap.bitmap.height()} : AreaOf(area);
  Work({&bitmap}, [&] {
    return detail::done(T_ScrambleBitmap(&bitmap.Record(), part.left, part.top, part.width, part.height, key,
                                         restore ? T_SCRAMBLE_RESTORE : T_SCRAMBLE_SCRAMBLE));
  });
}

// ---- Overlays ------------------------------------------------------------------------------------------------------

void SetOverlay(PyBitmap& bitmap, int32_t index, PyBitmap& overlay) {
  Work({&bitmap, &overlay},
       [&] { return detail::done(T_SetOverlayBitmap(&bitmap.Record(), index, &overlay.Record(), T_OVERLAY_COPY)); });
}

py::object Attributes(PyBitmap& bitmap, int32_t index) {
  static PyObject* cache = nullptr;
  T_OverlayAttributes found{};
  Require(T_GetOverlayAttributes(&Now(bitmap).Record(), index, &found, sizeof found));
  return Type(cache, "OverlayAttributes")(found.Left, found.Top, Color::of(found.Color),
                                          (found.Flags & T_OVERLAY_VISIBLE) != 0, found.Bit);
}

void SetAttributes(PyBitmap& bitmap, int32_t index, std::optional<int32_t> left, std::optional<int32_t> top,
                   py::handle color, std::optional<bool> visible, std::optional<int32_t> bit) {
  T_OverlayAttributes to{};
  to.StructSize = sizeof to;
  if (!color.is_none()) to.Color = ColorOf(color).value();
  BitmapHandle& record = Now(bitmap).Record();
  T_OverlayAttributes present{};
  if (left.has_value() != top.has_value()) {
    Require(T_GetOverlayAttributes(&record, index, &present, sizeof present));
  }
  to.Left = left.value_or(present.Left);
  to.Top = top.value_or(present.Top);
  if (visible.value_or(false)) to.Flags = T_OVERLAY_VISIBLE;
  to.Bit = bit.value_or(0);
  const uint32_t which = (left || top ? uint32_t{T_OVERLAY_POSITION} : 0u) |
                         (color.is_none() ? 0u : uint32_t{T_OVERLAY_COLOR}) | Bit(visible, T_OVERLAY_FLAGS) |
                         Bit(bit, T_OVERLAY_BIT);
  Require(T_SetOverlayAttributes(&record, index, &to, which));
}

}  // namespace

void AddCombining(BitmapClass& type) {
  const auto none = py::none();
  type.def("combine", &Combine, "source"_a, "left"_a = 0, "top"_a = 0, py::kw_only(), "area"_a = none,
           "operation"_a = uint32_t{T_COMBINE_COPY}, "invert"_a = 0u)
      .def("warp", &Warp, "source"_a, "corners"_a, py::kw_only(), "area"_a = none,
           "method"_a = uint32_t{T_WARP_BILINEAR})
      .def("scramble", &Scramble, "key"_a, py::kw_only(), "area"_a = none, "restore"_a = false)
      .def_property_readonly("overlay_count", [](PyBitmap& bitmap) { return Now(bitmap).bitmap.overlayCount(); })
      .def(
          "overlay",
          [](PyBitmap& bitmap, int32_t index) {
            return std::make_unique<PyBitmap>(Work({&bitmap}, [&] { return bitmap.bitmap.overlay(index); }));
          },
          "index"_a)
      .def("set_overlay", &SetOverlay, "index"_a, "overlay"_a)
      .def(
          "remove_overlay", [](PyBitmap& bitmap, int32_t index) { Take(Now(bitmap).bitmap.removeOverlay(index)); },
          "index"_a)
      .def("overlay_attributes", &Attributes, "index"_a)
      .def("set_overlay_attributes", &SetAttributes, "index"_a, py::kw_only(), "left"_a = none, "top"_a = none,
           "color"_a = none, "visible"_a = none, "bit"_a = none)
      .def(
          "move_overlay_bits",
          [](PyBitmap& bitmap, int32_t index, uint32_t direction) {
            Work({&bitmap}, [&] { return detail::done(T_MoveOverlayBits(&bitmap.Record(), index, direction)); });
          },
          "index"_a, "direction"_a);
}

}  // namespace tarn::python
