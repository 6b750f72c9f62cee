// The module: its parts, and what holds for a thread or for the library.

#include <cstring>

#include "Binding.h"

namespace tarn::python {
namespace {

std::string Version() {
  T_Version version{};
  Require(T_VersionInfo(&version, sizeof version));
  return std::to_string(version.MajorNumber) + "." + std::to_string(version.MinorNumber);
}

std::string TempDirectory() {
  char path[T_TEMP_DIRECTORY_LENGTH * 4];
  Require(T_GetTempDirectoryA(path, sizeof path));
  return path;
}

py::object Thresholds() {
  static PyObject* cache = nullptr;
  int32_t tiled = 0, memoryTiles = 0, views = 0;
  int64_t block = 0, tile = 0;
  T_GetMemoryThresholds(&tiled, &block, &tile, &memoryTiles, &views);
  return Type(cache, "Thresholds")(tiled, block, tile, memoryTiles, views);
}

void SetThresholds(std::optional<int32_t> keepFree, std::optional<int64_t> block, std::optional<int64_t> tile,
                   std::optional<int32_t> memoryTiles, std::optional<int32_t> views) {
  const uint32_t which = Bit(keepFree, T_THRESHOLD_TILED) | Bit(block, T_THRESHOLD_MAX_CONVENTIONAL) |
                         Bit(tile, T_THRESHOLD_TILE_SIZE) | Bit(memoryTiles, T_THRESHOLD_CONVENTIONAL_TILES) |
                         Bit(views, T_THRESHOLD_TILE_VIEWS);
  Require(T_SetMemoryThresholds(keepFree.value_or(0), block.value_or(0), tile.value_or(0), memoryTiles.value_or(0),
                                views.value_or(0), which));
}

/// A palette of a side of so many bits, whose entries the library reads all; what is missing is black.
Palette SideOf(py::handle colors, int32_t bits) {
  Palette palette = PaletteOf(colors);
  while (!palette.empty() && bits >= 1 && bits <= 8 && palette.size() < size_t{1} << bits) palette.add({});
  return palette;
}

py::bytes ConvertLine(py::handle data, int32_t width, int32_t fromBits, int32_t toBits, uint32_t fromOrder,
                      uint32_t toOrder, py::handle fromPalette, py::handle toPalette, bool opaque) {
  const auto held = HeldBuffer::Of(data, PyBUF_C_CONTIGUOUS);
  if (width < 1 || fromBits < 0 || toBits < 0 || fromBits > 64 || toBits > 64) Raise(ERR_INVALID_PARAMETER);
  const auto bytes = [&](int32_t bits) {
    return static_cast<size_t>((int64_t{width} * (bits == 0 ? 8 : bits) + 7) / 8);
  };
  if (static_cast<size_t>(held->View().len) < bytes(fromBits))
    RaiseAs(PyExc_ValueError, "so many pixels have " + std::to_string(bytes(fromBits)) + " bytes");
  const Palette from = SideOf(fromPalette, fromBits), to = SideOf(toPalette, toBits);
  std::string line(T_CalcConvertSize(width, fromBits, width, toBits), 0);
  std::memcpy(line.data(), held->View().buf, bytes(fromBits));
  Require(T_ConvertBufferExt(line.data(), width, fromBits, toBits, fromOrder, toOrder,
                             from.empty() ? nullptr : from.data(), to.empty() ? nullptr : to.data(),
                             opaque ? T_CONVERT_OPAQUE : 0, -1, -1));
  line.resize(bytes(toBits));
  return line;
}

}  // namespace

void AddSettings(py::module_& module) {
  const auto none = py::none();
  module.def("version", &Version);
  module.def("temp_directory", &TempDirectory);
  module.def(
      "set_temp_directory", [](const std::string& path) { Require(T_SetTempDirectoryA(path.c_str())); }, "path"_a);
  module.def("thresholds", &Thresholds);
  module.def("set_thresholds", &SetThresholds, py::kw_only(), "keep_free"_a = none, "largest_block"_a = none,
             "tile_size"_a = none, "memory_tiles"_a = none, "tile_views"_a = none);
  module.def("default_resolution", [] { return py::make_tuple(T_GetDefaultXResolution(), T_GetDefaultYResolution()); });
  module.def(
      "set_default_resolution",
      [](int32_t x, int32_t y) {
        T_SetDefaultXResolution(x);
        T_SetDefaultYResolution(y);
      },
      "x"_a, "y"_a);
  module.def("default_dithering", [] {
    static PyObject* cache = nullptr;
    return Type(cache, "Dither")(T_GetDefaultDithering());
  });
  module.def(
      "set_default_dithering", [](uint32_t method) { Require(T_DefaultDithering(method)); }, "method"_a);
  module.def("set_super_compressed_cache", &T_SetSuperCompressedCache, "bytes"_a);
  module.def("convert_line", &ConvertLine, "data"_a, "width"_a, "from_bits"_a, "to_bits"_a, py::kw_only(),
             "from_order"_a = uint32_t{T_ORDER_RGB}, "to_order"_a = uint32_t{T_ORDER_RGB}, "from_palette"_a = none,
             "to_palette"_a = none, "opaque"_a = false);
  module.def("push_progress", &PushProgress, "callable"_a);
  module.def("pop_progress", &PopProgress);
}

}  // namespace tarn::python

PYBIND11_MODULE(_tarn, module) {
  using namespace tarn::python;
  py::options options;
  options.disable_user_defined_docstrings();
  AddValues(module);
  AddSettings(module);
  AddBlock(module);
  BitmapClass bitmap(module, "Bitmap", py::custom_type_setup(&SetBufferProtocol));
  AddBitmap(bitmap);
  AddRows(bitmap);
  AddColors(bitmap);
  AddGeometry(bitmap);
  AddCombining(bitmap);
  AddArrays(bitmap);
  AddLookupTable(bitmap);
  AddResizing(module, bitmap);
  AddDithering(module);
  AddFiles(module);
  AddLists(module);
}
