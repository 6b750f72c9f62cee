// Who works on what, progress, and the way of failures into Python.

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>

#include "Binding.h"

namespace tarn::python {
namespace {

constexpr int64_t kAskEvery = 50'000'000;  // nanoseconds between looks at the interrupt key
constexpr auto kPatience = std::chrono::milliseconds(50);

std::mutex waiting;
std::condition_variable released;

unsigned long ThisThread() { return PyThread_get_thread_ident(); }

/// Signals reach Python code in its first thread only.
bool HearsSignals() { return gettid() == getpid(); }

int64_t Nanoseconds() { return std::chrono::steady_clock::now().time_since_epoch().count(); }

/// The innermost progress callables of a thread. Plain pointers: a thread may end without the interpreter's lock.
thread_local std::vector<PyObject*> callables;

/// What a callable does itself it is not told of.
struct Silence {
  Silence() { callables.push_back(nullptr); }
  ~Silence() { callables.pop_back(); }
};

}  // namespace

// ---- Failures ------------------------------------------------------------------------------------------------------

void Raise(int32_t status, const std::string& text) {
  const py::object error = py::module_::import("tarn._errors").attr("of_status")(status, statusName(status), text);
  PyErr_SetObject(py::type::handle_of(error).ptr(), error.ptr());
  throw py::error_already_set();
}

void RaiseAs(PyObject* type, const std::string& text) {
  PyErr_SetString(type, text.c_str());
  throw py::error_already_set();
}

void RequireOrder(uint32_t order) {
  if (order != T_ORDER_RGB && order != T_ORDER_BGR && order != T_ORDER_GRAY && order != T_ORDER_WIDE)
    RaiseAs(PyExc_ValueError, "an order is RGB, BGR, GRAY or WIDE, not " + std::to_string(order));
}

void RequireUnviewed(const PyBitmap& bitmap, const char* what) {
  if (bitmap.streams != 0)
    RaiseAs(PyExc_BufferError, std::string(what) +
                                   " would move pixels that resized_rows() reads; take its rows to the last one or "
                                   "close() it first, or work on a clone()");
  if (bitmap.views == 0) return;
  RaiseAs(PyExc_BufferError,
          std::string(what) + " would move pixels that " + std::to_string(bitmap.views) +
              " view(s) show; delete the arrays and memoryviews of this bitmap first, or work on a clone()");
}

// ---- Claims --------------------------------------------------------------------------------------------------------

void Wait(const Owned& object) {
  while (object.owner != 0) {
    if (object.owner == ThisThread()) {
      RaiseAs(PyExc_RuntimeError,
              "an operation on this object is under way in this thread; a progress callable must leave it alone");
    }
    {
      const py::gil_scoped_release free;
      std::unique_lock lock(waiting);
      released.wait_for(lock, kPatience);
    }
    if (PyErr_CheckSignals() != 0) throw py::error_already_set();
  }
}

Claim::Claim(std::vector<Owned*> objects) : objects_(std::move(objects)) {
  // All or none, so that two threads never hold what the other one waits for.
  for (bool free = false; !free;) {
    free = true;
    for (const Owned* object : objects_) {
      if (object->owner == 0) continue;
      Wait(*object);
      free = false;
    }
  }
  for (Owned* object : objects_) object->owner = ThisThread();
}

Claim::~Claim() {
  for (Owned* object : objects_) object->owner = 0;
  released.notify_all();
}

// ---- Progress ------------------------------------------------------------------------------------------------------

Watch::Watch() : callable_(callables.empty() ? nullptr : callables.back()), asked_(Nanoseconds()) {
  // Without anybody to tell there is no callback, so that operations that would prepare to be stopped need not.
  if (!callable_ && !HearsSignals()) return;
  installed_ = true;
  Py_XINCREF(callable_);
  T_SetStatusCallBack(Callback, this, &previous_, &previousData_);
  T_SetCopyStatusCallBack(Callback, this, &previousCopy_, &previousCopyData_);
}

Watch::~Watch() {
  if (!installed_) return;
  T_SetStatusCallBack(previous_, previousData_, nullptr, nullptr);
  T_SetCopyStatusCallBack(previousCopy_, previousCopyData_, nullptr, nullptr);
  Py_XDECREF(callable_);
}

bool Watch::Told(int percent) noexcept {
  if (!installed_) return true;
  if (raised_) return false;
  const bool tell = callable_ && percent != last_;
  const int64_t now = Nanoseconds();
  if (!tell && now - asked_ < kAskEvery) return true;
  asked_ = now;
  last_ = percent;
  const py::gil_scoped_acquire held;
  try {
    if (PyErr_CheckSignals() != 0) throw py::error_already_set();
    if (!tell) return true;
    const Silence own;
    return py::reinterpret_borrow<py::object>(callable_)(percent).ptr() != Py_False;
  } catch (py::error_already_set& error) {
    raised_.emplace(error);
    return false;
  } catch (...) {
    return false;
  }
}

void Watch::Rethrow() {
  if (!raised_) return;
  py::error_already_set error = *std::exchange(raised_, std::nullopt);
  throw error;
}

void PushProgress(py::object callable) { callables.push_back(callable.release().ptr()); }

void PopProgress() {
  if (callables.empty()) RaiseAs(PyExc_RuntimeError, "progress was not being watched in this thread");
  Py_DECREF(callables.back());
  callables.pop_back();
}

}  // namespace tarn::python
