// Files: the readers and writers that the command-line tool has.

#include "Files.h"

#include <algorithm>

#include "Binding.h"
#include "Console.h"
#include "Failure.h"
#include "Layout.h"
#include "PictureFile.h"

namespace tarn::python {
namespace {

/// Reading and writing set the thread's thresholds as they need them.
class KeptThresholds {
 public:
  KeptThresholds() { T_GetMemoryThresholds(&tiled_, &block_, &tile_, &memoryTiles_, &views_); }
  ~KeptThresholds() { T_SetMemoryThresholds(tiled_, block_, tile_, memoryTiles_, views_, 31); }
  KeptThresholds(const KeptThresholds&) = delete;
  KeptThresholds& operator=(const KeptThresholds&) = delete;

 private:
  int32_t tiled_ = 0, memoryTiles_ = 0, views_ = 0;
  int64_t block_ = 0, tile_ = 0;
};

struct Stopped {};

/// Steps of a reader or writer as percentages, of several pictures one after another.
class Listener final : public tool::ProgressSink {
 public:
  explicit Listener(Watch& watch, uint64_t parts = 1) : watch_(watch), parts_(parts) {}
  void Begin(std::string_view) noexcept override {}
  void Reach(uint64_t done, uint64_t steps) override {
    const uint64_t share = std::min(done, steps) * 100 / steps;
    told_ = std::max(told_, static_cast<int>((part_ * 100 + share) / parts_));
    if (!watch_.Told(told_)) throw Stopped();
  }
  void NextPart() { ++part_; }

 private:
  Watch& watch_;
  uint64_t parts_;
  uint64_t part_ = 0;
  int told_ = 0;
};

int32_t StatusOf(tool::Exit exit) {
  switch (exit) {
    case tool::Exit::kInput:
      return ERR_FILE_READ;
    case tool::Exit::kOutput:
      return ERR_FILE_WRITE;
    case tool::Exit::kDamaged:
      return ERR_UNSUPPORTED_FORMAT;
    case tool::Exit::kDepth:
      return ERR_BAD_BITS_PER_PIXEL;
    case tool::Exit::kLimit:
      return ERR_IMAGE_TOO_LARGE;
    case tool::Exit::kMemory:
      return ERR_NO_MEMORY;
    default:
      return ERR_INVALID_PARAMETER;
  }
}

/// Runs a step of the tool's without the interpreter's lock; it gets a console that tells the watch. Its failures
/// become exceptions of Python.
template <class F>
auto Attempt(std::vector<Owned*> objects, uint64_t parts, F&& step) {
  const Claim claim(std::move(objects));
  Watch watch;
  Listener listener(watch, parts);
  tool::Console console(false, true);
  console.SendProgressTo(&listener);
  int32_t status = SUCCESS;
  std::string text;
  std::optional<decltype(step(console, listener))> made;
  {
    const py::gil_scoped_release released;
    const KeptThresholds kept;
    try {
      made.emplace(step(console, listener));
    } catch (const Stopped&) {
      status = kCancelled;
    } catch (const tool::Failure& failure) {
      status = StatusOf(failure.ExitCode());
      text = (failure.File().empty() ? "" : failure.File() + ": ") + failure.what();
      // The tool's options are this module's keywords.
      for (const char* option : {"--max-pixels ", "--max-memory "})
        if (const size_t at = text.find(option); at != std::string::npos)
          text.replace(at, 13, std::string(option + 2, 3) + "_" + std::string(option + 6, 6) + "=");
    } catch (const std::bad_alloc&) {
      status = ERR_NO_MEMORY;
    } catch (const std::length_error&) {
      status = ERR_NO_MEMORY;
    }
  }
  watch.Rethrow();
  if (status != SUCCESS) Raise(status, text);
  return std::move(*made);
}

tool::StorageChoice ChoiceOf(uint32_t storage, uint64_t tileSize, uint64_t maxMemory, uint64_t maxPixels) {
  tool::StorageChoice choice;
  choice.tileBytes = tileSize;
  choice.maxMemory = maxMemory;
  choice.maxPixels = maxPixels;
  switch (storage) {
    case TYPE_CONV:
    case TYPE_NODISK:
      choice.kind = tool::StorageKind::kAuto;
      break;
    case TYPE_NOTILED:
      choice.kind = tool::StorageKind::kMemory;
      break;
    case TYPE_TILED:
      choice.kind = tool::StorageKind::kTiled;
      break;
    case TYPE_DISK:
      choice.kind = tool::StorageKind::kDisk;
      break;
    case TYPE_COMPRESSED:
      choice.kind = tool::StorageKind::kCompressed;
      break;
    case TYPE_SUPERCOMPRESSED:
      choice.kind = tool::StorageKind::kSuper;
      break;
    default:
      RaiseAs(PyExc_ValueError, "no storage that files can be read into");
  }
  if (maxMemory != 0 && tileSize > maxMemory) RaiseAs(PyExc_ValueError, "tile_size is larger than max_memory");
  return choice;
}

/// A file that is open for reading.
struct PyReader : Owned {
  PyReader(std::string file, uint64_t maxMemory) : name(std::move(file)), memory(maxMemory) {}
  /// Opens the file, or opens it again.
  void Open(tool::Console& console) {
    reader.reset();
    input = std::make_unique<tool::InputFile>(name);
    reader = tool::OpenPicture(*input, console, tool::kEveryPage, memory);
    used = false;
  }
  void TurnTo(int page, tool::Console& console) {
    if (reader->Pages() > 1) {
      reader->TurnTo(page + 1);
    } else if (used) {
      Open(console);  // such a reader goes through its file once
    }
  }

  std::string name;
  uint64_t memory;  // for a decoder
  // The readers note things at a console as long as they live.
  tool::Console quiet{false, true};
  std::unique_ptr<tool::InputFile> input;
  std::unique_ptr<tool::Reader> reader;
  bool used = false;
};

std::unique_ptr<PyReader> OpenReader(const std::string& name, uint64_t maxMemory) {
  auto made = std::make_unique<PyReader>(name, maxMemory);
  Attempt({}, 1, [&](tool::Console&, Listener&) {
    made->Open(made->quiet);
    return true;
  });
  return made;
}

int RequirePage(PyReader& reader, int page) {
  if (!Now(reader).reader) RaiseAs(PyExc_ValueError, "the file is closed");
  const int pages = reader.reader->Pages();
  if (page < 0) page += pages;
  if (page < 0 || page >= pages) throw py::index_error("the file has " + std::to_string(pages) + " page(s)");
  return page;
}

py::object Info(PyReader& reader, int page) {
  static PyObject* cache = nullptr;
  const int at = RequirePage(reader, page);
  const tool::Picture picture = Attempt({&reader}, 1, [&](tool::Console&, Listener&) {
    reader.TurnTo(at, reader.quiet);
    return reader.reader->Info();
  });
  py::object profile = py::none();
  if (!picture.profile.empty())
    profile = py::bytes(reinterpret_cast<const char*>(picture.profile.data()), picture.profile.size());
  const py::object palette =
      picture.palette.empty() ? py::object(py::none()) : py::cast(Palette(std::span(picture.palette)));
  return Type(cache, "PageInfo")(picture.container, picture.depth, picture.width, picture.height, picture.bits,
                                 py::make_tuple(picture.xDpi, picture.yDpi), picture.orientation, palette, profile);
}

NewBitmap Read(PyReader& reader, int page, uint32_t storage, uint64_t tileSize, uint64_t maxMemory,
               uint64_t maxPixels) {
  const tool::StorageChoice choice = ChoiceOf(storage, tileSize, maxMemory, maxPixels);
  const int at = RequirePage(reader, page);
  return Attempt({&reader}, 1, [&](tool::Console& console, Listener&) {
    reader.TurnTo(at, reader.quiet);
    tool::RequireStorable(choice, tool::LayoutOf(reader.reader->Info()), reader.name);
    tool::RequireWithin(choice, reader.reader->Info(), reader.name);
    reader.used = true;
    tool::Bitmap read(reader.reader->Info(), choice, reader.name);
    tool::Progress progress(console, reader.name, reader.reader->Steps());
    reader.reader->ReadInto(read, progress);
    const tool::Picture& picture = reader.reader->Info();
    auto made = std::make_unique<PyBitmap>(Bitmap::adopt(read.Handle()));
    read.Release();
    made->profile.assign(picture.profile.begin(), picture.profile.end());
    return made;
  });
}

// ---- Writing -------------------------------------------------------------------------------------------------------

/// What the file is to say beside the pixels, in the form in which other files say it.
tool::Picture MetadataOf(const PyBitmap& bitmap) {
  tool::Picture said;
  said.xDpi = bitmap.bitmap.xResolution();
  said.yDpi = bitmap.bitmap.yResolution();
  said.orientation = bitmap.bitmap.viewPerspective();
  said.profile.assign(bitmap.profile.begin(), bitmap.profile.end());
  // A profile tells in bytes 16 to 19 what pixels it is for; it is left out with others.
  const bool gray = bitmap.profile.size() >= 20 && bitmap.profile.compare(16, 4, "GRAY") == 0;
  said.bits = gray ? 8 : 24;
  if (gray) said.palette = tool::GrayRamp(8, false);
  return said;
}

tool::TiffCompression CompressionOf(const std::string& name) {
  static constexpr std::pair<const char*, tool::TiffCompression> kNames[] = {
      {"", tool::TiffCompression::kDefault},          {"none", tool::TiffCompression::kNone},
      {"lzw", tool::TiffCompression::kLzw},           {"deflate", tool::TiffCompression::kDeflate},
      {"packbits", tool::TiffCompression::kPackBits}, {"g4", tool::TiffCompression::kG4}};
  for (const auto& [known, compression] : kNames)
    if (name == known) return compression;
  RaiseAs(PyExc_ValueError, "compression is none, lzw, deflate, packbits or g4, not " + name);
}

void Save(const std::string& name, const py::sequence& pages, std::optional<int> quality,
          const std::optional<std::string>& compression) {
  tool::WriteOptions options;
  options.compression = CompressionOf(compression.value_or(""));
  if (quality && (*quality < 1 || *quality > 100)) RaiseAs(PyExc_ValueError, "quality is 1 to 100");
  options.jpegQuality = quality.value_or(90);
  std::vector<py::object> kept;
  std::vector<PyBitmap*> bitmaps;
  std::vector<Owned*> owned;
  for (const py::handle page : pages) {
    kept.push_back(py::reinterpret_borrow<py::object>(page));
    if (!py::isinstance<PyBitmap>(page)) RaiseAs(PyExc_TypeError, "pages are bitmaps");
    bitmaps.push_back(page.cast<PyBitmap*>());
    if (Now(*bitmaps.back()).bitmap.empty()) Raise(ERR_NO_BITMAP);
    owned.push_back(bitmaps.back());
  }
  if (bitmaps.empty()) RaiseAs(PyExc_ValueError, "no pages to write");
  Attempt(std::move(owned), bitmaps.size(), [&](tool::Console& console, Listener& listener) {
    const tool::Format format = tool::FormatOf(name);
    if (quality && format != tool::Format::kJpeg)
      throw tool::Failure(tool::Exit::kUsage, name, "quality goes with JPEG files");
    if (compression && format != tool::Format::kTiff)
      throw tool::Failure(tool::Exit::kUsage, name, "compression goes with TIFF files");
    tool::PictureFile file(name, options, {}, false, console);
    std::vector<tool::Picture> said;
    for (const PyBitmap* bitmap : bitmaps) {
      const BitmapHandle& record = *bitmap->bitmap.handle();
      if (!(record.Flags & T_FLAG_ALLOCATED))
        throw tool::Failure(tool::Exit::kUsage, name, "a bitmap was closed meanwhile");
      if (record.Flags & T_FLAG_SIGNED_DATA)
        throw tool::Failure(tool::Exit::kDepth, name, "signed samples have no place in such files; convert them first");
      said.push_back(MetadataOf(*bitmap));
      file.Expect(said.back(), {record.Width, record.Height, tool::LayoutOf(record), record.ViewPerspective});
    }
    file.Create();
    for (size_t i = 0; i < bitmaps.size(); ++i) {
      file.Add(said[i], std::make_unique<tool::Bitmap>(*bitmaps[i]->bitmap.handle(), name));
      listener.NextPart();
    }
    file.Commit();
    return true;
  });
}

}  // namespace

void AddFiles(py::module_& module) {
  py::class_<PyReader>(module, "Reader")
      .def(py::init(&OpenReader), "path"_a, py::kw_only(), "max_memory"_a = uint64_t{0})
      .def("__len__", [](PyReader& reader) { return RequirePage(reader, 0), reader.reader->Pages(); })
      .def("info", &Info, "page"_a = 0)
      .def("read", &Read, "page"_a = 0, py::kw_only(), "storage"_a = uint32_t{TYPE_CONV}, "tile_size"_a = uint64_t{0},
           "max_memory"_a = uint64_t{0}, "max_pixels"_a = uint64_t{0})
      .def("close", [](PyReader& reader) {
        Now(reader).reader.reset();
        reader.input.reset();
      });
  module.def("save", &Save, "path"_a, "pages"_a, py::kw_only(), "quality"_a = py::none(), "compression"_a = py::none());
}

}  // namespace tarn::python
