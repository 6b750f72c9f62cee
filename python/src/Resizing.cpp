// Rows in another size, one after another, without a bitmap of that size.

#include <algorithm>
#include <cstring>

#include "Binding.h"

namespace tarn::python {
namespace {

size_t BytesOf(int32_t width, int32_t bits) { return static_cast<size_t>((int64_t{width} * bits + 7) / 8); }

/// The state of rows that pass by, which knows extents that follow from others too.
struct RowState {
  RowState(int32_t width, int32_t height, int32_t newWidth, int32_t newHeight) {
    Require(T_StartResize(width, height, newWidth, newHeight, &state));
  }
  RowState(const RowState&) = delete;
  ~RowState() { T_StopResize(state); }
  ResizeRowState* operator->() const { return state; }

  ResizeRowState* state = nullptr;
};

// ---- Rows of a bitmap ----------------------------------------------------------------------------------------------

/// Reads the bitmap as it goes, which therefore keeps its pixels in place until the last row, or until it is closed.
struct PyResizedRows : Owned {
  PyResizedRows() = default;
  PyResizedRows(const PyResizedRows&) = delete;
  ~PyResizedRows() { Stop(); }

  void Stop() {
    if (!source) return;
    if (state) T_StopResizeBitmap(state);
    state = nullptr;
    --source.cast<PyBitmap&>().streams;
    source = py::object();
  }

  py::object source;  // none once all is done
  void* state = nullptr;
  std::vector<uint8_t> line;  // of the source, where the nearest pixels are taken
  int32_t width = 0;
  int32_t height = 0;
  int32_t row = 0;  // the next one
};

std::unique_ptr<PyResizedRows> ResizedRows(py::object self, int32_t width, int32_t height, uint32_t method) {
  auto& bitmap = self.cast<PyBitmap&>();
  if (method != RESIZE_NEAREST && method != RESIZE_AREA && method != RESIZE_SMOOTH)
    RaiseAs(PyExc_ValueError, "rows are resized by NEAREST, AREA or SMOOTH");
  if (Now(bitmap).bitmap.empty()) Raise(ERR_NO_BITMAP);
  auto made = std::make_unique<PyResizedRows>();
  const Claim claim({&bitmap});
  const RowState extents(bitmap.bitmap.width(), bitmap.bitmap.height(), width, height);
  made->width = extents->NewWidth;
  made->height = extents->NewHeight;
  const bool same = made->width == bitmap.bitmap.width() && made->height == bitmap.bitmap.height();
  if (method == RESIZE_NEAREST || same) {
    made->line.resize(bitmap.bitmap.rowBytes());
  } else {
    Work({}, [&] {
      return detail::done(T_StartResizeBitmap(&made->state, &bitmap.Record(), made->width, made->height, method));
    });
  }
  made->source = std::move(self);
  ++bitmap.streams;
  return made;
}

/// The row of nearest pixels.
Result<void> NearestRow(PyResizedRows& rows, const Bitmap& from, uint8_t* target) {
  const int32_t width = from.width();
  const auto row = static_cast<int32_t>(int64_t{rows.row} * from.height() / rows.height);
  if (const Result<void> read = from.readRow(row, rows.line); !read) return read;
  T_GetResizedScanLine(from.bits(), 0, 0, width / rows.width, 0, width % rows.width, rows.line.data(), target,
                       rows.width, rows.width, rows.width > width);
  return {};
}

py::bytes NextRow(PyResizedRows& rows) {
  const py::object held = Now(rows).source;  // stays when the last row lets go of it
  if (!held) throw py::stop_iteration();
  auto& bitmap = held.cast<PyBitmap&>();
  const Claim claim({&rows, &bitmap});
  if (!rows.source) throw py::stop_iteration();  // another thread has the last row
  py::bytes made = NewBytes(BytesOf(rows.width, bitmap.bitmap.bits()));
  const auto target = Inside(made);
  Work({}, [&] {
    if (!rows.state) return NearestRow(rows, bitmap.bitmap, target.data());
    return detail::done(
        T_GetResizedRowCol(rows.state, target.data(), static_cast<uint32_t>(rows.row), 0, target.size()));
  });
  if (++rows.row == rows.height) rows.Stop();
  return made;
}

// ---- Rows that are fed ---------------------------------------------------------------------------------------------

struct PyRowResizer : Owned {
  PyRowResizer(int32_t width, int32_t height, int32_t depth, int32_t newWidth, int32_t newHeight)
      : state(width, height, newWidth, newHeight), bits(depth) {
    const bool known =
        (bits >= 1 && bits <= 8) || bits == 12 || bits == 16 || bits == 24 || bits == 32 || bits == 48 || bits == 64;
    if (!known) Raise(ERR_BAD_BITS_PER_PIXEL, "pixels have 1 to 8, 12, 16, 24, 32, 48 or 64 bits");
    room = std::make_unique_for_overwrite<uint8_t[]>(BytesOf(std::max(width, state->NewWidth), bits));
  }

  RowState state;
  int32_t bits;
  int32_t next = 0;
  std::unique_ptr<uint8_t[]> room;  // for the wider of the two
};

/// The row in its new width, as many times as it is to be written.
py::object Feed(PyRowResizer& resizer, py::handle data, std::optional<int32_t> given) {
  const auto held = HeldBuffer::Of(data, PyBUF_C_CONTIGUOUS);
  const auto line = Inside(*held);
  const size_t bytes = BytesOf(resizer.state->OldWidth, resizer.bits);
  if (line.size() != bytes)
    RaiseAs(PyExc_ValueError, "a row has " + std::to_string(bytes) + " bytes, not " + std::to_string(line.size()));
  const Claim claim({&resizer});
  const int32_t row = given.value_or(resizer.next), height = resizer.state->OldHeight;
  if (row < 0 || row >= height)
    throw py::index_error("row " + std::to_string(row) + " of a picture that has " + std::to_string(height));
  int32_t width = 0, count = 0;
  Work({}, [&]() -> Result<void> {
    std::memcpy(resizer.room.get(), line.data(), bytes);
    T_Resize(resizer.room.get(), row, resizer.bits, &width, &count, resizer.state.state);
    return {};
  });
  resizer.next = row + 1;
  const py::bytes made(reinterpret_cast<const char*>(resizer.room.get()),
                       count == 0 ? 0 : BytesOf(width, resizer.bits));
  return py::module_::import("itertools").attr("repeat")(made, count);
}

}  // namespace

void AddResizing(py::module_& module, BitmapClass& type) {
  py::class_<PyResizedRows>(module, "ResizedRows")
      .def("__iter__", [](py::object self) { return self; })
      .def("__next__", &NextRow)
      .def("__length_hint__", [](PyResizedRows& rows) { return Now(rows).source ? rows.height - rows.row : 0; })
      .def_property_readonly("width", [](const PyResizedRows& rows) { return rows.width; })
      .def_property_readonly("height", [](const PyResizedRows& rows) { return rows.height; })
      .def("close", [](PyResizedRows& rows) { Now(rows).Stop(); })
      .def("__enter__", [](py::object self) { return self; })
      .def("__exit__", [](PyResizedRows& rows, const py::args&) { Now(rows).Stop(); });
  type.def("resized_rows", &ResizedRows, "width"_a, "height"_a = 0, py::kw_only(),
           "method"_a = uint32_t{RESIZE_SMOOTH});

  py::class_<PyRowResizer>(module, "RowResizer")
      .def(py::init<int32_t, int32_t, int32_t, int32_t, int32_t>(), "width"_a, "height"_a, "bits"_a, "new_width"_a,
           "new_height"_a = 0)
      .def("feed", &Feed, "data"_a, py::kw_only(), "row"_a = py::none())
      .def_property_readonly("width", [](const PyRowResizer& resizer) { return V(resizer.state->NewWidth); })
      .def_property_readonly("height", [](const PyRowResizer& resizer) { return V(resizer.state->NewHeight); });
}

}  // namespace tarn::python
