#pragma once
// How operations reach pixels: lock the bitmap, read and write whole rows (in place where the storage is memory), build
// a result aside and commit it, report progress.

#include <cstdint>

#include "Common/Internal/Status.h"
#include "Common/Internal/TrackedBuffer.h"
#include "tarn/bitmap.h"
#include "tarn/copy.h"
#include "tarn/rows.h"
#include "tarn/settings.h"

namespace tarn {

/// Locks a bitmap for a scope and restores the lock state it found.
class BitmapLock {
 public:
  explicit BitmapLock(BitmapHandle& bitmap) noexcept : bitmap_(bitmap), before_(T_LockBitmap(&bitmap)) {}
  ~BitmapLock() { T_UnlockBitmap(&bitmap_, before_); }
  BitmapLock(const BitmapLock&) = delete;
  BitmapLock& operator=(const BitmapLock&) = delete;

 private:
  BitmapHandle& bitmap_;
  int32_t before_;
};

/// Switches the thread's progress callbacks off for nested operations and restores them.
class QuietCallback {
 public:
  QuietCallback() noexcept {
    T_SetStatusCallBack(nullptr, nullptr, &status_, &statusData_);
    T_SetCopyStatusCallBack(nullptr, nullptr, &copy_, &copyData_);
  }
  ~QuietCallback() {
    T_SetStatusCallBack(status_, statusData_, nullptr, nullptr);
    T_SetCopyStatusCallBack(copy_, copyData_, nullptr, nullptr);
  }
  QuietCallback(const QuietCallback&) = delete;
  QuietCallback& operator=(const QuietCallback&) = delete;

 private:
  T_StatusCallback status_ = nullptr;
  T_StatusCallback copy_ = nullptr;
  void* statusData_ = nullptr;
  void* copyData_ = nullptr;
};

/// Percentages of a run over `rows` rows: floor(100 * rows done / rows), told when the value changed. The callback's
/// own result comes back when it is not SUCCESS.
class Progress {
 public:
  /// The calling thread's status callback.
  explicit Progress(int32_t rows) noexcept : rows_(rows) { callback_ = T_GetStatusCallBack(&userData_); }
  /// Another callback, such as the copy-status one.
  Progress(int32_t rows, T_StatusCallback callback, void* userData) noexcept
      : callback_(callback), userData_(userData), rows_(rows) {}

  /// Tells 0 percent, before the first row.
  Status Start() noexcept { return callback_ ? Status(callback_(0, userData_)) : Status(SUCCESS); }

  /// One row is done.
  Status Step() noexcept {
    if (!callback_) return SUCCESS;
    percent_ += 100 / rows_;
    remainder_ += 100 % rows_;
    const bool carried = remainder_ >= rows_;
    if (carried) {
      remainder_ -= rows_;
      ++percent_;
    }
    return carried || rows_ <= 100 ? Status(callback_(percent_, userData_)) : Status(SUCCESS);
  }

 private:
  T_StatusCallback callback_ = nullptr;
  void* userData_ = nullptr;
  int32_t rows_;
  int32_t percent_ = 0;
  int64_t remainder_ = 0;
};

/// Address of a row of a locked bitmap that lies in memory for as long as the storage does; null when rows must be
/// moved.
uint8_t* DirectRow(BitmapHandle& bitmap, int32_t row) noexcept;
/// First row of a bitmap whose rows lie behind each other in memory; null for any other.
uint8_t* BlockOf(BitmapHandle& bitmap) noexcept;
/// Every row has an address.
bool LiesInMemory(BitmapHandle& bitmap) noexcept;

/// A result in the making: the caller's record is untouched until Commit.
class ScratchBitmap {
 public:
  ScratchBitmap() noexcept = default;
  ScratchBitmap(const ScratchBitmap&) = delete;
  ScratchBitmap& operator=(const ScratchBitmap&) = delete;
  ~ScratchBitmap() {
    if (live_) T_FreeDuplicateBitmap(&record_, DUP_STORAGE);
  }
  /// Storage of like's kind for new dimensions; palette, region and overlays stay like's own.
  Status Create(const BitmapHandle& like, int32_t width, int32_t height, int32_t bits) noexcept {
    const Status made = T_DupBitmapNewDim(&record_, &like, sizeof record_, width, height, bits, DUP_STORAGE);
    live_ = made.Ok();
    return made;
  }
  BitmapHandle& Record() noexcept { return record_; }
  /// Frees target's storage and moves the result into its record; the active dithering run stays target's.
  void Commit(BitmapHandle& target) noexcept {
    void* const dithering = target.DitherContext;
    T_FreeDuplicateBitmap(&target, DUP_STORAGE);
    target = record_;
    target.DitherContext = dithering;
    live_ = false;
  }

 private:
  BitmapHandle record_{};
  bool live_ = false;
};

/// Reads whole rows of a locked bitmap. Rows in memory are handed out in place.
class RowReader {
 public:
  RowReader(BitmapHandle& bitmap, Here here) noexcept : bitmap_(bitmap), here_(here) {}
  /// Makes the line buffer if rows have to be moved.
  Status Open() noexcept;
  /// BytesPerLine readable bytes, valid until the next call; null when the storage failed (see status()). When the
  /// bitmap is written through a RowWriter meanwhile, rows in memory show it.
  const uint8_t* Row(int32_t row) noexcept { return Part(row, 0, bitmap_.BytesPerLine); }
  /// The same for `bytes` bytes from byte `offset` of the row on, which are all that is moved.
  const uint8_t* Part(int32_t row, uint64_t offset, uint64_t bytes) noexcept;
  /// Asks the memory for a row that is read soon, where rows lie in one block. Processors do that themselves while rows
  /// are read one behind the other, but not for rows in other orders or far apart.
  void Ask(int32_t row) const noexcept;
  /// Rows stay valid beside each other.
  [[nodiscard]] bool InOneBlock() const noexcept { return base_ != nullptr; }
  [[nodiscard]] Status status() const noexcept { return status_; }

 private:
  BitmapHandle& bitmap_;
  Here here_;
  const uint8_t* base_ = nullptr;  // first row of storage in one block
  TrackedBuffer<uint8_t> line_;
  Status status_ = SUCCESS;
};

/// Writes whole rows of a locked bitmap.
class RowWriter {
 public:
  RowWriter(BitmapHandle& bitmap, Here here) noexcept : bitmap_(bitmap), here_(here) {}
  Status Open() noexcept;
  /// BytesPerLine bytes to fill, all of them, padding included; then call Commit. Never null after Open succeeded.
  uint8_t* Row(int32_t row) noexcept;
  /// Stores the row that Row gave.
  Status Commit() noexcept;
  /// Several rows may be filled at once, and Commit has nothing to do.
  [[nodiscard]] bool InOneBlock() const noexcept { return base_ != nullptr; }

 private:
  BitmapHandle& bitmap_;
  Here here_;
  uint8_t* base_ = nullptr;
  TrackedBuffer<uint8_t> line_;
  int32_t row_ = 0;
  bool direct_ = false;
};

}  // namespace tarn
