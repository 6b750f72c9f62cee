#pragma once
// One dithering run: lines of a bitmap's pixels to packed palette indices.

#include <cstdint>

#include "Common/Internal/ColorLines.h"
#include "Common/Internal/Nearest.h"
#include "Common/Internal/Status.h"
#include "Common/Internal/TrackedBuffer.h"
#include "Kernels/Kernels.h"
#include "tarn/types.h"

namespace tarn {

constexpr uint32_t kMatchKeys = 32768;

/// Bits of the smallest pixel that has room for `count` colours, at least 1.
constexpr uint32_t BitsFor(uint32_t count) noexcept {
  uint32_t bits = 1;
  while (1u << bits < count) ++bits;
  return bits;
}

struct DitherTarget {
  const T_PaletteEntry* palette;  // count entries, or null for the fixed table of the count
  uint32_t count;                 // 1..256
  uint32_t bits;                  // of output pixels
  uint32_t* matchTable;           // kMatchKeys entries to borrow, or null
  bool looked = true;             // its owner looks at it afterwards: only colours that occur are entered
};

/// Lives on the tracked heap and keeps errors from line to line: lines go in order, top to bottom.
class DitherRun {
 public:
  /// Null with a status: ERR_NO_MEMORY, ERR_INVALID_PARAMETER (format, count, bits, method), ERR_BAD_LUT_LENGTH.
  static DitherRun* Create(const BitmapHandle& source, uint32_t method, const DitherTarget& target,
                           Status& status) noexcept;
  static void Destroy(DitherRun* run) noexcept;  // null is ignored

  /// `line` is in the source's layout. Bits of the last output byte behind the last pixel stay.
  void Line(uint8_t* indices, const uint8_t* line) noexcept;
  /// Makes Lines as fast as it can be, before the first line; without it, or when it fails, lines go one by one. The
  /// results are the same.
  Status OpenGroups() noexcept;
  /// Lines below each other; the more the better.
  void Lines(uint8_t* const* indices, const uint8_t* const* lines, int count) noexcept;

  DitherRun(const DitherRun&) = delete;
  DitherRun& operator=(const DitherRun&) = delete;

 private:
  DitherRun() noexcept = default;
  ~DitherRun() { ReleaseTable(); }
  Status Open(const BitmapHandle& source, uint32_t method, const DitherTarget& target) noexcept;
  Status ChooseColors(const DitherTarget& target) noexcept;
  void UseFixed(uint32_t mode) noexcept;
  void MakeSteps() noexcept;
  Status UseCache(const T_PaletteEntry* palette, const DitherTarget& target) noexcept;
  void ReleaseTable() noexcept;
  static uint32_t Resolve(void* owner, uint32_t key) noexcept;
  Status MakeRows(int rows) noexcept;
  [[nodiscard]] int16_t* RowOf(uint32_t line) noexcept;
  void PutIndices(uint8_t* line, const uint8_t* indices, int64_t first, int64_t count) noexcept;
  void PlainLine(uint8_t* indices, const uint8_t* line) noexcept;
  void PrepareBlock(DitherBlock& block, const uint8_t* line, uint32_t number, int64_t first) noexcept;
  void DiffuseLines(uint8_t* const* indices, const uint8_t* const* lines, int count) noexcept;
  void Diffuse(const DitherBlock* blocks, int count) noexcept;
  Status OpenWave() noexcept;
  [[nodiscard]] uint32_t WordOf(uint32_t position) const noexcept;
  static void See(void* owner, uint32_t key) noexcept;
  [[nodiscard]] int WaveOf(int lines) const noexcept;
  void FillAbove(int64_t step, int64_t count) noexcept;
  void TakeBelow() noexcept;
  void TurnBlock(uint8_t* indices, const uint8_t* line, int number, int64_t first) noexcept;
  void WaveLines(uint8_t* const* indices, const uint8_t* const* lines, int count) noexcept;

  void* raw_ = nullptr;  // the block this object lies in
  ColorLines source_;
  int64_t width_ = 0;
  uint32_t lineNumber_ = 0;
  uint32_t method_ = 0;
  uint32_t bits_ = 0;
  uint32_t mode_ = 0;
  bool gray_ = false;      // one channel is enough
  uint32_t grayBits_ = 0;  // of the ramp that the target is then
  const KernelTable* kernels_ = nullptr;
  DitherKernel kernel_{};
  DitherColors colors_{};
  int16_t positions_[256][4];  // colours of positions
  uint8_t indices_[256];       // target indices of positions
  T_PaletteEntry usable_[256];
  uint32_t usableCount_ = 0;
  uint32_t* table_ = nullptr;  // kMatchKeys entries of position + 1, 0 not known; modes 0 and 1
  bool ownsTable_ = false;
  alignas(64) uint8_t cache_[kMatchKeys];  // the table in bytes, or the steps of a fixed mode
  alignas(NearestSearch) uint8_t search_[sizeof(NearestSearch)];
  TrackedBuffer<int16_t> errors_;
  int rows_ = 0;        // of errors_
  int64_t stride_ = 0;  // lanes of a row of errors_
  TrackedBuffer<uint8_t> room_;
  DitherWave* wave_ = nullptr;  // in room_; null: no waves
  TrackedBuffer<uint32_t> words_;
};

}  // namespace tarn
