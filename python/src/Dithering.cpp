// Dithering line by line, for pictures that are never whole in memory.

#include <algorithm>
#include <array>

#include "Binding.h"

namespace tarn::python {
namespace {

/// A run, and what its record points at: the record describes source pixels and has none itself.
struct PyDitherer : Owned {
  PyDitherer() = default;
  PyDitherer(const PyDitherer&) = delete;
  ~PyDitherer() { T_StopDithering(&record); }

  BitmapHandle record{};
  std::array<T_PaletteEntry, Palette::kMost> colors{};  // of the source
  std::vector<T_PaletteEntry> table;                    // of the source
  Palette palette;                                      // of the indices
  uint32_t indexBits = 0;
  std::vector<uint8_t> packed;  // a line of indices

  int32_t Width() const { return record.Width; }
  size_t LineBytes() const { return static_cast<size_t>((int64_t{record.Width} * record.BitsPerPixel + 7) / 8); }
};
using NewDitherer = std::unique_ptr<PyDitherer>;

/// How indices are to be made, as Python says it.
struct Target {
  Target(py::handle colors, std::optional<uint32_t> given, uint32_t bits)
      : palette(PaletteOf(colors)), method(given.value_or(T_GetDefaultDithering())), indexBits(bits) {
    if (bits > 8) RaiseAs(PyExc_ValueError, "indices have 1 to 8 bits");
    if (palette.empty() && indexBits == 0) indexBits = 8;
    if (palette.empty()) palette = Palette::fixed(static_cast<Depth>(indexBits));
    const size_t count = palette.size();
    for (; indexBits == 0 || (bits == 0 && size_t{1} << indexBits < count); ++indexBits) {
    }
    if (size_t{1} << indexBits < count)
      RaiseAs(PyExc_ValueError, "more colours than " + std::to_string(indexBits) + " bits can tell apart");
  }

  Palette palette;
  uint32_t method;
  uint32_t indexBits;
};

NewDitherer Started(NewDitherer ditherer, const Target& target) {
  BitmapHandle& record = ditherer->record;
  if (record.Flags & T_FLAG_SIGNED_DATA) Raise(ERR_SIGNED_DATA, "signed samples are not dithered: to_gray() first");
  record.DitheringMethod = target.method;
  ditherer->palette = target.palette;
  ditherer->indexBits = target.indexBits;
  Require(T_StartDitheringExt(&record, ditherer->palette.data(), static_cast<uint32_t>(ditherer->palette.size()),
                              target.indexBits, nullptr));
  ditherer->packed.resize(static_cast<size_t>((int64_t{record.Width} * target.indexBits + 7) / 8));
  return ditherer;
}

void Describe(PyDitherer& ditherer, int32_t width, int32_t bits, uint32_t order) {
  BitmapHandle& record = ditherer.record;
  Require(T_InitBitmap(&record, sizeof record, width, 1, bits));
  record.Order = bits == 12 ? uint32_t{T_ORDER_GRAY} : order;
}

void TakeColors(PyDitherer& ditherer, const Palette& palette) {
  if (palette.empty()) return;
  std::copy(palette.begin(), palette.end(), ditherer.colors.begin());
  ditherer.record.Palette = ditherer.colors.data();
  ditherer.record.Colors = static_cast<uint32_t>(palette.size());
}

NewDitherer OfLines(int32_t width, int32_t bits, py::handle palette, std::optional<uint32_t> method, uint32_t indexBits,
                    uint32_t order, py::handle sourcePalette) {
  const Target target(palette, method, indexBits);
  const Palette colors = PaletteOf(sourcePalette);
  RequireOrder(order);
  auto made = std::make_unique<PyDitherer>();
  Describe(*made, width, bits, order);
  if (bits <= 8) TakeColors(*made, colors);
  return Started(std::move(made), target);
}

NewDitherer Like(PyBitmap& bitmap, py::handle palette, std::optional<uint32_t> method, uint32_t indexBits) {
  const Target target(palette, method, indexBits);
  const BitmapHandle& source = Now(bitmap).Record();
  if (bitmap.bitmap.empty()) Raise(ERR_NO_BITMAP);
  auto made = std::make_unique<PyDitherer>();
  Describe(*made, source.Width, source.BitsPerPixel, source.Order);
  BitmapHandle& record = made->record;
  record.LowBit = source.LowBit;
  record.HighBit = source.HighBit;
  record.Flags = source.Flags & (T_FLAG_SIGNED_DATA | T_FLAG_LUT_IN_USE);
  if (source.BitsPerPixel <= 8) TakeColors(*made, bitmap.bitmap.palette());
  if (const T_PaletteEntry* const table = source.LUT) {
    made->table.assign(table, table + source.LUTLength);
    record.LUT = made->table.data();
    record.LUTLength = source.LUTLength;
  }
  return Started(std::move(made), target);
}

// ---- Lines ---------------------------------------------------------------------------------------------------------

/// Lines of source pixels as they are handed in: rows as Bitmap.row() gives them, or arrays of samples.
class GivenLines {
 public:
  GivenLines(py::handle pixels, const PyDitherer& ditherer, bool several)
      : held_(HeldBuffer::Of(pixels, PyBUF_FULL_RO)), bytes_(ditherer.LineBytes()) {
    const Py_buffer& view = held_->View();
    const std::optional<Samples> samples = SamplesOf(ditherer.record);
    const char letter = LetterOf(view);
    if (letter != 'B' && letter != 'c' && !(samples && letter == samples->format && view.itemsize == samples->bytes))
      RaiseAs(PyExc_TypeError, std::string("pixels are ") +
                                   (samples ? samples->bytes == 1   ? "uint8"
                                              : samples->bytes == 2 ? "uint16"
                                                                    : "uint32"
                                            : "bytes as row() gives them") +
                                   ", not \"" + (view.format ? view.format : "") + "\"");
    const auto all = static_cast<size_t>(view.len);
    const bool wholeLines = several ? all % bytes_ == 0 : all == bytes_;
    if (!wholeLines || !Shaped(view, ditherer, several, samples ? samples->channels : 1))
      RaiseAs(PyExc_ValueError, "a line has " + std::to_string(ditherer.Width()) + " pixels in " +
                                    std::to_string(bytes_) + " bytes" + (several ? ", and lines are whole" : ""));
    count_ = static_cast<int64_t>(all / bytes_);
    if (PyBuffer_IsContiguous(&view, 'C')) return;
    copy_.resize(all);
    if (PyBuffer_ToContiguous(copy_.data(), &view, view.len, 'C') != 0) throw py::error_already_set();
  }
  int64_t Count() const { return count_; }
  const uint8_t* Line(int64_t index) const {
    const auto* const first = copy_.empty() ? static_cast<const uint8_t*>(held_->View().buf) : copy_.data();
    return first + static_cast<size_t>(index) * bytes_;
  }

 private:
  /// Pixels of an array lie in its last dimensions, not in others that happen to have as many entries.
  bool Shaped(const Py_buffer& view, const PyDitherer& ditherer, bool several, int channels) const {
    const int lead = several && view.ndim > 1 ? 1 : 0, rest = view.ndim - lead;
    if (rest == 1) return several && lead == 0 ? true : static_cast<size_t>(view.shape[lead] * view.itemsize) == bytes_;
    return rest == 2 && view.shape[lead] == ditherer.Width() && view.shape[lead + 1] == channels && channels > 1;
  }

  std::unique_ptr<HeldBuffer> held_;
  size_t bytes_;
  int64_t count_ = 0;
  std::vector<uint8_t> copy_;
};

void RequireRunning(const PyDitherer& ditherer) {
  if (!ditherer.record.DitherContext) Raise(ERR_INVALID_PARAMETER, "the ditherer is closed");
}

/// Dithers into an array of an index a byte.
py::object Dithered(PyDitherer& ditherer, py::handle pixels, bool several) {
  const GivenLines lines(pixels, ditherer, several);
  const int32_t width = ditherer.Width();
  const py::tuple shape = several ? py::make_tuple(lines.Count(), width) : py::make_tuple(width);
  py::object array = py::module_::import("numpy").attr("empty")(shape, py::str("uint8"));
  const auto held = HeldBuffer::Of(array, PyBUF_C_CONTIGUOUS | PyBUF_WRITABLE);
  uint8_t* const target = Inside(*held).data();
  const Claim claim({&ditherer});
  RequireRunning(ditherer);
  Work({}, [&]() -> Result<void> {
    for (int64_t i = 0; i < lines.Count(); ++i) {
      uint8_t* const indices = target + i * width;
      const bool whole = ditherer.indexBits == 8;
      const int32_t status = T_DitherLine(&ditherer.record, lines.Line(i), whole ? indices : ditherer.packed.data());
      if (status != SUCCESS) return Failure{status};
      if (!whole) UnpackIndices(indices, ditherer.packed.data(), width, static_cast<int>(ditherer.indexBits));
    }
    return {};
  });
  return array;
}

py::bytes PackedLine(PyDitherer& ditherer, py::handle pixels) {
  const GivenLines line(pixels, ditherer, false);
  const Claim claim({&ditherer});
  RequireRunning(ditherer);
  Work({}, [&] { return detail::done(T_DitherLine(&ditherer.record, line.Line(0), ditherer.packed.data())); });
  return {reinterpret_cast<const char*>(ditherer.packed.data()), ditherer.packed.size()};
}

}  // namespace

void AddDithering(py::module_& module) {
  const auto none = py::none();
  py::class_<PyDitherer>(module, "Ditherer")
      .def(py::init(&OfLines), "width"_a, "bits"_a, "palette"_a = none, py::kw_only(), "method"_a = none,
           "index_bits"_a = 0u, "order"_a = uint32_t{T_ORDER_RGB}, "source_palette"_a = none)
      .def_static("like", &Like, "bitmap"_a, "palette"_a = none, py::kw_only(), "method"_a = none, "index_bits"_a = 0u)
      .def(
          "line", [](PyDitherer& ditherer, py::handle pixels) { return Dithered(ditherer, pixels, false); }, "pixels"_a)
      .def(
          "lines", [](PyDitherer& ditherer, py::handle pixels) { return Dithered(ditherer, pixels, true); }, "pixels"_a)
      .def("packed_line", &PackedLine, "pixels"_a)
      .def_property_readonly("width", &PyDitherer::Width)
      .def_property_readonly("palette", [](const PyDitherer& ditherer) { return ditherer.palette; })
      .def_property_readonly("index_bits", [](const PyDitherer& ditherer) { return ditherer.indexBits; })
      .def("close", [](PyDitherer& ditherer) { T_StopDithering(&Now(ditherer).record); })
      .def("__enter__", [](py::object self) { return self; })
      .def("__exit__", [](PyDitherer& ditherer, const py::args&) { T_StopDithering(&Now(ditherer).record); });
}

}  // namespace tarn::python
