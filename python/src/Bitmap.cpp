// Bitmaps: making them, what they are, where their pixels are kept, copies.

#include <algorithm>
#include <cstring>

#include "Binding.h"

namespace tarn::python {
namespace {

Format FormatOf(uint32_t order, uint32_t storage, const Palette& palette, uint32_t viewPerspective) {
  RequireOrder(order);
  return {static_cast<Order>(order), static_cast<Storage>(storage), palette, viewPerspective};
}

/// A palette that is shorter than the depth asks for goes on in black.
Palette Filled(Palette palette, int32_t bits) {
  if (palette.empty() || bits < 1 || bits > 8) return palette;
  if (palette.size() > size_t{1} << bits)
    RaiseAs(PyExc_ValueError, "more colours than " + std::to_string(bits) + " bits can tell apart");
  while (palette.size() < size_t{1} << bits) palette.add({});
  return palette;
}

NewBitmap Create(int32_t width, int32_t height, int32_t bits, uint32_t order, uint32_t storage, py::handle palette,
                 uint32_t viewPerspective) {
  const Palette colors = Filled(PaletteOf(palette), bits);
  const Format format = FormatOf(order, storage, colors, viewPerspective);
  return std::make_unique<PyBitmap>(
      Work({}, [&] { return Bitmap::create(width, height, static_cast<Depth>(bits), format); }));
}

NewBitmap Over(py::handle buffer, int32_t width, int32_t height, int32_t bits, uint32_t order, py::handle palette,
               uint32_t viewPerspective) {
  auto made = std::make_unique<PyBitmap>();
  made->memory = HeldBuffer::Of(buffer, PyBUF_C_CONTIGUOUS | PyBUF_WRITABLE);
  const Py_buffer& view = made->memory->View();
  const Palette colors = Filled(PaletteOf(palette), bits);
  made->bitmap =
      Take(Bitmap::over(std::span(static_cast<uint8_t*>(view.buf), static_cast<size_t>(view.len)), width, height,
                        static_cast<Depth>(bits), FormatOf(order, TYPE_USER, colors, viewPerspective)));
  return made;
}

NewBitmap Cloned(PyBitmap& source, std::optional<uint32_t> storage) {
  // Of memory that is somebody else's there is no other to copy into.
  const bool lent = Now(source).Record().Flags & T_FLAG_USER_DATA;
  if (lent && !storage) storage = TYPE_CONV;
  return Made(source,
              [&] { return storage ? source.bitmap.clone(static_cast<Storage>(*storage)) : source.bitmap.clone(); });
}

void Close(PyBitmap& bitmap) {
  RequireUnviewed(Now(bitmap), "closing it");
  bitmap.bitmap.reset();
  bitmap.memory.reset();
}

std::string Described(PyBitmap& bitmap) {
  const BitmapHandle& record = Now(bitmap).Record();
  if (bitmap.bitmap.empty()) return "<tarn.Bitmap, closed>";
  static constexpr const char* kOrders[] = {"RGB", "BGR", "gray", "", "", "wide"};
  std::string text = "<tarn.Bitmap " + std::to_string(record.Width) + " x " + std::to_string(record.Height) + ", " +
                     std::to_string(record.BitsPerPixel) + (record.BitsPerPixel == 1 ? " bit" : " bits");
  if (record.BitsPerPixel > 8 && record.Order <= 5) text += std::string(" ") + kOrders[record.Order];
  const uint32_t flags = record.Flags;
  text += flags & T_FLAG_USER_DATA          ? ", in memory of another object"
          : flags & T_FLAG_TILED            ? ", in tiles"
          : flags & T_FLAG_ON_DISK          ? ", on disk"
          : flags & T_FLAG_COMPRESSED       ? ", compressed"
          : flags & T_FLAG_SUPER_COMPRESSED ? ", super-compressed"
                                            : "";
  return text + ">";
}

/// Equal rows of the pixels that count, or a status.
Result<void> CompareRows(const Bitmap& a, const Bitmap& b, bool& same) {
  const size_t bytes = a.pixelBytes();
  const int spare = static_cast<int>(bytes * 8 - static_cast<size_t>(a.width()) * static_cast<size_t>(a.bits()));
  RowBuffer other(b.rowBytes());
  if (other.span().empty()) return Failure{ERR_NO_MEMORY};
  const auto mask = static_cast<uint8_t>(a.bits() == 12 ? 0xFF >> spare : 0xFF << spare);
  int32_t failed = SUCCESS;
  same = true;
  const Result<void> read = a.readRows([&](int32_t row, std::span<const uint8_t> line) {
    if (!same || failed != SUCCESS) return;
    std::span<const uint8_t> with = b.rowInPlace(row);
    if (with.empty()) {
      if (const Result<void> got = b.readRow(row, other.span()); !got) {
        failed = got.status();
        return;
      }
      with = other.span();
    }
    same = std::equal(line.begin(), line.begin() + static_cast<ptrdiff_t>(bytes - 1), with.begin()) &&
           ((line[bytes - 1] ^ with[bytes - 1]) & mask) == 0;
  });
  if (failed != SUCCESS) return Failure{failed};
  return read;
}

/// Lookup tables change what samples show as palettes do, while they are in use.
bool SameTables(const BitmapHandle& a, const BitmapHandle& b) {
  const auto length = [](const BitmapHandle& record) {
    return record.LUT && (record.Flags & T_FLAG_LUT_IN_USE) ? V(record.LUTLength) : 0u;
  };
  const auto same = [](const T_PaletteEntry& x, const T_PaletteEntry& y) {
    return x.Red == y.Red && x.Green == y.Green && x.Blue == y.Blue;
  };
  return length(a) == length(b) && std::equal(V(a.LUT), a.LUT + length(a), V(b.LUT), same);
}

bool SamePixels(PyBitmap& a, PyBitmap& b) {
  const BitmapHandle &x = Now(a).Record(), &y = Now(b).Record();
  if (a.bitmap.empty() || b.bitmap.empty()) Raise(ERR_NO_BITMAP);
  if (&a == &b) return true;
  const bool alike = V(x.Width) == V(y.Width) && V(x.Height) == V(y.Height) && V(x.BitsPerPixel) == V(y.BitsPerPixel) &&
                     (V(x.BitsPerPixel) <= 8 ? a.bitmap.palette() == b.bitmap.palette() : V(x.Order) == V(y.Order));
  if (!alike || !SameTables(x, y)) return false;
  bool same = false;
  Work({&a, &b}, [&] { return CompareRows(a.bitmap, b.bitmap, same); });
  return same;
}

py::object StorageOf(PyBitmap& bitmap) {
  static PyObject *cache = nullptr, *kinds = nullptr;
  const StorageInfo info = Take(Now(bitmap).bitmap.storage());
  return Type(cache, "StorageInfo")(Type(kinds, "Storage")(static_cast<uint32_t>(info.kind)), info.tileSize,
                                    info.tileCount, info.conventionalTiles, info.maxMappedTiles, info.mappedTiles);
}

py::object OrderOf(PyBitmap& bitmap) {
  static PyObject* cache = nullptr;
  return Type(cache, "Order")(static_cast<uint32_t>(Now(bitmap).bitmap.order()));
}

/// What samples mean: signed or not, significant bits, limits. For copies that go through Python.
py::tuple SampleState(PyBitmap& bitmap) {
  const BitmapHandle& record = Now(bitmap).Record();
  return py::make_tuple((record.Flags & T_FLAG_SIGNED_DATA) != 0, V(record.LowBit), V(record.HighBit),
                        V(record.MinValue), V(record.MaxValue));
}

void SetSampleState(PyBitmap& bitmap, std::tuple<bool, int32_t, int32_t, int32_t, int32_t> state) {
  BitmapHandle& record = Now(bitmap).Record();
  record.Flags =
      (record.Flags & ~uint32_t{T_FLAG_SIGNED_DATA}) | (std::get<0>(state) ? uint32_t{T_FLAG_SIGNED_DATA} : 0u);
  record.LowBit = std::get<1>(state);
  record.HighBit = std::get<2>(state);
  record.MinValue = std::get<3>(state);
  record.MaxValue = std::get<4>(state);
}

py::object PlaybackOf(PyBitmap& bitmap) {
  static PyObject* cache = nullptr;
  const BitmapHandle& record = Now(bitmap).Record();
  return Type(cache, "Playback")(V(record.PlaybackLeft), V(record.PlaybackTop), V(record.PlaybackDelay),
                                 Color::of(record.PlaybackBackground), Color::of(record.PlaybackTransparency),
                                 V(record.PlaybackDisposal));
}

void SetPlayback(PyBitmap& bitmap,
                 const std::tuple<int32_t, int32_t, uint32_t, py::object, py::object, uint32_t>& playback) {
  const auto& [left, top, delay, background, transparency, disposal] = playback;
  const Color behind = ColorOf(background), transparent = ColorOf(transparency);
  BitmapHandle& record = Now(bitmap).Record();
  record.PlaybackLeft = left;
  record.PlaybackTop = top;
  record.PlaybackDelay = delay;
  record.PlaybackBackground = behind.value();
  record.PlaybackTransparency = transparent.value();
  record.PlaybackDisposal = disposal;
}

void SetPerspective(PyBitmap& bitmap, uint32_t perspective) {
  if (perspective < 1 || perspective > 8) RaiseAs(PyExc_ValueError, "view perspectives are 1 to 8");
  Now(bitmap).Record().ViewPerspective = perspective;
}

}  // namespace

void AddBitmap(BitmapClass& type) {
  const auto make = &Create;
  type.def(py::init(make), "width"_a, "height"_a, "bits"_a, py::kw_only(), "order"_a = uint32_t{T_ORDER_RGB},
           "storage"_a = uint32_t{TYPE_CONV}, "palette"_a = py::none(), "view_perspective"_a = 1u)
      .def_static("over", &Over, "buffer"_a, "width"_a, "height"_a, "bits"_a, py::kw_only(),
                  "order"_a = uint32_t{T_ORDER_RGB}, "palette"_a = py::none(), "view_perspective"_a = 1u)
      .def("clone", &Cloned, py::kw_only(), "storage"_a = py::none())
      .def("close", &Close)
      .def("__enter__", [](py::object self) { return self; })
      .def("__exit__", [](PyBitmap& bitmap, const py::args&) { Close(bitmap); })
      .def("__copy__", [](PyBitmap& bitmap) { return Cloned(bitmap, {}); })
      .def(
          "__deepcopy__", [](PyBitmap& bitmap, py::handle) { return Cloned(bitmap, {}); }, "memo"_a)
      .def("__repr__", &Described)
      .def("same_pixels", &SamePixels, "other"_a)
      .def_property_readonly("closed", [](PyBitmap& bitmap) { return Now(bitmap).bitmap.empty(); })
      .def_property_readonly("width", [](PyBitmap& bitmap) { return Now(bitmap).bitmap.width(); })
      .def_property_readonly("height", [](PyBitmap& bitmap) { return Now(bitmap).bitmap.height(); })
      .def_property_readonly("bits", [](PyBitmap& bitmap) { return Now(bitmap).bitmap.bits(); })
      .def_property_readonly("order", &OrderOf)
      .def_property_readonly("row_bytes", [](PyBitmap& bitmap) { return Now(bitmap).bitmap.rowBytes(); })
      .def_property_readonly("pixel_bytes", [](PyBitmap& bitmap) { return Now(bitmap).bitmap.pixelBytes(); })
      .def_property_readonly("views", [](PyBitmap& bitmap) { return bitmap.views; })
      .def_property_readonly("signed",
                             [](PyBitmap& bitmap) { return (Now(bitmap).Record().Flags & T_FLAG_SIGNED_DATA) != 0; })
      .def_property_readonly("significant_bits",
                             [](PyBitmap& bitmap) {
                               const BitmapHandle& record = Now(bitmap).Record();
                               return py::make_tuple(V(record.LowBit), V(record.HighBit));
                             })
      .def_property_readonly("sample_limits",
                             [](PyBitmap& bitmap) {
                               const BitmapHandle& record = Now(bitmap).Record();
                               const int64_t low = record.MinValue, high = record.MaxValue;
                               if (record.Flags & T_FLAG_SIGNED_DATA) return py::make_tuple(low, high);
                               return py::make_tuple(low & 0xFFFFFFFF, high & 0xFFFFFFFF);
                             })
      .def_property(
          "view_perspective", [](PyBitmap& bitmap) { return Now(bitmap).bitmap.viewPerspective(); }, &SetPerspective)
      .def_property(
          "resolution",
          [](PyBitmap& bitmap) {
            return py::make_tuple(Now(bitmap).bitmap.xResolution(), bitmap.bitmap.yResolution());
          },
          [](PyBitmap& bitmap, std::pair<int32_t, int32_t> dots) {
            Now(bitmap).bitmap.setResolution(dots.first, dots.second);
          })
      .def_property(
          "icc_profile",
          [](PyBitmap& bitmap) -> py::object {
            if (bitmap.profile.empty()) return py::none();
            return py::bytes(bitmap.profile);
          },
          [](PyBitmap& bitmap, std::optional<py::bytes> profile) {
            bitmap.profile = profile ? std::string(*profile) : std::string();
          })
      .def_property("playback", &PlaybackOf, &SetPlayback)
      .def_property("_samples", &SampleState, &SetSampleState)
      .def_property_readonly("storage", &StorageOf)
      .def(
          "move_to",
          [](PyBitmap& bitmap, uint32_t storage, int64_t tileSize) {
            Replace(bitmap, "move_to", [&] { return bitmap.bitmap.moveTo(static_cast<Storage>(storage), tileSize); });
          },
          "storage"_a, py::kw_only(), "tile_size"_a = 0)
      .def(
          "set_tiles",
          [](PyBitmap& bitmap, std::optional<int64_t> tileSize, std::optional<uint32_t> memoryTiles,
             std::optional<uint32_t> mappedTiles) {
            const uint32_t which = Bit(tileSize, T_INFO_TILE_SIZE) | Bit(memoryTiles, T_INFO_CONVENTIONAL_TILES) |
                                   Bit(mappedTiles, T_INFO_MAX_MAPPED_TILES);
            Replace(bitmap, "set_tiles", [&] {
              return detail::done(T_SetBitmapMemoryInfo(&bitmap.Record(), 0, tileSize.value_or(0), 0,
                                                        memoryTiles.value_or(0), mappedTiles.value_or(0), 0, which));
            });
          },
          py::kw_only(), "tile_size"_a = py::none(), "memory_tiles"_a = py::none(), "mapped_tiles"_a = py::none())
      .def(
          "set_height",
          [](PyBitmap& bitmap, int32_t height) {
            Replace(bitmap, "set_height", [&] { return bitmap.bitmap.setHeight(height); });
          },
          "height"_a)
      .def(
          "compress",
          [](PyBitmap& bitmap, uint32_t storage) {
            const uint32_t kind = storage == TYPE_CONV ? 0 : storage;
            Replace(bitmap, "compress",
                    [&] { return detail::done(T_ChangeBitmapCompression(&bitmap.Record(), kind)); });
          },
          "storage"_a)
      .def("compact",
           [](PyBitmap& bitmap) { Work({&bitmap}, [&] { return detail::done(T_CompactBitmap(&bitmap.Record())); }); });
}

}  // namespace tarn::python
