// One-bit pictures made smaller without losing thin lines: a pixel is ink when enough of what it covers is.

#include <cstring>

#include "Common/Internal/Scaling.h"
#include "Kernels/Kernels.h"
#include "tarn/palette.h"
#include "tarn/resize.h"

namespace tarn {
namespace {

/// Newton's steps from n / 2 until two approximations are at most one apart.
int64_t SquareRoot(int64_t n) noexcept {
  if (n < 1) return 0;
  if (n < 4) return 1;
  int64_t x = n / 2;
  for (;;) {
    const int64_t q = n / x;
    const int64_t half = (x > q ? x - q : q - x) / 2;
    x = (x < q ? x : q) + half;
    if (half == 0) return x;
  }
}

int64_t Threshold(int64_t cellWidth, int64_t cellHeight) noexcept {
  const int64_t root = SquareRoot(cellWidth * cellHeight);
  if (root >= 5) return root;
  return root > 2 ? root - 1 : 1;
}

int64_t CellStart(int64_t i, int32_t from, int32_t to) noexcept { return i * from / to; }

/// Displayed rows: those of a bitmap whose first stored row is the lowest count from its end.
class InkRows {
 public:
  InkRows(BitmapHandle& source, const BitmapHandle& target) noexcept
      : reader_(source, TARN_HERE),
        lineBytes_(source.BytesPerLine),
        fromWidth_(source.Width),
        fromHeight_(source.Height),
        width_(target.Width),
        height_(target.Height),
        upwards_(source.ViewPerspective == 4),
        inkIsOne_(T_IsGrayScaleBitmap(&source) == 2) {
    const auto extent = [](int32_t from, int32_t to) { return from / to > 1 ? from / to : 1; };
    threshold_ = Threshold(extent(fromWidth_, width_), extent(fromHeight_, height_));
  }

  Status Open(Here here) noexcept {
    TARN_TRY(reader_.Open());
    const auto count = static_cast<uint64_t>(width_);
    columns_ = Columns();
    if (columns_) {
      if (!reader_.InOneBlock()) {
        copies_ = TrackedBuffer<uint8_t>(kMostInkLines * UsedBytes(), here);
        if (!copies_) return ERR_NO_MEMORY;
      }
      edge_[0] = static_cast<uint32_t>(CellStart(width_ - 1, fromWidth_, width_));
      edge_[1] = static_cast<uint32_t>(fromWidth_);
      return SUCCESS;
    }
    starts_ = TrackedBuffer<uint32_t>(count + 1, here);
    counters_ = TrackedBuffer<uint32_t>(count, here);
    ink_ = TrackedBuffer<uint8_t>(count, here);
    if (!starts_ || !counters_ || !ink_) return ERR_NO_MEMORY;
    for (int64_t i = 0; i <= width_; ++i)
      starts_[static_cast<uint64_t>(i)] = static_cast<uint32_t>(CellStart(i, fromWidth_, width_));
    return SUCCESS;
  }

  Status Make(uint8_t* target, uint64_t bytes, int32_t row) noexcept {
    const int64_t first = CellStart(row, fromHeight_, height_);
    if (first != counted_) {
      // A picture that grows has one row a cell.
      const int64_t end = CellStart(int64_t{row} + 1, fromHeight_, height_);
      TARN_TRY(Count(first, end > first ? end : first + 1));
      counted_ = first;
    }
    if (columns_) {
      MakeCells(target);
      const uint64_t made = (static_cast<uint64_t>(width_) + 7) / 8;
      std::memset(target + made, 0, bytes - made);
      return SUCCESS;
    }
    for (uint64_t i = 0; i < static_cast<uint64_t>(width_); ++i)
      ink_[i] = (counters_[i] >= threshold_) == inkIsOne_ ? 1 : 0;
    Kernels().pixels->packIndices(target, ink_.data(), width_, 1);
    const uint64_t used = (static_cast<uint64_t>(width_) + 7) / 8;
    std::memset(target + used, 0, bytes - used);
    return SUCCESS;
  }

 private:
  static constexpr int32_t kRowsAhead = 12;

  /// Cells of so many columns, the last one perhaps wider; 0 for those that are counted one by one.
  [[nodiscard]] int32_t Columns() const noexcept {
    constexpr int64_t kMostThreshold = 3;
    const int32_t columns = fromWidth_ / width_;
    const bool regular = CellStart(width_ - 1, fromWidth_, width_) == int64_t{columns} * (width_ - 1);
    const bool low = fromHeight_ / height_ < kMostInkLines;
    return columns >= 2 && columns <= 4 && regular && low && threshold_ <= kMostThreshold ? columns : 0;
  }
  [[nodiscard]] int32_t StoredRow(int64_t y) const noexcept {
    return static_cast<int32_t>(upwards_ ? fromHeight_ - 1 - y : y);
  }
  [[nodiscard]] uint64_t UsedBytes() const noexcept { return (static_cast<uint64_t>(fromWidth_) + 7) / 8; }
  [[nodiscard]] bool EdgeIsWider() const noexcept { return edge_[1] - edge_[0] != static_cast<uint32_t>(columns_); }

  /// Lines of which cells are made. Those that the reader moves are copied: it keeps one.
  Status TakeLines(int64_t first, int64_t end) noexcept {
    edgeInk_ = 0;
    lineCount_ = 0;
    for (int64_t y = first; y < end; ++y) {
      const uint8_t* line = reader_.Row(StoredRow(y));
      if (!line) return reader_.status();
      reader_.Ask(StoredRow(y + kRowsAhead));
      if (EdgeIsWider()) Kernels().scale->countInk(&edgeInk_, line, lineBytes_, edge_, 1, !inkIsOne_);
      if (copies_) {
        uint8_t* const copy = copies_.data() + static_cast<uint32_t>(lineCount_) * UsedBytes();
        std::memcpy(copy, line, UsedBytes());
        line = copy;
      }
      lines_[lineCount_++] = line;
    }
    return SUCCESS;
  }

  void MakeCells(uint8_t* target) noexcept {
    Kernels().scale->inkCells(target, {lines_, lineCount_, static_cast<int64_t>(UsedBytes()), width_, columns_,
                                       static_cast<int32_t>(threshold_), !inkIsOne_});
    uint8_t& last = target[(width_ - 1) / 8];
    if (EdgeIsWider()) {
      const auto bit = static_cast<uint8_t>(0x80 >> (width_ - 1) % 8);
      last = static_cast<uint8_t>((edgeInk_ >= threshold_) == inkIsOne_ ? last | bit : last & ~bit);
    }
    if (width_ % 8) last &= static_cast<uint8_t>(0xFF00 >> width_ % 8);
  }

  Status Count(int64_t first, int64_t end) noexcept {
    if (columns_) return TakeLines(first, end);
    std::memset(counters_.data(), 0, static_cast<uint64_t>(width_) * sizeof(uint32_t));
    for (int64_t y = first; y < end; ++y) {
      const uint8_t* const line = reader_.Row(StoredRow(y));
      if (!line) return reader_.status();
      if (width_ < fromWidth_) {
        Kernels().scale->countInk(counters_.data(), line, lineBytes_, starts_.data(), width_, !inkIsOne_);
        continue;
      }
      for (uint64_t i = 0; i < static_cast<uint64_t>(width_); ++i) {
        const uint32_t at = starts_[i];
        counters_[i] += (line[at / 8] >> (7 - at % 8) & 1) == (inkIsOne_ ? 1 : 0);
      }
    }
    return SUCCESS;
  }

  RowReader reader_;
  uint64_t lineBytes_;
  int32_t fromWidth_;
  int32_t fromHeight_;
  int32_t width_;
  int32_t height_;
  bool upwards_;
  bool inkIsOne_;
  int64_t threshold_ = 1;
  int64_t counted_ = -1;  // first row of what the counters hold
  int32_t columns_ = 0;   // of a cell where whole words of bits are counted
  const uint8_t* lines_[kMostInkLines] = {};
  int32_t lineCount_ = 0;
  TrackedBuffer<uint8_t> copies_;  // of lines that do not lie in memory
  uint32_t edge_[2] = {};          // the last cell
  uint32_t edgeInk_ = 0;
  TrackedBuffer<uint32_t> starts_;
  TrackedBuffer<uint32_t> counters_;
  TrackedBuffer<uint8_t> ink_;
};

}  // namespace

Status ScaleInk(BitmapHandle& target, BitmapHandle& source) noexcept {
  InkRows rows(source, target);
  TARN_TRY(rows.Open(TARN_HERE));
  return WriteRows(target, rows, target.ViewPerspective == 4);
}

}  // namespace tarn

int32_t T_SQRT(int32_t n) noexcept { return static_cast<int32_t>(tarn::SquareRoot(n)); }
