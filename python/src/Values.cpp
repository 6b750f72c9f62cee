// Colours and palettes.

#include <algorithm>
#include <cmath>
#include <cstring>

#include "Binding.h"

namespace tarn::python {
namespace {

int Channel(py::handle value) {
  const long number = PyLong_AsLong(value.ptr());
  if (number == -1 && PyErr_Occurred()) throw py::error_already_set();
  if (number < 0 || number > 255) RaiseAs(PyExc_ValueError, "a channel of a colour is 0 to 255");
  return static_cast<int>(number);
}

Color Rgb(py::handle red, py::handle green, py::handle blue) {
  return Color::rgb(static_cast<uint8_t>(Channel(red)), static_cast<uint8_t>(Channel(green)),
                    static_cast<uint8_t>(Channel(blue)));
}

Color Numbered(uint32_t number, Color (*make)(uint16_t), const char* what) {
  if (number > 65535) RaiseAs(PyExc_ValueError, std::string(what) + " is 0 to 65535");
  return make(static_cast<uint16_t>(number));
}

Color Named(const std::string& text) {
  const bool digits =
      text.size() == 7 && text[0] == '#' && text.find_first_not_of("0123456789abcdefABCDEF", 1) == std::string::npos;
  if (!digits) RaiseAs(PyExc_ValueError, "a colour in words is \"#rrggbb\", not \"" + text + "\"");
  const auto value = static_cast<uint32_t>(std::stoul(text.substr(1), nullptr, 16));
  return Color::rgb(static_cast<uint8_t>(value >> 16), static_cast<uint8_t>(value >> 8), static_cast<uint8_t>(value));
}

std::string Written(Color color) {
  const std::string number = std::to_string(color.value() & 0xFFFF);
  if (color.isGray()) return "Color.gray(" + number + ")";
  if (color.isIndex()) return "Color.index(" + number + ")";
  return "Color(" + std::to_string(color.red()) + ", " + std::to_string(color.green()) + ", " +
         std::to_string(color.blue()) + ")";
}

py::tuple Channels(Color color) { return py::make_tuple(color.red(), color.green(), color.blue()); }

std::optional<Color> MaybeColor(py::handle value) {
  if (py::isinstance<Color>(value)) return value.cast<Color>();
  if (py::isinstance<py::str>(value)) return Named(value.cast<std::string>());
  if (PySequence_Check(value.ptr()) && PySequence_Size(value.ptr()) == 3) {
    const auto parts = py::reinterpret_borrow<py::sequence>(value);
    return Rgb(py::object(parts[0]), py::object(parts[1]), py::object(parts[2]));
  }
  PyErr_Clear();
  return std::nullopt;
}

Color Entry(const Palette& palette, py::ssize_t index) {
  const auto size = static_cast<py::ssize_t>(palette.size());
  if (index < 0) index += size;
  if (index < 0 || index >= size) throw py::index_error("a palette of " + std::to_string(size) + " colours");
  return palette.color(static_cast<size_t>(index));
}

Depth PaletteDepth(int bits) {
  if (bits < 1 || bits > 8) RaiseAs(PyExc_ValueError, "palettes are of 1 to 8 bits");
  return static_cast<Depth>(bits);
}

}  // namespace

Color ColorOf(py::handle value) {
  if (const std::optional<Color> color = MaybeColor(value)) return *color;
  RaiseAs(PyExc_TypeError, "a colour is a Color, (red, green, blue) or \"#rrggbb\"");
}

Palette PaletteOf(py::handle value) {
  if (value.is_none()) return {};
  if (py::isinstance<Palette>(value)) return value.cast<Palette>();
  if (!PySequence_Check(value.ptr())) RaiseAs(PyExc_TypeError, "a palette is a Palette or a sequence of colours");
  Palette made;
  for (const py::handle entry : value) {
    const Color color = ColorOf(entry);
    if (!color.isRgb()) RaiseAs(PyExc_ValueError, "a palette is of colours, not of levels or indices");
    if (!made.add(color)) RaiseAs(PyExc_ValueError, "a palette has at most 256 colours");
  }
  return made;
}

py::handle Type(PyObject*& cache, const char* name) {
  if (!cache) cache = py::object(py::module_::import("tarn._types").attr(name)).release().ptr();
  return cache;
}

int32_t Hundredths(double degrees) {
  const double rounded = std::nearbyint(degrees * 100);
  if (!(std::abs(rounded) <= 2'000'000'000)) RaiseAs(PyExc_ValueError, "not an angle: " + std::to_string(degrees));
  return static_cast<int32_t>(rounded);
}

Area AreaOf(py::handle value) {
  if (!PySequence_Check(value.ptr()) || py::len(value) != 4)
    RaiseAs(PyExc_TypeError, "an area is (left, top, width, height)");
  const auto parts = value.cast<std::vector<int32_t>>();
  return {parts[0], parts[1], parts[2], parts[3]};
}

void AddValues(py::module_& module) {
  py::class_<Color>(module, "Color")
      .def(py::init(&Rgb), "red"_a = 0, "green"_a = 0, "blue"_a = 0)
      .def_static("of", &ColorOf, "color"_a)
      .def_static(
          "gray", [](uint32_t level) { return Numbered(level, &Color::gray, "a gray level"); }, "level"_a)
      .def_static(
          "index", [](uint32_t entry) { return Numbered(entry, &Color::index, "an index"); }, "entry"_a)
      .def_static("of_value", &Color::of, "value"_a)
      .def_property_readonly("value", &Color::value)
      .def_property_readonly("red", &Color::red)
      .def_property_readonly("green", [](Color color) { return color.isGray() ? color.red() : color.green(); })
      .def_property_readonly("blue", &Color::blue)
      .def_property_readonly(
          "rgb",
          [](Color color) {
            return Channels(color.isGray() ? Color::rgb(color.red(), color.red(), color.red()) : color);
          })
      .def_property_readonly("level",
                             [](Color color) -> py::object {
                               return color.isGray() ? py::object(py::int_(color.value() & 0xFFFF))
                                                     : py::object(py::none());
                             })
      .def("__eq__",
           [](Color a, py::handle other) {
             const std::optional<Color> b =
                 py::isinstance<Color>(other) || py::isinstance<py::tuple>(other) ? MaybeColor(other) : std::nullopt;
             return b && a == *b;
           })
      .def("__hash__",
           [](Color color) { return color.isRgb() ? py::hash(Channels(color)) : py::hash(py::int_(color.value())); })
      .def("__repr__", &Written)
      .def("__str__",
           [](Color color) {
             if (!color.isRgb()) return Written(color);
             char text[8];
             std::snprintf(text, sizeof text, "#%02x%02x%02x", color.red(), color.green(), color.blue());
             return std::string(text);
           })
      .def(py::pickle([](Color color) { return py::make_tuple(color.value()); },
                      [](const py::tuple& state) { return Color::of(state[0].cast<uint32_t>()); }));

  py::class_<Palette>(module, "Palette")
      .def(py::init(&PaletteOf), "colors"_a = py::none())
      .def_static(
          "fixed", [](int bits) { return Palette::fixed(PaletteDepth(bits)); }, "bits"_a)
      .def_static(
          "gray", [](int bits) { return Palette::gray(PaletteDepth(bits)); }, "bits"_a)
      .def_static("web", &Palette::web)
      .def("__len__", &Palette::size)
      .def("__getitem__", &Entry, "index"_a)
      .def("__iter__",
           [](const Palette& palette) {
             py::list colors;
             for (size_t i = 0; i < palette.size(); ++i) colors.append(palette.color(i));
             return py::iter(colors);
           })
      .def(
          "nearest",
          [](const Palette& palette, py::handle color) {
            if (palette.empty()) RaiseAs(PyExc_ValueError, "the palette is empty");
            return palette.nearest(ColorOf(color));
          },
          "color"_a)
      .def_property_readonly("gray_class",
                             [](const Palette& palette) { return palette.empty() ? 0 : palette.grayClass(); })
      .def("__eq__",
           [](const Palette& a, py::handle other) {
             return py::isinstance<Palette>(other) && a == other.cast<const Palette&>();
           })
      .def("__hash__",
           [](const Palette& palette) {
             std::string bytes;
             for (const T_PaletteEntry& e : palette)
               bytes += {static_cast<char>(e.Red), static_cast<char>(e.Green), static_cast<char>(e.Blue)};
             return py::hash(py::bytes(bytes));
           })
      .def("__repr__",
           [](const Palette& palette) {
             std::string text = "<tarn.Palette of " + std::to_string(palette.size()) + " colours";
             for (size_t i = 0; i < palette.size() && i < 4; ++i)
               text += (i ? " " : ": ") + py::str(py::cast(palette.color(i))).cast<std::string>();
             return text + (palette.size() > 4 ? " ...>" : ">");
           })
      .def(py::pickle(
          [](const Palette& palette) {
            return py::make_tuple(py::bytes(reinterpret_cast<const char*>(palette.data()), palette.size() * 4));
          },
          [](const py::tuple& state) {
            const std::string bytes = state[0].cast<std::string>();
            std::vector<T_PaletteEntry> entries(std::min<size_t>(bytes.size() / 4, Palette::kMost));
            if (!entries.empty()) std::memcpy(entries.data(), bytes.data(), entries.size() * 4);
            return Palette(std::span<const T_PaletteEntry>(entries));
          }));
}

}  // namespace tarn::python
