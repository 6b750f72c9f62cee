#pragma once
// What the parts of the module share: the objects behind Python's, who is working on them, and how failures leave.

#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tarn/tarn.hpp"

namespace tarn::python {

namespace py = pybind11;
using namespace py::literals;

// ---- Objects -------------------------------------------------------------------------------------------------------

/// Something that one thread works on at a time. Fields are touched with the interpreter's lock held only, so that
/// looking is free; the lock is given up while the owner works.
struct Owned {
  unsigned long owner = 0;  // thread that works on it without the interpreter's lock; 0: none
};

/// A buffer of somebody else's, held for as long as pixels lie in it.
class HeldBuffer {
 public:
  HeldBuffer() noexcept { view_.obj = nullptr; }
  HeldBuffer(const HeldBuffer&) = delete;
  HeldBuffer& operator=(const HeldBuffer&) = delete;
  ~HeldBuffer() { PyBuffer_Release(&view_); }
  /// Throws what the exporter raises.
  static std::unique_ptr<HeldBuffer> Of(py::handle exporter, int flags) {
    auto held = std::make_unique<HeldBuffer>();
    if (PyObject_GetBuffer(exporter.ptr(), &held->view_, flags) != 0) {
      held->view_.obj = nullptr;
      throw py::error_already_set();
    }
    return held;
  }
  const Py_buffer& View() const noexcept { return view_; }

 private:
  Py_buffer view_{};
};

struct PyBitmap : Owned {
  PyBitmap() = default;
  explicit PyBitmap(Bitmap made) : bitmap(std::move(made)) {}
  PyBitmap(const PyBitmap&) = delete;

  std::unique_ptr<HeldBuffer> memory;  // that the pixels lie in, where they are the caller's; goes after the bitmap
  Bitmap bitmap;
  std::string profile;  // ICC
  int views = 0;        // buffers that are exported
  int streams = 0;      // sources of rows that read the pixels as they go

  BitmapHandle& Record() noexcept { return *bitmap.handle(); }
};
using NewBitmap = std::unique_ptr<PyBitmap>;

/// A packed field as a value.
template <class T>
constexpr T V(T field) noexcept {
  return field;
}

// ---- Failures ------------------------------------------------------------------------------------------------------

/// Raises the exception of a status. `text` adds to its name.
[[noreturn]] void Raise(int32_t status, const std::string& text = "");
/// Raises a built-in exception.
[[noreturn]] void RaiseAs(PyObject* type, const std::string& text);
inline void Require(int32_t status) {
  if (status != SUCCESS) Raise(status);
}
template <class T>
T Take(Result<T> result) {
  if (!result) Raise(result.status());
  if constexpr (!std::is_void_v<T>) return std::move(*result);
}
/// A value error for a number that names no order.
void RequireOrder(uint32_t order);
/// A buffer error unless nobody has a view of the pixels, or makes rows of them; the operation is about to move them.
void RequireUnviewed(const PyBitmap& bitmap, const char* what);

// ---- Work ----------------------------------------------------------------------------------------------------------

/// Waits until no other thread works on it. Raises when this very thread does, which is in a progress callable.
void Wait(const Owned& object);

/// For calls that are short: no other thread is at work on it now, nor will be until Python code runs again.
template <class T>
T& Now(T& object) {
  if (object.owner != 0) Wait(object);
  return object;
}

/// Makes objects this thread's, all at once.
class Claim {
 public:
  explicit Claim(std::vector<Owned*> objects);
  ~Claim();
  Claim(const Claim&) = delete;
  Claim& operator=(const Claim&) = delete;

 private:
  std::vector<Owned*> objects_;
};

/// Progress of the operations of this thread while it lives: told to the callable of the thread's tarn.progress, and
/// the moment to notice the interrupt key. Works without the interpreter's lock.
class Watch {
 public:
  Watch();
  ~Watch();
  Watch(const Watch&) = delete;
  Watch& operator=(const Watch&) = delete;

  /// False: stop. Either the callable said so, or an exception is kept.
  bool Told(int percent) noexcept;
  /// Raises the exception that was kept. With the lock held.
  void Rethrow();

 private:
  static int32_t Callback(int32_t percent, void* self) noexcept {
    return static_cast<Watch*>(self)->Told(percent) ? SUCCESS : kCancelled;
  }

  PyObject* callable_;
  bool installed_ = false;
  int last_ = -1;
  int64_t asked_ = 0;  // when the interrupt key was looked at, nanoseconds
  std::optional<py::error_already_set> raised_;
  T_StatusCallback previous_ = nullptr;
  T_StatusCallback previousCopy_ = nullptr;
  void* previousData_ = nullptr;
  void* previousCopyData_ = nullptr;
};

/// The callable that Watch tells, of this thread; the innermost counts.
void PushProgress(py::object callable);
void PopProgress();

/// Runs a step on objects that are this thread's meanwhile, without the interpreter's lock. The step gives a Result;
/// what comes back is its value.
template <class F>
auto Work(std::initializer_list<Owned*> objects, F&& step) {
  const Claim claim(objects);
  Watch watch;
  auto result = [&] {
    const py::gil_scoped_release released;
    return step();
  }();
  watch.Rethrow();
  return Take(std::move(result));
}

/// The same for what makes a bitmap of another one; the profile goes along.
template <class F>
NewBitmap Made(PyBitmap& source, F&& step) {
  auto made = std::make_unique<PyBitmap>(Work({&source}, std::forward<F>(step)));
  made->profile = source.profile;
  return made;
}

/// For an operation that may give the pixels other storage.
template <class F>
void Replace(PyBitmap& bitmap, const char* what, F&& step) {
  RequireUnviewed(Now(bitmap), what);
  Work({&bitmap}, std::forward<F>(step));
  if (!(bitmap.Record().Flags & T_FLAG_USER_DATA)) bitmap.memory.reset();
}

// ---- Values --------------------------------------------------------------------------------------------------------

/// A colour of what Python has for one: a Color, three numbers, "#rrggbb".
Color ColorOf(py::handle value);
/// A bit of a set of flags that says whether an argument was given.
template <class T>
uint32_t Bit(const std::optional<T>& argument, int bit) {
  return argument ? static_cast<uint32_t>(bit) : 0;
}
/// A palette of a Palette or a sequence of colours; None is an empty one.
Palette PaletteOf(py::handle value);
/// A class of tarn._types. The caller keeps it from one call to the next; it is never given up.
py::handle Type(PyObject*& cache, const char* name);
/// The degrees of Python in hundredths.
int32_t Hundredths(double degrees);
Area AreaOf(py::handle value);

/// An uninitialised object of so many bytes.
inline py::bytes NewBytes(size_t size) {
  PyObject* const made = PyBytes_FromStringAndSize(nullptr, static_cast<py::ssize_t>(size));
  if (!made) throw py::error_already_set();
  return py::reinterpret_steal<py::bytes>(made);
}
inline std::span<uint8_t> Inside(const py::bytes& bytes) {
  return {reinterpret_cast<uint8_t*>(PyBytes_AS_STRING(bytes.ptr())),
          static_cast<size_t>(PyBytes_GET_SIZE(bytes.ptr()))};
}
inline std::span<uint8_t> Inside(const HeldBuffer& buffer) {
  return {static_cast<uint8_t*>(buffer.View().buf), static_cast<size_t>(buffer.View().len)};
}

// ---- Arrays --------------------------------------------------------------------------------------------------------

/// The buffer protocol of bitmaps.
void SetBufferProtocol(PyHeapTypeObject* type);
/// What a pixel is to those who look at memory. Not for packed pixels.
struct Samples {
  char format;  // of the struct module
  int bytes;
  int channels;
};
std::optional<Samples> SamplesOf(const BitmapHandle& record);
/// What a format of the struct module says of one item, its byte order left out; 0 for several, and for other orders.
char LetterOf(const Py_buffer& view);
/// Indices packed most significant bits first, one byte each.
void UnpackIndices(uint8_t* target, const uint8_t* line, int64_t count, int bits);

// ---- Parts of the module -------------------------------------------------------------------------------------------

using BitmapClass = py::class_<PyBitmap>;
void AddValues(py::module_& module);
void AddSettings(py::module_& module);
void AddBitmap(BitmapClass& type);
void AddRows(BitmapClass& type);
void AddColors(BitmapClass& type);
void AddGeometry(BitmapClass& type);
void AddCombining(BitmapClass& type);
void AddArrays(BitmapClass& type);
void AddBlock(py::module_& module);
void AddLookupTable(BitmapClass& type);
void AddResizing(py::module_& module, BitmapClass& type);
void AddDithering(py::module_& module);
void AddFiles(py::module_& module);
void AddLists(py::module_& module);

}  // namespace tarn::python
