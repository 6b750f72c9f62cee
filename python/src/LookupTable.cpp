// The lookup table of a gray bitmap of 12 or 16 bits: the colours that its samples stand for.

#include <algorithm>
#include <cstring>

#include "Binding.h"

namespace tarn::python {
namespace {

using Entries = std::vector<T_PaletteEntry>;

constexpr size_t kMost = 65536;

bool CanHaveTable(const BitmapHandle& record) {
  return record.Order == T_ORDER_GRAY && (record.BitsPerPixel == 12 || record.BitsPerPixel == 16);
}

Entries TableOf(const BitmapHandle& record) {
  const T_PaletteEntry* const table = record.LUT;
  return table ? Entries(table, table + record.LUTLength) : Entries();
}

/// Of an array of bytes: entries x 3, red, green and blue, or a level each.
Entries OfArray(py::handle array) {
  const auto held = HeldBuffer::Of(array, PyBUF_RECORDS_RO);
  const Py_buffer& view = held->View();
  const bool levels = view.ndim == 1;
  if (LetterOf(view) != 'B') RaiseAs(PyExc_TypeError, "entries of a lookup table are uint8: convert with astype()");
  if (!levels && (view.ndim != 2 || view.shape[1] != 3))
    RaiseAs(PyExc_ValueError, "a lookup table is an array of entries x 3: red, green, blue; or of a level an entry");
  if (view.shape[0] > static_cast<Py_ssize_t>(kMost))
    RaiseAs(PyExc_ValueError, "a lookup table has at most 65536 entries");
  Entries made(static_cast<size_t>(view.shape[0]));
  for (size_t i = 0; i < made.size(); ++i) {
    const auto* const entry = static_cast<const uint8_t*>(view.buf) + static_cast<Py_ssize_t>(i) * view.strides[0];
    const Py_ssize_t step = levels ? 0 : view.strides[1];
    made[i] = {entry[2 * step], entry[step], entry[0], 0};
  }
  return made;
}

Entries EntriesOf(py::handle value) {
  if (py::isinstance<Palette>(value)) {
    const auto& palette = value.cast<const Palette&>();
    return {palette.begin(), palette.end()};
  }
  if (PyObject_CheckBuffer(value.ptr())) return OfArray(value);
  if (!PySequence_Check(value.ptr()) || py::isinstance<py::str>(value))
    RaiseAs(PyExc_TypeError, "a lookup table is an array, a Palette or a sequence of colours");
  Entries made;
  for (const py::handle entry : value) {
    const Color color = ColorOf(entry);
    if (!color.isRgb()) RaiseAs(PyExc_ValueError, "a lookup table is of colours, not of levels or indices");
    if (made.size() == kMost) RaiseAs(PyExc_ValueError, "a lookup table has at most 65536 entries");
    made.push_back({color.blue(), color.green(), color.red(), 0});
  }
  return made;
}

/// The bitmap's own copy; none of no entries. Nothing is changed before there is memory.
void Store(BitmapHandle& record, const Entries& entries, bool inUse) {
  static constexpr const wchar_t kFile[] = L"python/LookupTable.cpp";
  T_PaletteEntry* table = nullptr;
  if (!entries.empty()) {
    table = static_cast<T_PaletteEntry*>(T_GlobalAlloc(entries.size(), sizeof(T_PaletteEntry), __LINE__, kFile));
    if (!table) Raise(ERR_NO_MEMORY);
    std::copy(entries.begin(), entries.end(), table);
  }
  if (record.LUT) T_GlobalFree(record.LUT, __LINE__, kFile);
  record.LUT = table;
  record.LUTLength = static_cast<uint32_t>(entries.size());
  record.Flags = (record.Flags & ~uint32_t{T_FLAG_LUT_IN_USE}) | (table && inUse ? uint32_t{T_FLAG_LUT_IN_USE} : 0u);
}

/// An open bitmap's record, of a format that has tables.
BitmapHandle& RecordForTable(PyBitmap& bitmap) {
  BitmapHandle& record = Now(bitmap).Record();
  if (bitmap.bitmap.empty()) Raise(ERR_NO_BITMAP);
  if (!CanHaveTable(record))
    Raise(ERR_BAD_BITS_PER_PIXEL, "lookup tables are of gray bitmaps of 12 and 16 bits; up to 8 bits have palettes");
  return record;
}

py::object LookupTable(PyBitmap& bitmap) {
  const Entries entries = TableOf(Now(bitmap).Record());
  if (entries.empty()) return py::none();
  py::object array = py::module_::import("numpy").attr("empty")(py::make_tuple(entries.size(), 3), py::str("uint8"));
  const auto held = HeldBuffer::Of(array, PyBUF_C_CONTIGUOUS | PyBUF_WRITABLE);
  uint8_t* target = Inside(*held).data();
  for (const T_PaletteEntry& entry : entries) {
    *target++ = entry.Red;
    *target++ = entry.Green;
    *target++ = entry.Blue;
  }
  return array;
}

void SetLookupTable(PyBitmap& bitmap, py::handle value) {
  if (value.is_none()) {
    Store(Now(bitmap).Record(), {}, false);
    return;
  }
  const Entries entries = EntriesOf(value);  // runs Python code: before the record is looked at
  BitmapHandle& record = RecordForTable(bitmap);
  int32_t significant = 0;
  T_GetGrayParams(record.BitsPerPixel, record.BitsPerPixel, record.LowBit, record.HighBit, &significant, nullptr,
                  nullptr);
  const size_t whole = size_t{1} << record.BitsPerPixel, used = size_t{1} << significant;
  if (entries.size() != whole && entries.size() != used)
    Raise(ERR_BAD_LUT_LENGTH, std::to_string(entries.size()) + " entries; samples of this bitmap have " +
                                  std::to_string(used) + " values" +
                                  (used == whole ? "" : ", pixels " + std::to_string(whole)));
  Store(record, entries, true);
}

void UseLookupTable(PyBitmap& bitmap, bool inUse) {
  BitmapHandle& record = Now(bitmap).Record();
  if (inUse && !record.LUT) RaiseAs(PyExc_ValueError, "there is no lookup table to use");
  record.Flags = (record.Flags & ~uint32_t{T_FLAG_LUT_IN_USE}) | (inUse ? uint32_t{T_FLAG_LUT_IN_USE} : 0u);
}

/// For copies that go through Python: all bytes of the entries, and whether they are in use.
py::object TableState(PyBitmap& bitmap) {
  const BitmapHandle& record = Now(bitmap).Record();
  const Entries entries = TableOf(record);
  if (entries.empty()) return py::none();
  const py::bytes bytes(reinterpret_cast<const char*>(entries.data()), entries.size() * sizeof(T_PaletteEntry));
  return py::make_tuple(bytes, (record.Flags & T_FLAG_LUT_IN_USE) != 0);
}

void SetTableState(PyBitmap& bitmap, const std::optional<std::pair<std::string, bool>>& state) {
  if (!state) return;
  Entries entries(std::min(state->first.size() / sizeof(T_PaletteEntry), kMost));
  if (!entries.empty()) std::memcpy(entries.data(), state->first.data(), entries.size() * sizeof(T_PaletteEntry));
  Store(RecordForTable(bitmap), entries, state->second);
}

}  // namespace

void AddLookupTable(BitmapClass& type) {
  type.def_property("lookup_table", &LookupTable, &SetLookupTable)
      .def_property(
          "uses_lookup_table", [](PyBitmap& bitmap) { return (Now(bitmap).Record().Flags & T_FLAG_LUT_IN_USE) != 0; },
          &UseLookupTable)
      .def_property("_table", &TableState, &SetTableState);
}

}  // namespace tarn::python
