// Pixels as memory that others look at, and pixels out of arrays: the buffer protocol, unpacking and packing.

#include <array>
#include <cstring>

#include "Binding.h"

namespace tarn::python {

std::optional<Samples> SamplesOf(const BitmapHandle& record) {
  const bool gray = record.Order == T_ORDER_GRAY, isSigned = record.Flags & T_FLAG_SIGNED_DATA;
  switch (record.BitsPerPixel) {
    case 8:
      return Samples{'B', 1, 1};
    case 16:
      if (!gray) return std::nullopt;
      return Samples{isSigned ? 'h' : 'H', 2, 1};
    case 24:
      return Samples{'B', 1, 3};
    case 32:
      if (gray) return Samples{isSigned ? 'i' : 'I', 4, 1};
      return Samples{'B', 1, 4};
    case 48:
      return Samples{'H', 2, 3};
    case 64:
      return Samples{'H', 2, 4};
    default:
      return std::nullopt;
  }
}

char LetterOf(const Py_buffer& view) {
  const char* format = view.format ? view.format : "B";
  if (*format == '<' || *format == '=' || *format == '|' || *format == '@') ++format;
  if (!format[0] || format[1]) return 0;
  return format[0] == 'L' && view.itemsize == 4 ? 'I' : format[0] == 'l' && view.itemsize == 4 ? 'i' : format[0];
}

namespace {

// ---- Views ---------------------------------------------------------------------------------------------------------

/// Says why the pixels cannot be looked at, and what to do; null when they can.
const char* WhyNot(PyBitmap& bitmap) {
  if (bitmap.bitmap.empty()) return "the bitmap is closed";
  const uint32_t flags = bitmap.Record().Flags;
  if (flags & T_FLAG_TILED)
    return "the pixels are in tiles, not in one block: move_to(Storage.NO_TILES) first, or use rows() or unpacked()";
  if (flags & T_FLAG_ON_DISK)
    return "the pixels are in a temporary file: move_to(Storage.MEMORY) first, or use rows() or unpacked()";
  if (flags & T_FLAG_COMPRESSED)
    return "the pixels are run lengths: unpacked() makes an array of them, compress(Storage.MEMORY) and unpacked() too";
  if (flags & T_FLAG_SUPER_COMPRESSED)
    return "the pixels are super-compressed: compress(Storage.MEMORY) first, or use rows() or unpacked()";
  if (!SamplesOf(bitmap.Record()))
    return "pixels of this depth share bytes: unpacked() makes an array of them, Bitmap.from_array(array, bits=...) "
           "brings one back";
  if (bitmap.bitmap.rowInPlace(0).empty()) return "the pixels are not in memory that can be looked at";
  return nullptr;
}

/// Shape and steps of an exported buffer; they live as long as it does.
struct Exported {
  std::array<Py_ssize_t, 3> shape{};
  std::array<Py_ssize_t, 3> strides{};
  char format[2] = {};
};

int Refuse(Py_buffer* view, const char* why) {
  view->obj = nullptr;
  PyErr_SetString(PyExc_BufferError, why);
  return -1;
}

/// What `fill` answers; what it throws becomes the view's error.
template <class Fill>
int Answer(Py_buffer* view, const Fill& fill) {
  try {
    return fill();
  } catch (py::error_already_set& error) {
    view->obj = nullptr;
    error.restore();
  } catch (const std::exception& error) {
    return Refuse(view, error.what());
  }
  return -1;
}

int GetBuffer(PyObject* self, Py_buffer* view, int flags) {
  return Answer(view, [&]() -> int {
    auto& bitmap = Now(py::handle(self).cast<PyBitmap&>());
    if (const char* const why = WhyNot(bitmap)) return Refuse(view, why);
    const Samples samples = *SamplesOf(bitmap.Record());
    const Py_ssize_t width = bitmap.bitmap.width(), height = bitmap.bitmap.height();
    const Py_ssize_t pixel = Py_ssize_t{samples.bytes} * samples.channels;
    const auto stride = static_cast<Py_ssize_t>(bitmap.bitmap.rowBytes());
    const bool whole = stride == width * pixel;
    const bool byRows = whole || height == 1;
    if (!byRows && (flags & PyBUF_STRIDES) != PyBUF_STRIDES)
      return Refuse(
          view, "rows are padded to 4 bytes: look through memoryview(bitmap) or numpy.asarray(bitmap), or use rows()");
    if ((flags & PyBUF_F_CONTIGUOUS) == PyBUF_F_CONTIGUOUS ||
        (!byRows && ((flags & PyBUF_C_CONTIGUOUS) == PyBUF_C_CONTIGUOUS ||
                     (flags & PyBUF_ANY_CONTIGUOUS) == PyBUF_ANY_CONTIGUOUS)))
      return Refuse(view, "rows are padded to 4 bytes: ask for strides, not for one run of bytes");
    auto exported = std::make_unique<Exported>();
    exported->shape = {height, width, samples.channels};
    exported->strides = {stride, pixel, samples.bytes};
    exported->format[0] = samples.format;
    view->buf = bitmap.bitmap.rowInPlace(0).data();
    view->len = height * width * pixel;
    view->itemsize = samples.bytes;
    view->readonly = 0;
    view->ndim = samples.channels == 1 ? 2 : 3;
    view->format = (flags & PyBUF_FORMAT) ? exported->format : nullptr;
    view->shape = (flags & PyBUF_ND) == PyBUF_ND ? exported->shape.data() : nullptr;
    view->strides = (flags & PyBUF_STRIDES) == PyBUF_STRIDES ? exported->strides.data() : nullptr;
    view->suboffsets = nullptr;
    view->internal = exported.release();
    view->obj = Py_NewRef(self);
    ++bitmap.views;
    return 0;
  });
}

void ReleaseBuffer(PyObject* self, Py_buffer* view) {
  --py::handle(self).cast<PyBitmap&>().views;
  delete static_cast<Exported*>(view->internal);
}

/// All bytes of a bitmap, padding included, as one run: what an array interface wants to be given.
struct Block {
  py::object bitmap;
};

int GetBlock(PyObject* self, Py_buffer* view, int flags) {
  return Answer(view, [&]() -> int {
    auto& bitmap = Now(py::handle(self).cast<Block&>().bitmap.cast<PyBitmap&>());
    if (const char* const why = WhyNot(bitmap)) return Refuse(view, why);
    uint8_t* const first = bitmap.bitmap.rowInPlace(0).data();
    const auto bytes = static_cast<Py_ssize_t>(bitmap.bitmap.rowBytes()) * bitmap.bitmap.height();
    if (PyBuffer_FillInfo(view, self, first, bytes, 0, flags) != 0) return -1;
    ++bitmap.views;
    return 0;
  });
}

void ReleaseBlock(PyObject* self, Py_buffer*) { --py::handle(self).cast<Block&>().bitmap.cast<PyBitmap&>().views; }

void RequireView(PyBitmap& bitmap) {
  if (const char* const why = WhyNot(Now(bitmap))) RaiseAs(PyExc_BufferError, why);
}

py::object Array(py::object self, py::object dtype, py::object copy) {
  RequireView(self.cast<PyBitmap&>());
  const py::module_ numpy = py::module_::import("numpy");
  const py::object view = py::reinterpret_steal<py::object>(PyMemoryView_FromObject(self.ptr()));
  if (!view) throw py::error_already_set();
  py::object array = numpy.attr("asarray")(view, dtype);
  return copy.ptr() == Py_True ? py::object(array.attr("copy")()) : array;
}

py::tuple ShapeOf(const PyBitmap& bitmap, int channels) {
  if (channels == 1) return py::make_tuple(bitmap.bitmap.height(), bitmap.bitmap.width());
  return py::make_tuple(bitmap.bitmap.height(), bitmap.bitmap.width(), channels);
}

py::dict Interface(py::object self) {
  auto& bitmap = self.cast<PyBitmap&>();
  RequireView(bitmap);
  const Samples samples = *SamplesOf(bitmap.Record());
  const py::object block = py::cast(Block{self});
  const py::object view = py::reinterpret_steal<py::object>(PyMemoryView_FromObject(block.ptr()));
  if (!view) throw py::error_already_set();
  const char kind = samples.bytes == 1 ? '|' : '<';
  const char letter = samples.format == 'h' || samples.format == 'i' ? 'i' : 'u';
  const auto stride = static_cast<Py_ssize_t>(bitmap.bitmap.rowBytes());
  const Py_ssize_t pixel = Py_ssize_t{samples.bytes} * samples.channels;
  const py::tuple strides =
      samples.channels == 1 ? py::make_tuple(stride, pixel) : py::make_tuple(stride, pixel, samples.bytes);
  return py::dict("version"_a = 3, "shape"_a = ShapeOf(bitmap, samples.channels), "strides"_a = strides,
                  "typestr"_a = std::string{kind, letter, static_cast<char>('0' + samples.bytes)}, "data"_a = view);
}

// ---- Packed pixels -------------------------------------------------------------------------------------------------

/// One pixel of 1 to 8 or 12 bits, as the library packs them.
uint32_t PackedAt(const uint8_t* line, size_t column, int bits) {
  if (bits == 12) {
    const uint8_t* const pair = line + column / 2 * 3;
    return column % 2 == 0 ? pair[0] | (pair[1] & 15u) << 8 : pair[1] >> 4 | uint32_t{pair[2]} << 4;
  }
  const size_t at = column * static_cast<size_t>(bits);
  const uint32_t two =
      static_cast<uint32_t>(line[at / 8]) << 8 | (at % 8 + static_cast<size_t>(bits) > 8 ? line[at / 8 + 1] : 0u);
  return two >> (16 - at % 8 - static_cast<size_t>(bits)) & ((1u << bits) - 1);
}

/// The same into a line of zeros.
void PackAt(uint8_t* line, size_t column, int bits, uint32_t value) {
  if (bits == 12) {
    uint8_t* const pair = line + column / 2 * 3;
    if (column % 2 == 0) {
      pair[0] = static_cast<uint8_t>(value);
      pair[1] = static_cast<uint8_t>(pair[1] | value >> 8);
    } else {
      pair[1] = static_cast<uint8_t>(pair[1] | value << 4);
      pair[2] = static_cast<uint8_t>(value >> 4);
    }
    return;
  }
  const size_t at = column * static_cast<size_t>(bits);
  const uint32_t two = value << (16 - at % 8 - static_cast<size_t>(bits));
  line[at / 8] = static_cast<uint8_t>(line[at / 8] | two >> 8);
  if ((two & 0xFF) != 0) line[at / 8 + 1] = static_cast<uint8_t>(line[at / 8 + 1] | two);
}

}  // namespace

void UnpackIndices(uint8_t* target, const uint8_t* line, int64_t count, int bits) {
  const auto width = static_cast<size_t>(count);
  if (bits == 8) {
    std::memcpy(target, line, width);
  } else if (bits == 1) {
    for (size_t x = 0; x < width; ++x) target[x] = line[x / 8] >> (7 - x % 8) & 1;
  } else {
    for (size_t x = 0; x < width; ++x) target[x] = static_cast<uint8_t>(PackedAt(line, x, bits));
  }
}

namespace {

bool IsFiveBits(const BitmapHandle& record) { return record.BitsPerPixel == 16 && record.Order != T_ORDER_GRAY; }

/// What an array of the bitmap's samples is: those of a view, or one of packed pixels.
Samples UnpackedSamples(const BitmapHandle& record) {
  if (const std::optional<Samples> samples = SamplesOf(record)) return *samples;
  if (IsFiveBits(record)) return {'B', 1, 4};
  return record.BitsPerPixel == 12 ? Samples{record.Flags & T_FLAG_SIGNED_DATA ? 'h' : 'H', 2, 1} : Samples{'B', 1, 1};
}

void UnpackLine(const BitmapHandle& record, const uint8_t* line, size_t bytes, uint8_t* target) {
  const auto width = static_cast<size_t>(record.Width);
  if (SamplesOf(record)) {
    std::memcpy(target, line, bytes);
  } else if (IsFiveBits(record)) {
    for (size_t x = 0; x < width; ++x) {
      const uint32_t word = line[2 * x] | uint32_t{line[2 * x + 1]} << 8;
      for (uint32_t c = 0; c < 4; ++c) target[4 * x + c] = static_cast<uint8_t>(word >> 5 * c & 31);
    }
  } else if (record.BitsPerPixel == 12) {
    for (size_t x = 0; x < width; ++x) {
      auto value = static_cast<uint16_t>(PackedAt(line, x, 12));
      if ((record.Flags & T_FLAG_SIGNED_DATA) && value >= 2048) value = static_cast<uint16_t>(value - 4096);
      std::memcpy(target + 2 * x, &value, 2);
    }
  } else {
    UnpackIndices(target, line, record.Width, record.BitsPerPixel);
  }
}

py::object Unpacked(PyBitmap& bitmap) {
  if (Now(bitmap).bitmap.empty()) Raise(ERR_NO_BITMAP);
  const Claim claim({&bitmap});  // from here on nobody changes its shape
  const Samples samples = UnpackedSamples(bitmap.Record());
  const char* const type = samples.format == 'B'   ? "uint8"
                           : samples.format == 'H' ? "uint16"
                           : samples.format == 'h' ? "int16"
                           : samples.format == 'I' ? "uint32"
                                                   : "int32";
  py::object array = py::module_::import("numpy").attr("empty")(ShapeOf(bitmap, samples.channels), type);
  const auto held = HeldBuffer::Of(array, PyBUF_C_CONTIGUOUS | PyBUF_WRITABLE);
  auto* const target = static_cast<uint8_t*>(held->View().buf);
  const size_t rowBytes =
      static_cast<size_t>(bitmap.bitmap.width()) * static_cast<size_t>(samples.bytes * samples.channels);
  Work({}, [&] {
    return bitmap.bitmap.readRows([&](int32_t row, std::span<const uint8_t> line) {
      UnpackLine(bitmap.Record(), line.data(), bitmap.bitmap.pixelBytes(),
                 target + static_cast<size_t>(row) * rowBytes);
    });
  });
  return array;
}

// ---- From arrays ---------------------------------------------------------------------------------------------------

/// An array as it is handed in.
struct Given {
  explicit Given(py::handle array) : held(HeldBuffer::Of(array, PyBUF_RECORDS_RO)) {
    const Py_buffer& view = held->View();
    letter = LetterOf(view);
    bytes = static_cast<int>(view.itemsize);
    const bool known = letter && std::strchr("?BHhIi", letter);
    if (!known)
      RaiseAs(
          PyExc_TypeError,
          std::string("samples are uint8, uint16, int16, uint32, int32 or bool of this machine's byte order, not \"") +
              (view.format ? view.format : "") + "\": convert them with astype()");
    if (view.ndim != 2 && view.ndim != 3)
      RaiseAs(PyExc_ValueError, "pixels are an array of 2 dimensions, or of 3 with channels");
    channels = view.ndim == 2 ? 1 : view.shape[2];
    if (view.shape[0] > INT32_MAX || view.shape[1] > INT32_MAX) Raise(ERR_IMAGE_TOO_LARGE);
    height = static_cast<int32_t>(view.shape[0]);
    width = static_cast<int32_t>(view.shape[1]);
  }
  const uint8_t* At(int32_t row, size_t column, Py_ssize_t channel) const {
    const Py_buffer& view = held->View();
    return static_cast<const uint8_t*>(view.buf) + row * view.strides[0] +
           static_cast<Py_ssize_t>(column) * view.strides[1] + (view.ndim == 3 ? channel * view.strides[2] : 0);
  }
  /// Whether the samples of a row lie one behind the other.
  bool RowsWhole() const {
    const Py_buffer& view = held->View();
    return view.strides[1] == bytes * channels && (view.ndim == 2 || view.strides[2] == bytes);
  }

  std::unique_ptr<HeldBuffer> held;
  char letter = 0;
  int bytes = 0;
  Py_ssize_t channels = 1;
  int32_t width = 0;
  int32_t height = 0;
};

/// The depth that holds such samples as they are.
int32_t NaturalBits(const Given& given) {
  if (given.channels == 1) return given.letter == '?' ? 1 : 8 * given.bytes;
  if (given.channels != 3 && given.channels != 4)
    RaiseAs(PyExc_ValueError, "pixels have 1, 3 or 4 channels, not " + std::to_string(given.channels));
  if (given.letter != 'B' && given.letter != 'H') RaiseAs(PyExc_TypeError, "channels of colours are uint8 or uint16");
  return static_cast<int32_t>(given.channels) * 8 * given.bytes;
}

/// How samples enter a bitmap.
struct Plan {
  int32_t bits = 0;
  uint32_t order = T_ORDER_RGB;
  bool isSigned = false;
};

Plan PlanFor(const Given& given, std::optional<int32_t> bits, std::optional<uint32_t> order) {
  Plan plan;
  const int32_t natural = NaturalBits(given);
  plan.bits = bits.value_or(natural);
  plan.isSigned = given.letter == 'h' || given.letter == 'i';
  const bool narrow = given.letter == 'B' || given.letter == '?';
  const bool fits = given.channels == 1
                        ? (plan.bits >= 1 && plan.bits <= 8 && narrow) || (plan.bits == 12 && given.bytes == 2) ||
                              (plan.bits == natural && natural != 1)
                        : plan.bits == natural || (plan.bits == 16 && given.letter == 'B');
  if (!fits)
    RaiseAs(PyExc_ValueError,
            "samples of this type and number are not pixels of " + std::to_string(plan.bits) + " bits");
  plan.order = given.channels == 1 && plan.bits > 8 ? uint32_t{T_ORDER_GRAY} : order.value_or(T_ORDER_RGB);
  RequireOrder(plan.order);
  const bool gray = given.channels == 1;
  if (order && gray && *order != T_ORDER_GRAY && plan.bits > 8) RaiseAs(PyExc_ValueError, "one sample a pixel is gray");
  if (!gray && plan.order == T_ORDER_GRAY) RaiseAs(PyExc_ValueError, "channels are in the order RGB, BGR or WIDE");
  return plan;
}

/// False when a sample does not fit.
bool PackLine(const Given& given, const Plan& plan, int32_t row, std::span<uint8_t> line) {
  const auto width = static_cast<size_t>(given.width);
  const bool fiveBits = plan.bits == 16 && given.channels > 1;
  const bool packed = plan.bits < 8 || plan.bits == 12 || fiveBits;
  if (!packed && given.RowsWhole()) {
    std::memcpy(line.data(), given.At(row, 0, 0), width * static_cast<size_t>(given.bytes * given.channels));
    return true;
  }
  if (!packed) {
    uint8_t* target = line.data();
    for (size_t x = 0; x < width; ++x)
      for (Py_ssize_t c = 0; c < given.channels; ++c, target += given.bytes)
        std::memcpy(target, given.At(row, x, c), static_cast<size_t>(given.bytes));
    return true;
  }
  std::fill(line.begin(), line.end(), uint8_t{0});
  bool fits = true;
  for (size_t x = 0; x < width; ++x) {
    if (fiveBits) {
      uint32_t word = 0;
      for (Py_ssize_t c = 0; c < given.channels; ++c) {
        const uint32_t sample = *given.At(row, x, c);
        fits = fits && sample <= (c == 3 ? 1u : 31u);
        word |= sample << 5 * c;
      }
      line[2 * x] = static_cast<uint8_t>(word);
      line[2 * x + 1] = static_cast<uint8_t>(word >> 8);
      continue;
    }
    uint32_t value = 0;
    if (plan.bits == 12) {
      uint16_t sample = 0;
      std::memcpy(&sample, given.At(row, x, 0), 2);
      const auto number = plan.isSigned ? static_cast<int16_t>(sample) : int32_t{sample};
      fits = fits && (plan.isSigned ? number >= -2048 && number < 2048 : number < 4096);
      value = static_cast<uint32_t>(number) & 4095;
    } else {
      value = *given.At(row, x, 0);
      fits = fits && value < 1u << plan.bits;
      value &= (1u << plan.bits) - 1;
    }
    PackAt(line.data(), x, plan.bits, value);
  }
  return fits;
}

NewBitmap Wrapped(Given& given, const Plan& plan, const Format& format) {
  const Py_buffer& view = given.held->View();
  const Py_ssize_t rowBytes = Py_ssize_t{given.width} * given.bytes * given.channels;
  const bool packed = plan.bits < 8 || plan.bits == 12 || (plan.bits == 16 && given.channels > 1);
  const bool whole = !packed && given.RowsWhole() && view.strides[0] == rowBytes && rowBytes % 4 == 0;
  if (!whole || view.readonly)
    RaiseAs(PyExc_BufferError,
            "only a writable array without gaps whose rows have a multiple of 4 bytes can be wrapped; "
            "leave copy=False out, or make a Bitmap and write into numpy.asarray(bitmap)");
  auto made = std::make_unique<PyBitmap>();
  made->bitmap = Take(Bitmap::over(std::span(static_cast<uint8_t*>(view.buf), static_cast<size_t>(view.len)),
                                   given.width, given.height, static_cast<Depth>(plan.bits), format));
  made->memory = std::move(given.held);
  return made;
}

NewBitmap FromArray(py::handle array, std::optional<int32_t> bits, std::optional<uint32_t> order, py::handle palette,
                    bool copy, uint32_t storage) {
  py::object source = py::reinterpret_borrow<py::object>(array);
  if (!PyObject_CheckBuffer(source.ptr())) source = py::module_::import("numpy").attr("asarray")(source);
  Given given(source);
  const Plan plan = PlanFor(given, bits, order);
  Palette colors = PaletteOf(palette);
  if (colors.empty() && plan.bits <= 8) colors = Palette::gray(static_cast<Depth>(plan.bits));
  while (plan.bits <= 8 && colors.size() < size_t{1} << plan.bits) colors.add({});
  const Format format{static_cast<Order>(plan.order), static_cast<Storage>(storage), colors, 1};
  NewBitmap made;
  if (copy) {
    bool fits = true;
    made = std::make_unique<PyBitmap>(Work({}, [&]() -> Result<Bitmap> {
      Result<Bitmap> target = Bitmap::create(given.width, given.height, static_cast<Depth>(plan.bits), format);
      if (!target) return target;
      const Result<void> edited = target->editRows(
          [&](int32_t row, std::span<uint8_t> line) { fits = PackLine(given, plan, row, line) && fits; });
      if (!edited) return edited.failure();
      return target;
    }));
    if (!fits) RaiseAs(PyExc_ValueError, "a sample does not fit into " + std::to_string(plan.bits) + " bits");
  } else {
    made = Wrapped(given, plan, format);
  }
  if (plan.isSigned) made->Record().Flags |= T_FLAG_SIGNED_DATA;
  return made;
}

}  // namespace

void SetBufferProtocol(PyHeapTypeObject* type) {
  type->ht_type.tp_as_buffer = &type->as_buffer;
  type->as_buffer.bf_getbuffer = GetBuffer;
  type->as_buffer.bf_releasebuffer = ReleaseBuffer;
}

void AddBlock(py::module_& module) {
  py::class_<Block>(module, "_Block", py::custom_type_setup([](PyHeapTypeObject* type) {
                      type->ht_type.tp_as_buffer = &type->as_buffer;
                      type->as_buffer.bf_getbuffer = GetBlock;
                      type->as_buffer.bf_releasebuffer = ReleaseBlock;
                    }));
}

void AddArrays(BitmapClass& type) {
  const auto none = py::none();
  type.def("__array__", &Array, "dtype"_a = none, "copy"_a = none)
      .def_property_readonly("__array_interface__", &Interface)
      .def("unpacked", &Unpacked)
      .def_static("from_array", &FromArray, "array"_a, py::kw_only(), "bits"_a = none, "order"_a = none,
                  "palette"_a = none, "copy"_a = true, "storage"_a = uint32_t{TYPE_CONV});
}

}  // namespace tarn::python
