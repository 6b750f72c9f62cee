// Size, shape and orientation; rectangles; device-independent bitmaps.

#include <cmath>

#include "Binding.h"

namespace tarn::python {
namespace {

void Rotate(PyBitmap& bitmap, double degrees, uint32_t method, bool resize,
            std::optional<std::pair<float, float>> center, py::handle fill) {
  const Color color = ColorOf(fill);
  const int32_t angle = Hundredths(degrees);
  const uint32_t flags = method | (center ? uint32_t{ROTATE_CENTER} : resize ? uint32_t{ROTATE_RESIZE} : 0u);
  Replace(bitmap, "rotate", [&] {
    if (!center) return detail::done(T_RotateBitmap(&bitmap.Record(), angle, flags, color.value()));
    return detail::done(
        T_IntRotateBitmap(&bitmap.Record(), angle, flags, color.value(), 0, 100, center->first, center->second));
  });
}

void Shear(PyBitmap& bitmap, double degrees, uint32_t axis, py::handle fill) {
  const Color color = ColorOf(fill);
  const int32_t angle = Hundredths(degrees);
  Replace(bitmap, "shear", [&] { return bitmap.bitmap.shear(angle, static_cast<ShearAxis>(axis), color); });
}

NewBitmap CopyRect(PyBitmap& bitmap, int32_t left, int32_t top, int32_t width, int32_t height,
                   std::optional<uint32_t> storage) {
  if ((Now(bitmap).Record().Flags & T_FLAG_USER_DATA) && !storage) storage = TYPE_CONV;
  const Area area{left, top, width, height};
  return Made(bitmap, [&] {
    return storage ? bitmap.bitmap.copy(area, static_cast<Storage>(*storage)) : bitmap.bitmap.copy(area);
  });
}

void ResizeInto(PyBitmap& source, PyBitmap& target, uint32_t method) {
  if (&source == &target) RaiseAs(PyExc_ValueError, "a bitmap cannot be resized into itself");
  Work({&source, &target}, [&] { return source.bitmap.resizeInto(target.bitmap, static_cast<ResizeMethod>(method)); });
}

py::bytes ToDib(PyBitmap& bitmap) {
  const Dib dib = Work({&bitmap}, [&] { return bitmap.bitmap.toDib(); });
  const auto bytes = dib.bytes();
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

NewBitmap FromDib(py::handle data) {
  const auto buffer = HeldBuffer::Of(data, PyBUF_C_CONTIGUOUS);
  const std::span<const uint8_t> bytes(static_cast<const uint8_t*>(buffer->View().buf),
                                       static_cast<size_t>(buffer->View().len));
  return std::make_unique<PyBitmap>(Work({}, [&]() -> Result<Bitmap> {
    Result<Dib> dib = Dib::copyOf(bytes);
    if (!dib) return dib.failure();
    return Bitmap::fromDib(*dib);
  }));
}

/// Points and rectangles between the picture as it is seen and the rows as they are stored.
std::pair<int32_t, int32_t> PointToBitmap(PyBitmap& bitmap, int32_t x, int32_t y, uint32_t perspective) {
  Require(T_PointToBitmap(&Now(bitmap).Record(), perspective, &x, &y));
  return {x, y};
}
std::pair<int32_t, int32_t> PointFromBitmap(PyBitmap& bitmap, int32_t x, int32_t y, uint32_t perspective) {
  Require(T_PointFromBitmap(&Now(bitmap).Record(), perspective, &x, &y));
  return {x, y};
}

}  // namespace

void AddGeometry(BitmapClass& type) {
  const auto none = py::none();
  type.def("copy_rect", &CopyRect, "left"_a, "top"_a, "width"_a, "height"_a, py::kw_only(), "storage"_a = none)
      .def(
          "crop",
          [](PyBitmap& bitmap, int32_t left, int32_t top, int32_t width, int32_t height) {
            Replace(bitmap, "crop", [&] { return bitmap.bitmap.crop({left, top, width, height}); });
          },
          "left"_a, "top"_a, "width"_a, "height"_a)
      .def(
          "resize",
          [](PyBitmap& bitmap, int32_t width, int32_t height, uint32_t method) {
            Replace(bitmap, "resize",
                    [&] { return bitmap.bitmap.resize(width, height, static_cast<ResizeMethod>(method)); });
          },
          "width"_a, "height"_a = 0, py::kw_only(), "method"_a = uint32_t{RESIZE_SMOOTH})
      .def("resize_into", &ResizeInto, "target"_a, py::kw_only(), "method"_a = uint32_t{RESIZE_SMOOTH})
      .def("rotate", &Rotate, "degrees"_a, py::kw_only(), "method"_a = uint32_t{ROTATE_BILINEAR}, "resize"_a = true,
           "center"_a = none, "fill"_a = py::make_tuple(0, 0, 0))
      .def(
          "rotate_quarter",
          [](PyBitmap& bitmap, uint32_t turn) {
            Replace(bitmap, "rotate_quarter", [&] { return bitmap.bitmap.rotateQuarter(static_cast<Turn>(turn)); });
          },
          "turn"_a = 1u)
      .def("shear", &Shear, "degrees"_a, py::kw_only(), "axis"_a = 1u, "fill"_a = py::make_tuple(0, 0, 0))
      .def("flip", [](PyBitmap& bitmap) { Work({&bitmap}, [&] { return bitmap.bitmap.flip(); }); })
      .def("reverse", [](PyBitmap& bitmap) { Work({&bitmap}, [&] { return bitmap.bitmap.reverse(); }); })
      .def(
          "change_perspective",
          [](PyBitmap& bitmap, uint32_t perspective) {
            Replace(bitmap, "change_perspective", [&] { return bitmap.bitmap.changePerspective(perspective); });
          },
          "view_perspective"_a)
      .def("flip_view", [](PyBitmap& bitmap) { Require(T_FlipBitmapViewPerspective(&Now(bitmap).Record())); })
      .def("reverse_view", [](PyBitmap& bitmap) { Require(T_ReverseBitmapViewPerspective(&Now(bitmap).Record())); })
      .def(
          "rotate_view",
          [](PyBitmap& bitmap, int32_t degrees) {
            Require(T_RotateBitmapViewPerspective(&Now(bitmap).Record(), degrees));
          },
          "degrees"_a)
      .def("point_to_bitmap", &PointToBitmap, "x"_a, "y"_a, py::kw_only(), "view_perspective"_a = 1u)
      .def("point_from_bitmap", &PointFromBitmap, "x"_a, "y"_a, py::kw_only(), "view_perspective"_a = 1u)
      .def("to_dib", &ToDib)
      .def_static("from_dib", &FromDib, "data"_a);
}

}  // namespace tarn::python
