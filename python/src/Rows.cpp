// Rows and pixels, one at a time and many at once.

#include <algorithm>
#include <cstring>

#include "Binding.h"

namespace tarn::python {
namespace {

/// Rows of memory are quick to copy, and giving up the interpreter's lock takes longer.
bool Quick(const Bitmap& bitmap) {
  constexpr uint32_t kSlow = T_FLAG_ON_DISK | T_FLAG_TILED | T_FLAG_SUPER_COMPRESSED;
  return !(bitmap.handle()->Flags & kSlow);
}

template <class F>
void QuickOrWork(PyBitmap& bitmap, F&& step) {
  if (Quick(Now(bitmap).bitmap)) {
    Take(step());
  } else {
    Work({&bitmap}, step);
  }
}

void RequireRows(PyBitmap& bitmap, int64_t first, int64_t count) {
  if (Now(bitmap).bitmap.empty()) Raise(ERR_NO_BITMAP);
  const int64_t height = bitmap.bitmap.height();
  if (first < 0 || count < 0 || first > height || count > height - first)
    throw py::index_error("rows " + std::to_string(first) + " to " + std::to_string(first + count - 1) +
                          " of a bitmap that has " + std::to_string(height));
}

void RequirePixel(PyBitmap& bitmap, int64_t row, int64_t column) {
  RequireRows(bitmap, row, 1);
  if (column < 0 || column >= bitmap.bitmap.width())
    throw py::index_error("column " + std::to_string(column) + " of a bitmap that has " +
                          std::to_string(bitmap.bitmap.width()));
}

/// Moves the bytes of `count` rows, pixelBytes() of each without their padding, out of the bitmap or into it.
template <class Move>
Result<void> EachRow(int32_t first, int32_t count, size_t bytes, std::span<uint8_t> all, Move&& move) {
  for (int32_t i = 0; i < count; ++i) {
    const Result<void> moved = move(first + i, all.subspan(static_cast<size_t>(i) * bytes, bytes));
    if (!moved) return moved;
  }
  return {};
}

void ReadInto(PyBitmap& bitmap, int32_t first, int32_t count, std::span<uint8_t> target) {
  const Bitmap& from = bitmap.bitmap;
  const auto step = [&] {
    return EachRow(first, count, from.pixelBytes(), target,
                   [&](int32_t row, auto line) { return from.readRow(row, line); });
  };
  count == 1 ? QuickOrWork(bitmap, step) : static_cast<void>((Work({&bitmap}, step), 0));
}

py::bytes Rows(PyBitmap& bitmap, int32_t first, int32_t count) {
  RequireRows(bitmap, first, count);
  py::bytes made = NewBytes(bitmap.bitmap.pixelBytes() * static_cast<size_t>(count));
  ReadInto(bitmap, first, count, Inside(made));
  return made;
}

py::bytes Row(PyBitmap& bitmap, int32_t row) { return Rows(bitmap, row, 1); }

void RowsInto(PyBitmap& bitmap, int32_t first, py::handle target) {
  const auto buffer = HeldBuffer::Of(target, PyBUF_C_CONTIGUOUS | PyBUF_WRITABLE);
  RequireRows(bitmap, first, 0);
  const auto all = Inside(*buffer);
  const size_t bytes = bitmap.bitmap.pixelBytes();
  if (all.size() % bytes != 0)
    RaiseAs(PyExc_ValueError,
            "a row has " + std::to_string(bytes) + " bytes, the buffer holds no whole number of rows");
  const auto count = static_cast<int64_t>(all.size() / bytes);
  RequireRows(bitmap, first, count);
  ReadInto(bitmap, first, static_cast<int32_t>(count), all);
}

void PutRows(PyBitmap& bitmap, int32_t first, py::handle source) {
  const auto buffer = HeldBuffer::Of(source, PyBUF_C_CONTIGUOUS);
  RequireRows(bitmap, first, 0);
  const auto all = Inside(*buffer);
  const size_t bytes = bitmap.bitmap.pixelBytes();
  if (all.size() % bytes != 0)
    RaiseAs(PyExc_ValueError, "a row has " + std::to_string(bytes) + " bytes, " + std::to_string(all.size()) +
                                  " are no whole number of rows");
  const auto count = static_cast<int64_t>(all.size() / bytes);
  RequireRows(bitmap, first, count);
  const auto step = [&] {
    return EachRow(first, static_cast<int32_t>(count), bytes, all,
                   [&](int32_t row, auto line) { return bitmap.bitmap.writeRow(row, line); });
  };
  count == 1 ? QuickOrWork(bitmap, step) : static_cast<void>((Work({&bitmap}, step), 0));
}

void PutSegments(PyBitmap& bitmap, int32_t row, py::handle source,
                 const std::vector<std::pair<uint32_t, uint32_t>>& segments, uint32_t columnOffset,
                 bool preserveAlpha) {
  const auto buffer = HeldBuffer::Of(source, PyBUF_C_CONTIGUOUS);
  RequireRows(bitmap, row, 1);
  const auto line = Inside(*buffer);
  if (line.size() < bitmap.bitmap.pixelBytes())
    RaiseAs(PyExc_ValueError, "a row has " + std::to_string(bitmap.bitmap.pixelBytes()) + " bytes");
  std::vector<uint32_t> ends;
  for (const auto& [start, end] : segments) {
    ends.push_back(start);
    ends.push_back(end);
  }
  QuickOrWork(bitmap, [&] {
    return detail::done(T_PutBitmapRowSegments(&bitmap.Record(), line.data(), static_cast<uint32_t>(row), columnOffset,
                                               ends.data(), static_cast<uint32_t>(ends.size()), preserveAlpha));
  });
}

// ---- Runs of one-bit rows ------------------------------------------------------------------------------------------

uint64_t MostOfRecord(int32_t width) {
  const auto pixels = static_cast<uint64_t>(width);
  return 4 + 2 * (pixels + 1) + 2 * (pixels / 65528 * 2);
}

py::bytes CompressedRows(PyBitmap& bitmap, int32_t first, int32_t count) {
  RequireRows(bitmap, first, count);
  if (bitmap.bitmap.bits() != 1) Raise(ERR_BAD_BITS_PER_PIXEL, "rows of one bit a pixel have runs");
  std::string all, record(MostOfRecord(bitmap.bitmap.width()), 0);
  Work({&bitmap}, [&]() -> Result<void> {
    for (int32_t i = 0; i < count; ++i) {
      const int32_t got =
          T_GetBitmapRowCompressed(&bitmap.Record(), nullptr, record.data(), static_cast<uint32_t>(first + i), 1);
      if (got != SUCCESS) return Failure{got};
      uint32_t words = 0;
      std::memcpy(&words, record.data(), sizeof words);
      all.append(record.data(), 4 + uint64_t{words} * 2);
    }
    return {};
  });
  return all;
}

void PutCompressedRows(PyBitmap& bitmap, int32_t first, py::handle source) {
  const auto buffer = HeldBuffer::Of(source, PyBUF_C_CONTIGUOUS);
  RequireRows(bitmap, first, 0);
  if (bitmap.bitmap.bits() != 1) Raise(ERR_BAD_BITS_PER_PIXEL, "rows of one bit a pixel have runs");
  const auto all = Inside(*buffer);
  int64_t count = 0;
  for (size_t at = 0; at < all.size(); ++count) {  // nothing tells the library how long the records are
    uint32_t words = 0;
    if (all.size() - at >= 4) std::memcpy(&words, all.data() + at, sizeof words);
    const size_t bytes = 4 + size_t{words} * 2;
    if (all.size() - at < bytes) RaiseAs(PyExc_ValueError, "the runs are cut off");
    at += bytes;
  }
  RequireRows(bitmap, first, count);
  Replace(bitmap, "put_compressed_rows", [&] {
    return detail::done(T_PutBitmapRowCompressed(&bitmap.Record(), nullptr, all.data(), static_cast<uint32_t>(first),
                                                 static_cast<uint32_t>(count)));
  });
}

// ---- Pixels --------------------------------------------------------------------------------------------------------

Color Pixel(PyBitmap& bitmap, int32_t row, int32_t column) {
  RequirePixel(bitmap, row, column);
  return Take(bitmap.bitmap.pixel(row, column));
}

void PutPixel(PyBitmap& bitmap, int32_t row, int32_t column, py::handle color) {
  const Color value = ColorOf(color);
  RequirePixel(bitmap, row, column);
  Take(bitmap.bitmap.setPixel(row, column, value));
}

size_t BytesOfPixel(const Bitmap& bitmap, int64_t column) {
  const int64_t bits = bitmap.bits();
  return static_cast<size_t>(((column + 1) * bits + 7) / 8 - column * bits / 8);
}

py::bytes PixelData(PyBitmap& bitmap, int32_t row, int32_t column) {
  RequirePixel(bitmap, row, column);
  py::bytes made = NewBytes(BytesOfPixel(bitmap.bitmap, column));
  Take(bitmap.bitmap.readPixel(row, column, Inside(made)));
  return made;
}

void PutPixelData(PyBitmap& bitmap, int32_t row, int32_t column, const py::bytes& data) {
  RequirePixel(bitmap, row, column);
  if (Inside(data).size() != BytesOfPixel(bitmap.bitmap, column))
    RaiseAs(PyExc_ValueError, "this pixel is in " + std::to_string(BytesOfPixel(bitmap.bitmap, column)) + " bytes");
  Take(bitmap.bitmap.writePixel(row, column, Inside(data)));
}

py::bytes ColorToPixel(PyBitmap& bitmap, py::handle color) {
  const Color value = ColorOf(color);
  uint8_t bytes[8] = {};
  Take(Now(bitmap).bitmap.colorToPixel(value, bytes));
  const int32_t bits = bitmap.bitmap.bits();
  return {reinterpret_cast<const char*>(bytes), static_cast<size_t>(bits == 12 ? 2 : (bits + 7) / 8)};
}

}  // namespace

void AddRows(BitmapClass& type) {
  type.def("row", &Row, "row"_a)
      .def("rows", &Rows, "first"_a, "count"_a)
      .def("read_rows_into", &RowsInto, "first"_a, "buffer"_a)
      .def("put_rows", &PutRows, "first"_a, "data"_a)
      .def(
          "put_row",
          [](PyBitmap& bitmap, int32_t row, py::handle data) {
            RequireRows(bitmap, row, 1);
            if (const auto bytes = HeldBuffer::Of(data, PyBUF_C_CONTIGUOUS)->View().len;
                static_cast<size_t>(bytes) != bitmap.bitmap.pixelBytes())
              RaiseAs(PyExc_ValueError, "a row has " + std::to_string(bitmap.bitmap.pixelBytes()) + " bytes, not " +
                                            std::to_string(bytes));
            PutRows(bitmap, row, data);
          },
          "row"_a, "data"_a)
      .def("put_row_segments", &PutSegments, "row"_a, "data"_a, "segments"_a, py::kw_only(), "column_offset"_a = 0u,
           "preserve_alpha"_a = false)
      .def("compressed_rows", &CompressedRows, "first"_a, "count"_a)
      .def("put_compressed_rows", &PutCompressedRows, "first"_a, "data"_a)
      .def("pixel", &Pixel, "row"_a, "column"_a)
      .def("put_pixel", &PutPixel, "row"_a, "column"_a, "color"_a)
      .def("pixel_data", &PixelData, "row"_a, "column"_a)
      .def("put_pixel_data", &PutPixelData, "row"_a, "column"_a, "data"_a)
      .def("color_to_pixel", &ColorToPixel, "color"_a);
}

}  // namespace tarn::python
