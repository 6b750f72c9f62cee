// The angle at which the projection of a page on its side is sharpest: level lines of text give rows full of ink and
// rows without, lines that slope smear them. The measure is the sum of squared differences of neighbouring rows of the
// projection (W. Postl, Detection of linear oblique structures and skew scan in digitized documents, 1986).
//
// Ink is counted once, in blocks as wide as needed for a few hundred in a row; a slope moves columns of blocks up and
// down against each other by whole rows. The threshold between paper and ink is Otsu's (1979).

#include "Skew.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <limits>
#include <vector>

#include "Layout.h"
#include "Picture.h"

namespace tarn::tool {
namespace {

constexpr int32_t kMostBlocks = 512;  // a row; at 10 degrees one is not higher than a line of small print
constexpr int32_t kMostRows = 8192;   // of larger pages some are counted together
constexpr double kPi = 3.14159265358979323846;

/// Ink of a page in blocks, one column of blocks after another.
class InkCounts {
 public:
  InkCounts(int32_t width, int32_t height)
      : rowsEach_((height + kMostRows - 1) / kMostRows),
        rows_((height + rowsEach_ - 1) / rowsEach_),
        bytesEach_((width + 8 * kMostBlocks - 1) / (8 * kMostBlocks)),
        blocks_((width + 8 * bytesEach_ - 1) / (8 * bytesEach_)),
        counts_(static_cast<size_t>(rows_) * static_cast<size_t>(blocks_)) {}

  /// @param line a bit a pixel, 1 is ink; bits behind the last pixel are 0
  void Add(int32_t row, const uint8_t* line, int32_t bytes) {
    for (int32_t block = 0; block < blocks_; ++block) {
      const int32_t end = std::min((block + 1) * bytesEach_, bytes);
      int32_t ink = 0;
      for (int32_t at = block * bytesEach_; at < end; ++at) ink += std::popcount(line[at]);
      counts_[static_cast<size_t>(block) * static_cast<size_t>(rows_) + static_cast<size_t>(row / rowsEach_)] += ink;
    }
  }

  /// The page's projection along lines that fall by `slope` rows a column, and how sharp it is.
  double Sharpness(double slope) {
    const double rowsABlock = slope * 8 * bytesEach_ / rowsEach_;
    const auto most = static_cast<int32_t>(std::ceil(std::fabs(rowsABlock) * blocks_)) + 1;
    projection_.assign(static_cast<size_t>(rows_) + 2 * static_cast<size_t>(most), 0);
    for (int32_t block = 0; block < blocks_; ++block) {
      const auto down = static_cast<int32_t>(std::floor(rowsABlock * block + 0.5));
      const int32_t* const column = counts_.data() + static_cast<size_t>(block) * static_cast<size_t>(rows_);
      int32_t* const target = projection_.data() + (most - down);
      for (int32_t row = 0; row < rows_; ++row) target[row] += column[row];
    }
    double sum = 0;
    for (size_t i = 1; i < projection_.size(); ++i) {
      const double step = projection_[i] - projection_[i - 1];
      sum += step * step;
    }
    return sum;
  }

 private:
  int32_t rowsEach_;   // rows of the page counted together
  int32_t rows_;       // of blocks
  int32_t bytesEach_;  // of the page's row in a block
  int32_t blocks_;     // a row
  std::vector<int32_t> counts_;
  std::vector<int32_t> projection_;
};

/// The best of the angles from first to last, in hundredths of a degree; of equals the one closest to level.
int32_t Sharpest(InkCounts& counts, int32_t first, int32_t last, int32_t step) {
  int32_t best = 0;
  double most = -1;
  for (int32_t angle = std::max(first, -kMostSkew); angle <= std::min(last, kMostSkew); angle += step) {
    const double sharpness = counts.Sharpness(std::tan(angle * kPi / 18000));
    if (sharpness > most || (sharpness == most && std::abs(angle) < std::abs(best))) {
      most = sharpness;
      best = angle;
    }
  }
  return best;
}

/// The level that parts dark from light best: the variance between the two sides is greatest (Otsu).
int Threshold(const std::array<int64_t, 256>& histogram) {
  double all = 0, total = 0;
  for (int level = 0; level < 256; ++level) {
    all += static_cast<double>(histogram[static_cast<size_t>(level)]);
    total += static_cast<double>(histogram[static_cast<size_t>(level)]) * level;
  }
  double below = 0, sum = 0, most = -1;
  int best = 128;
  for (int level = 0; level < 255; ++level) {
    below += static_cast<double>(histogram[static_cast<size_t>(level)]);
    sum += static_cast<double>(histogram[static_cast<size_t>(level)]) * level;
    const double above = all - below;
    if (below == 0 || above == 0) continue;
    const double apart = sum / below - (total - sum) / above;
    if (below * above * apart * apart > most) {
      most = below * above * apart * apart;
      best = level + 1;
    }
  }
  return best;
}

/// Rows of a page as bits; 0 is what most pixels are, so that white print on black counts as ink too.
class InkRows {
 public:
  InkRows(Bitmap& bitmap, const std::string& file)
      : bitmap_(bitmap),
        file_(file),
        width_(bitmap.Handle().Width),
        grays_(bitmap.Handle().BitsPerPixel > 1),
        converter_(LayoutOf(bitmap.Handle()), grays_ ? GrayLayout(8) : LayoutOf(bitmap.Handle()), width_),
        bits_((static_cast<size_t>(width_) + 7) / 8) {
    const int32_t height = bitmap.Handle().Height;
    int64_t ones = 0;
    if (grays_) {
      std::array<int64_t, 256> histogram{};
      for (int32_t row = 0; row < height; ++row) {
        const uint8_t* const line = Line(row);
        for (int32_t x = 0; x < width_; ++x) ++histogram[line[x]];
      }
      threshold_ = Threshold(histogram);
      for (int level = 0; level < threshold_; ++level) ones += histogram[static_cast<size_t>(level)];
    } else {
      for (int32_t row = 0; row < height; ++row) {
        Row(row);
        for (const uint8_t byte : bits_) ones += std::popcount(byte);
      }
    }
    inverts_ = ones > int64_t{width_} * height / 2;
  }

  const std::vector<uint8_t>& Row(int32_t row) {
    const uint8_t* const line = Line(row);
    if (grays_) {
      std::fill(bits_.begin(), bits_.end(), uint8_t{0});
      for (int32_t x = 0; x < width_; ++x) {
        bits_[static_cast<size_t>(x) / 8] |= static_cast<uint8_t>((line[x] < threshold_ ? 0x80 : 0) >> (x % 8));
      }
    } else {
      std::copy(line, line + bits_.size(), bits_.begin());
    }
    if (inverts_) {
      for (uint8_t& byte : bits_) byte = static_cast<uint8_t>(~byte);
    }
    if (width_ % 8 != 0) bits_.back() &= static_cast<uint8_t>(0xFF00 >> (width_ % 8));
    return bits_;
  }

 private:
  const uint8_t* Line(int32_t row) {
    bitmap_.GetRow(row, converter_.Line());
    if (grays_) converter_.Convert(file_);
    return converter_.Line();
  }

  Bitmap& bitmap_;
  const std::string& file_;
  int32_t width_;
  bool grays_;  // more than paper and ink
  bool inverts_ = false;
  int threshold_ = 128;  // darker ones are ink
  RowConverter converter_;
  std::vector<uint8_t> bits_;
};

}  // namespace

int32_t SkewOf(Bitmap& bitmap, const std::string& file) {
  const int32_t width = bitmap.Handle().Width, height = bitmap.Handle().Height;
  InkRows rows(bitmap, file);
  InkCounts counts(width, height);
  for (int32_t row = 0; row < height; ++row) {
    const std::vector<uint8_t>& line = rows.Row(row);
    counts.Add(row, line.data(), static_cast<int32_t>(line.size()));
  }
  // Lines of print across a page stay apart for about a third of a degree either way, so that steps of a tenth find
  // the peak; small ones then find its top.
  const int32_t near = Sharpest(counts, -kMostSkew, kMostSkew, 10);
  return Sharpest(counts, near - 15, near + 15, 1);
}

}  // namespace tarn::tool
