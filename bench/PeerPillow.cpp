// Pillow in an embedded Python. Its colour pixels take four bytes; every result is a new picture.

#define PY_SSIZE_T_CLEAN
#include <Python.h>

#include <cstring>

#include "Bench.h"
#include "Peers.h"

namespace bench {
namespace {

/// An object that is let go with its last copy.
using Object = std::shared_ptr<PyObject>;
Object Own(PyObject* object) {
  if (!object) PyErr_Print();
  Require(object != nullptr, "Python");
  return {object, [](PyObject* it) { Py_DECREF(it); }};
}

struct Mode {
  Format format;
  const char* mode;
  const char* raw;  // how its bytes lie in ours
};
constexpr Mode kModes[] = {
    {kBits1, "1", "1"}, {kGray8, "L", "L"}, {kPalette8, "P", "P"}, {kBgr24, "RGB", "BGR"}, {kBgr32, "RGBA", "BGRA"},
};

const Mode* ModeOf(Format format) {
  for (const Mode& mode : kModes)
    if (mode.format == format) return &mode;
  return nullptr;
}

Object BytesOf(const Palette& palette) {
  std::string bytes;
  for (const T_PaletteEntry& entry : palette) {
    for (const uint8_t channel : {entry.Red, entry.Green, entry.Blue}) bytes += static_cast<char>(channel);
  }
  return Own(PyBytes_FromStringAndSize(bytes.data(), static_cast<Py_ssize_t>(bytes.size())));
}

/// Defines run(), which makes `made` by the expression on `im` (and `wanted`, a picture with the palette), and seen(),
/// its pixels with 24 bits.
constexpr char kScript[] = R"(
from PIL import Image
im = Image.frombytes(mode, (width, height), data, 'raw', raw, stride)
del data
if palette:
    im.putpalette(palette)
wanted = Image.new('P', (1, 1))
if target:
    wanted.putpalette(target)
made = None
def run():
    global made
    made = None
    made = EXPRESSION
def seen():
    return made.convert('RGB').tobytes('raw', 'BGR', (3 * made.width + 3) // 4 * 4)
)";

class Pillow : public Peer {
 public:
  std::string Name() const override { return "Pillow"; }

  PeerJob Convert(const Pixels& source, Format target, const Palette& palette) override {
    const Mode* const to = ModeOf(target);
    if (!ModeOf(source.format) || !to || target == kBits1) return {};
    if (target == kPalette8)
      return Job(source, "quantize", "im.quantize(palette=wanted, dither=Image.Dither.NONE)", palette);
    return Job(source, "convert", "im.convert('" + std::string(to->mode) + "')", {});
  }

  std::vector<PeerJob> Copy(const Pixels& source, int32_t column) override {
    if (!ModeOf(source.format)) return {};
    if (column == 0) return {Job(source, "copy", "im.copy()", {})};
    return {Job(source, "crop", "im.crop((" + std::to_string(column) + ", 0, width, height))", {})};
  }

  std::vector<PeerJob> Reduce(const Pixels& source, const Reduction& reduction) override {
    using Way = Reduction::Way;
    if (!ModeOf(source.format) || reduction.way == Way::kOrdered) return {};
    if (reduction.way == Way::kChosen) {
      return {Job(source, "quantize FASTOCTREE", "im.quantize(256, method=Image.Quantize.FASTOCTREE, dither=0)", {}),
              Job(source, "quantize MEDIANCUT", "im.quantize(256, method=Image.Quantize.MEDIANCUT, dither=0)", {})};
    }
    const std::string dither = reduction.way == Way::kFloydSteinberg ? "FLOYDSTEINBERG" : "NONE";
    if (reduction.palette.size() == 2)
      return {Job(source, "convert", "im.convert('1', dither=Image.Dither." + dither + ")", {})};
    return {
        Job(source, "quantize", "im.quantize(palette=wanted, dither=Image.Dither." + dither + ")", reduction.palette)};
  }

  std::vector<PeerJob> Turn(const Pixels& source, const TurnTask& task) override {
    if (!ModeOf(source.format)) return {};
    using Way = TurnTask::Way;
    const auto transpose = [&](const char* method) -> std::vector<PeerJob> {
      return {Job(source, "transpose", std::string("im.transpose(Image.Transpose.") + method + ")", {})};
    };
    const auto rotate = [&](const char* filter) -> std::vector<PeerJob> {
      return {
          Job(source, "rotate",
              "im.rotate(-" + std::to_string(task.degrees) + ", expand=True, resample=Image.Resampling." + filter + ")",
              {})};
    };
    switch (task.way) {
      case Way::kFlip:
        return transpose("FLIP_TOP_BOTTOM");
      case Way::kMirror:
        return transpose("FLIP_LEFT_RIGHT");
      case Way::kHalf:
        return transpose("ROTATE_180");
      case Way::kQuarter:
        return transpose("ROTATE_270");
      case Way::kNearest:
        return rotate("NEAREST");
      case Way::kBilinear:
        return rotate("BILINEAR");
      default:
        return {};
    }
  }

  std::vector<PeerJob> Resize(const Pixels& source, const Scaling& scaling) override {
    using Way = Scaling::Way;
    if (!ModeOf(source.format) || scaling.way == Way::kInk) return {};
    const std::string filter = scaling.way == Way::kNearest  ? "NEAREST"
                               : scaling.way == Way::kBox    ? "BOX"
                               : scaling.way == Way::kLinear ? "BILINEAR"
                                                             : "BICUBIC";
    const std::string size = "(" + std::to_string(scaling.width) + ", " + std::to_string(scaling.height) + ")";
    PeerJob job = Job(source, "resize", "im.resize(" + size + ", Image.Resampling." + filter + ")", {});
    if (source.format == kBits1) job.result = nullptr;  // its ones are white
    std::vector<PeerJob> jobs = {job};
    const int parts = source.width / scaling.width;
    if (scaling.way == Way::kBox && parts * scaling.width == source.width)
      jobs.push_back(Job(source, "reduce", "im.reduce(" + std::to_string(parts) + ")", {}));
    return jobs;
  }

  PeerJob CountColours(const Pixels& source) override {
    PeerJob job = Job(source, "getcolors", "im.getcolors(1 << 24)", {});
    job.result = nullptr;  // not a picture
    return job;
  }

 private:
  static PeerJob Job(const Pixels& source, const std::string& call, const std::string& expression,
                     const Palette& target) {
    const Mode& mode = *ModeOf(source.format);
    const Object names = Own(PyDict_New());
    const auto set = [&](const char* name, const Object& value) {
      PyDict_SetItemString(names.get(), name, value.get());
    };
    set("__builtins__", {PyEval_GetBuiltins(), [](PyObject*) {}});
    set("mode", Own(PyUnicode_FromString(mode.mode)));
    set("raw", Own(PyUnicode_FromString(mode.raw)));
    set("width", Own(PyLong_FromLong(source.width)));
    set("height", Own(PyLong_FromLong(source.height)));
    set("stride", Own(PyLong_FromLong(static_cast<long>(source.rowBytes))));
    set("data", Own(PyBytes_FromStringAndSize(reinterpret_cast<const char*>(source.bytes.data()),
                                              static_cast<Py_ssize_t>(source.bytes.size()))));
    set("palette", BytesOf(source.format == kBits1 ? Palette{} : source.palette));
    set("target", BytesOf(target));
    std::string script = kScript;
    script.replace(script.find("EXPRESSION"), std::strlen("EXPRESSION"), expression);
    Own(PyRun_String(script.c_str(), Py_file_input, names.get(), names.get()));
    PyObject* const run = PyDict_GetItemString(names.get(), "run");
    PyObject* const seen = PyDict_GetItemString(names.get(), "seen");
    return {call + ", fresh",
            [names, run] {
              PyObject* const none = PyObject_CallNoArgs(run);
              Require(none != nullptr, "Pillow");
              Py_DECREF(none);
            },
            [names, seen] {
              const PyObject* const made = PyDict_GetItemString(names.get(), "made");
              const Object size = Own(PyObject_GetAttrString(const_cast<PyObject*>(made), "size"));
              const auto side = [&](Py_ssize_t i) {
                return static_cast<int32_t>(PyLong_AsLong(PyTuple_GetItem(size.get(), i)));
              };
              Pixels pixels(kBgr24, side(0), side(1));
              const Object bytes = Own(PyObject_CallNoArgs(seen));
              Require(static_cast<size_t>(PyBytes_Size(bytes.get())) == pixels.bytes.size(), "Pillow's bytes");
              std::memcpy(pixels.bytes.data(), PyBytes_AsString(bytes.get()), pixels.bytes.size());
              return pixels;
            }};
  }
};

}  // namespace

std::unique_ptr<Peer> PillowPeer() {
  if (!Py_IsInitialized()) Py_InitializeEx(0);
  PyObject* const module = PyImport_ImportModule("PIL.Image");
  if (!module) {
    PyErr_Clear();
    return nullptr;
  }
  Py_DECREF(module);
  return std::make_unique<Pillow>();
}

}  // namespace bench
