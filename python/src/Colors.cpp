// Depths, palettes, dithering, gray, alpha; lists of bitmaps with one palette.

#include <array>

#include "Binding.h"

namespace tarn::python {
namespace {

/// How a conversion finds colours, as Python says it. Keeps the palette that the options point at.
struct Conversion {
  Conversion(py::handle colorsGiven, std::optional<uint32_t> kindGiven, uint32_t dither, uint32_t colors)
      : palette(PaletteOf(colorsGiven)) {
    const uint32_t kind = kindGiven.value_or(palette.empty() ? T_RES_OPTIMIZED : T_RES_PALETTE);
    options = {static_cast<PaletteKind>(kind), palette, static_cast<Dither>(dither), colors};
  }
  uint32_t Flags() const { return static_cast<uint32_t>(options.kind) | T_RES_DITHER(options.dither); }

  Palette palette;
  ConvertOptions options;
};

Depth DepthOf(int32_t bits) { return static_cast<Depth>(bits); }

void Convert(PyBitmap& bitmap, int32_t bits, py::handle palette, std::optional<uint32_t> kind, uint32_t dither,
             uint32_t colors) {
  const Conversion how(palette, kind, dither, colors);
  Replace(bitmap, "convert", [&] { return bitmap.bitmap.convert(DepthOf(bits), how.options); });
}

NewBitmap Converted(PyBitmap& bitmap, int32_t bits, py::handle palette, std::optional<uint32_t> kind, uint32_t dither,
                    uint32_t colors) {
  const Conversion how(palette, kind, dither, colors);
  return Made(bitmap, [&] { return bitmap.bitmap.converted(DepthOf(bits), how.options); });
}

void SetPalette(PyBitmap& bitmap, py::handle palette) {
  const Palette colors = PaletteOf(palette);
  Take(Now(bitmap).bitmap.setPalette(colors));
}

void SetAlpha(PyBitmap& bitmap, PyBitmap& alpha) {
  RequireUnviewed(Now(bitmap), "set_alpha");
  Work({&bitmap, &alpha}, [&] { return bitmap.bitmap.setAlpha(alpha.bitmap); });
  if (!(bitmap.Record().Flags & T_FLAG_USER_DATA)) bitmap.memory.reset();
}

int GrayClass(PyBitmap& bitmap) {
  const int32_t answer = Now(bitmap).bitmap.grayClass();
  if (bitmap.bitmap.empty()) Raise(ERR_NO_BITMAP);
  if (answer < 0) Raise(answer);
  return answer;
}

// ---- Lists ---------------------------------------------------------------------------------------------------------

/// Bitmaps of Python lent to a list of the library's, and given back with whatever became of them.
class Lent {
 public:
  explicit Lent(std::vector<PyBitmap*>& bitmaps) : bitmaps_(bitmaps) {
    status_ = T_CreateBitmapList(&list_);
    for (PyBitmap* bitmap : bitmaps_) {
      if (status_ == SUCCESS) status_ = T_InsertBitmapListItem(list_, T_LIST_END, bitmap->bitmap.handle());
      if (status_ == SUCCESS) ++count_;
    }
  }
  ~Lent() {
    if (!list_) return;
    for (uint32_t i = 0; i < count_; ++i) {
      BitmapHandle record;
      if (T_RemoveBitmapListItem(list_, 0, &record) == SUCCESS) bitmaps_[i]->Record() = record;
    }
    T_DestroyBitmapList(list_);
  }
  Lent(const Lent&) = delete;
  Lent& operator=(const Lent&) = delete;
  int32_t Status() const { return status_; }
  T_BitmapList* List() const { return list_; }

 private:
  std::vector<PyBitmap*>& bitmaps_;
  T_BitmapList* list_ = nullptr;
  int32_t status_;
  uint32_t count_ = 0;
};

/// Bitmaps of a sequence, each once.
struct Several {
  explicit Several(const py::sequence& sequence) {
    for (const py::handle item : sequence) {
      kept.push_back(py::reinterpret_borrow<py::object>(item));
      if (!py::isinstance<PyBitmap>(item)) RaiseAs(PyExc_TypeError, "a list of bitmaps holds bitmaps only");
      auto* const bitmap = item.cast<PyBitmap*>();
      if (Now(*bitmap).bitmap.empty()) Raise(ERR_NO_BITMAP);
      for (const PyBitmap* other : bitmaps)
        if (other == bitmap) RaiseAs(PyExc_ValueError, "a bitmap is in the list twice");
      bitmaps.push_back(bitmap);
      owned.push_back(bitmap);
    }
  }
  std::vector<py::object> kept;
  std::vector<PyBitmap*> bitmaps;
  std::vector<Owned*> owned;
};

template <class F>
void OnList(Several& several, F&& step) {
  const Claim claim(several.owned);
  for (const PyBitmap* bitmap : several.bitmaps)
    if (bitmap->bitmap.empty()) Raise(ERR_NO_BITMAP);
  Watch watch;
  const int32_t status = [&] {
    const py::gil_scoped_release released;
    const Lent lent(several.bitmaps);
    return lent.Status() == SUCCESS ? step(lent.List()) : lent.Status();
  }();
  for (PyBitmap* bitmap : several.bitmaps)
    if (!(bitmap->Record().Flags & T_FLAG_USER_DATA)) bitmap->memory.reset();
  watch.Rethrow();
  Require(status);
}

Palette ListPalette(const py::sequence& sequence, uint32_t colors) {
  Several several(sequence);
  std::array<T_PaletteEntry, Palette::kMost> entries{};
  uint32_t optimized = 0;
  if (colors < 1 || colors > Palette::kMost) Raise(ERR_INVALID_PARAMETER, "a palette has 1 to 256 colours");
  OnList(several, [&](T_BitmapList* list) {
    return T_CreateBitmapListOptPal(list, entries.data(), &colors, nullptr, &optimized);
  });
  return Palette(std::span<const T_PaletteEntry>(entries).first(colors));
}

void ConvertList(const py::sequence& sequence, int32_t bits, py::handle palette, std::optional<uint32_t> kind,
                 uint32_t dither, uint32_t colors) {
  const Conversion how(palette, kind, dither, colors);
  Several several(sequence);
  for (const PyBitmap* bitmap : several.bitmaps) RequireUnviewed(*bitmap, "convert");
  const auto given = static_cast<uint32_t>(how.palette.size());
  OnList(several, [&](T_BitmapList* list) {
    return T_ColorResBitmapList(list, bits, how.Flags(), given ? how.palette.data() : nullptr, nullptr,
                                given ? given : how.options.colors);
  });
}

}  // namespace

void AddColors(BitmapClass& type) {
  const auto none = py::none();
  type.def("convert", &Convert, "bits"_a, py::kw_only(), "palette"_a = none, "palette_kind"_a = none, "dither"_a = 0u,
           "colors"_a = 0u)
      .def("converted", &Converted, "bits"_a, py::kw_only(), "palette"_a = none, "palette_kind"_a = none,
           "dither"_a = 0u, "colors"_a = 0u)
      .def_property(
          "palette", [](PyBitmap& bitmap) { return Now(bitmap).bitmap.palette(); }, &SetPalette)
      .def(
          "put_palette",
          [](PyBitmap& bitmap, py::handle colors, int32_t first) {
            const Palette palette = PaletteOf(colors);
            Take(Now(bitmap).bitmap.setPalette(palette, first));
          },
          "colors"_a, py::kw_only(), "first"_a = 0)
      .def(
          "optimized_palette",
          [](PyBitmap& bitmap, uint32_t colors) {
            return Work({&bitmap}, [&] { return bitmap.bitmap.optimizedPalette(colors); });
          },
          "colors"_a = 256u)
      .def("count_colors",
           [](PyBitmap& bitmap) { return Work({&bitmap}, [&] { return bitmap.bitmap.countColors(); }); })
      .def_property_readonly("gray_class", &GrayClass)
      .def(
          "to_gray",
          [](PyBitmap& bitmap, int32_t bits) {
            Replace(bitmap, "to_gray", [&] { return bitmap.bitmap.toGray(DepthOf(bits)); });
          },
          "bits"_a = 8)
      .def(
          "gray",
          [](PyBitmap& bitmap, int32_t bits) {
            return Made(bitmap, [&] { return bitmap.bitmap.gray(DepthOf(bits)); });
          },
          "bits"_a = 8)
      .def(
          "narrow_gray",
          [](PyBitmap& bitmap, int32_t bits) {
            Replace(bitmap, "narrow_gray", [&] { return bitmap.bitmap.narrowGray(DepthOf(bits)); });
          },
          "bits"_a)
      .def("alpha",
           [](PyBitmap& bitmap) {
             return std::make_unique<PyBitmap>(Work({&bitmap}, [&] { return bitmap.bitmap.alpha(); }));
           })
      .def("set_alpha", &SetAlpha, "alpha"_a)
      .def(
          "fill",
          [](PyBitmap& bitmap, py::handle color) {
            const Color value = ColorOf(color);
            Work({&bitmap}, [&] { return bitmap.bitmap.fill(value); });
          },
          "color"_a)
      .def("clear", [](PyBitmap& bitmap) { Work({&bitmap}, [&] { return bitmap.bitmap.clear(); }); });
}

void AddLists(py::module_& module) {
  const auto none = py::none();
  module.def("list_palette", &ListPalette, "bitmaps"_a, "colors"_a = 256u);
  module.def("convert_list", &ConvertList, "bitmaps"_a, "bits"_a, py::kw_only(), "palette"_a = none,
             "palette_kind"_a = none, "dither"_a = 0u, "colors"_a = 0u);
}

}  // namespace tarn::python
