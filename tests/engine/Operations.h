#pragma once
// The operation table: one row for every exported function that allocates, or moves pixels or files. Sweeps, fuzz
// targets and comparisons walk the table; nothing else names its rows.
//
// A new operation adds one row to the list of its theme in Operations*.cpp:
//
//   {.name = "T_ShearBitmap",               // what a failure prints; several rows may call one function
//    .kinds = kAllKinds, .depths = kAllDepths,  // storage kinds and depths of the bitmap it works on; no kinds: none
//    .failures = {ERR_NO_MEMORY},           // results that its header documents for a refused call
//    .prepare = [](Work& w) { ... },        // whatever the call needs, made before the gates are armed
//    .call = [](Work& w) -> int64_t { return T_ShearBitmap(&w.subject.record, 1000, 1, 0); }}
//
// `subject` is made before prepare runs. What the call makes goes to `made` (a bitmap) or is released in `finish`,
// which runs after a call that succeeded. What it fills goes to `buffer`. Anything else that prepare makes is undone
// through Later. Draw chance from `random` only. A row is run again and again with one of its calls refused; unless it
// says otherwise, a run that fails must leave records, pixels, memory, files and settings as they were, and the same
// call must then succeed with the result that it has without a fault.

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "engine/Picture.h"
#include "engine/Random.h"
#include "engine/Scene.h"
#include "tarn/tarn.h"

namespace tarn::engine {

/// What one run of an operation works on.
class Work {
 public:
  Work(const Scene& where, Kind subjectKind, const Shape& subjectShape, uint64_t seed)
      : scene(where), kind(subjectKind), shape(subjectShape), random(seed) {}
  ~Work();
  Work(const Work&) = delete;
  Work& operator=(const Work&) = delete;

  /// Runs at the end, last first, after the bitmaps were freed.
  void Later(std::function<void()> step) { later_.push_back(std::move(step)); }
  /// Name of a file in the scene's directory, deleted at the end.
  std::wstring FileName(const wchar_t* name);

  const Scene& scene;
  Kind kind;
  Shape shape;
  Random random;
  Picture subject;
  Picture other;        // a second bitmap, made by prepare
  BitmapHandle made{};  // freed at the end
  Bytes buffer;
  void* block = nullptr;  // for the row's own use, as are the next three
  uint64_t handle = 0;
  std::wstring source;
  std::wstring target;

 private:
  std::vector<std::function<void()>> later_;
};

/// What may differ after a failure. Everything else is as before.
enum Leaves : uint32_t {
  kNothing = 0,
  kSubjectRows = 1,   // each bit of the subject's pixels is the old one or the new one
  kOtherRows = 2,     // the same of the second bitmap
  kNoPalette = 4,     // the subject's palette is gone
  kFewerViews = 8,    // views that were mapped are not
  kPartialFile = 16,  // a file that the caller named
  kUnpacked = 32      // compressed rows may have become uncompressed ones on the way
};

struct Operation {
  const char* name = nullptr;
  uint32_t kinds = 0;
  uint64_t depths = kAllDepths;
  std::vector<int64_t> failures{};
  uint32_t leaves = kNothing;
  int64_t wanted = SUCCESS;      // the result of success; kByteCount: the size of `buffer`
  bool shortCounts = false;      // fewer bytes than asked for are a documented failure
  bool endsAtNothing = false;    // a read that gives nothing is the end of the file
  bool dependsOnKind = false;    // what it gives is not the same for every storage kind
  bool dependsOnSystem = false;  // or on every system
  bool alone = false;            // what all threads share is used to prepare it
  std::function<void(Work&)> prepare{};
  std::function<int64_t(Work&)> call{};
  std::function<void(Work&)> finish{};
  /// What else is wrong after a failure.
  std::function<std::string(Work&)> afterFailure{};

  static constexpr int64_t kByteCount = INT64_MIN;
  int64_t Wanted(const Work& work) const {
    return wanted == kByteCount ? static_cast<int64_t>(work.buffer.size()) : wanted;
  }
  bool Succeeded(const Work& work, int64_t status) const { return status == Wanted(work); }
  bool Suits(Kind kind, const Shape& shape) const {
    return (depths & DepthBit(shape.bits)) && (kinds ? (kinds & Bit(kind)) && shape.Suits(kind) : kind == Kind::kBlock);
  }
};

/// The whole table.
const std::vector<Operation>& Operations();
/// Its parts.
void AddStorageOperations(std::vector<Operation>& table);
void AddRowOperations(std::vector<Operation>& table);
void AddCopyOperations(std::vector<Operation>& table);
void AddDibOperations(std::vector<Operation>& table);
void AddPixelOperations(std::vector<Operation>& table);
void AddCombineOperations(std::vector<Operation>& table);
void AddColorOperations(std::vector<Operation>& table);
void AddGeometryOperations(std::vector<Operation>& table);
void AddScaleOperations(std::vector<Operation>& table);
void AddOverlayOperations(std::vector<Operation>& table);
void AddMemoryOperations(std::vector<Operation>& table);
void AddFileOperations(std::vector<Operation>& table);

/// Everything about a bitmap that does not depend on where its pixels are: fields, palette, lookup table, gray
/// parameters, pixels. Empty for a record that describes nothing.
std::string Contents(const BitmapHandle& record, Bytes& contents);

}  // namespace tarn::engine
