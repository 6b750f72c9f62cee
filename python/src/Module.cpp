// The module: its parts, and what holds for a thread or for the library.

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
  module.def("set_super_compressed_cache", &T_SetSuperCompressedCache, "bytes"_a);
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
  AddFiles(module);
  AddLists(module);
}
