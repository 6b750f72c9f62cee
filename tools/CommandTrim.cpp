// tarn trim: a picture without its borders of one colour.

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "Colours.h"
#include "Command.h"
#include "View.h"

namespace tarn::tool {
namespace {

/// Rows of a bitmap as samples: blue, green, red and opacity, bytes or, of deep pictures, 16-bit words.
template <class Sample>
class Borders {
 public:
  Borders(Bitmap& bitmap, int tolerance, const std::string& file)
      : bitmap_(bitmap),
        file_(file),
        converter_(LayoutOf(bitmap.Handle()), {static_cast<int32_t>(32 * sizeof(Sample)), T_ORDER_BGR, {}},
                   bitmap.Handle().Width),
        tolerance_(tolerance * kStep) {}

  void TakeColour(const T_PaletteEntry& colour) {
    const uint8_t samples[4] = {colour.Blue, colour.Green, colour.Red, 255};
    std::transform(samples, samples + 4, border_, [](uint8_t sample) { return static_cast<Sample>(sample * kStep); });
  }
  void TakeColourAt(int32_t row, int32_t column) {
    std::memcpy(border_, Row(row) + 4 * size_t(column), sizeof border_);
  }

  /// The smallest rectangle with all pixels of another colour; of no width when there is none.
  Area Inside() {
    const int32_t width = bitmap_.Handle().Width, height = bitmap_.Handle().Height;
    int32_t left = width, right = 0, top = height, bottom = 0;
    for (int32_t row = 0; row < height; ++row) {
      const Sample* const line = Row(row);
      int32_t first = 0, last = width;
      while (first < width && IsBorder(line + 4 * int64_t{first})) ++first;
      if (first == width) continue;
      while (last > right && IsBorder(line + 4 * (int64_t{last} - 1))) --last;
      left = std::min(left, first);
      right = std::max(right, last);
      top = std::min(top, row);
      bottom = row + 1;
    }
    return {left, top, std::max<int64_t>(right - left, 0), std::max<int64_t>(bottom - top, 0)};
  }

 private:
  static constexpr int kStep = sizeof(Sample) == 1 ? 1 : 257;  // of 8 bits

  const Sample* Row(int32_t row) {
    bitmap_.GetRow(row, converter_.Line());
    converter_.Convert(file_);
    return reinterpret_cast<const Sample*>(converter_.Line());
  }
  bool IsBorder(const Sample* pixel) const {
    for (int i = 0; i < 4; ++i) {
      if (std::abs(int{pixel[i]} - int{border_[i]}) > tolerance_) return false;
    }
    return true;
  }

  Bitmap& bitmap_;
  const std::string& file_;
  RowConverter converter_;
  Sample border_[4] = {};
  int tolerance_;
};

class TrimCommand final : public PictureCommand {
 public:
  const char* Name() const override { return "trim"; }
  const char* Help() const override { return "cut off borders of one colour"; }

  void AddOwnOptions(Options& options) override {
    options.Number("--tolerance", tolerance_, 0, 255, "steps of 8 bits by which a border's samples may differ, else 0");
    options.Text("--color", colour_, "COLOUR", "of the border, #rrggbb; else that of the pixel seen at the upper left");
  }
  void CheckOwnOptions() const override {
    T_PaletteEntry colour{};
    if (!colour_.empty() && !ParseColour(colour_, colour)) {
      throw Failure(Exit::kUsage, "", "'" + colour_ + "' is not a colour; write #rrggbb");
    }
  }

  Shape Plan(const Shape& before) override {
    Shape after = before;
    after.width = after.height = 0;  // pixels tell
    return after;
  }

 protected:
  void Apply(std::unique_ptr<Bitmap>& bitmap, Console& console) override {
    const Layout layout = LayoutOf(bitmap->Handle());
    const bool deep = layout.bits > 32 || (layout.order == T_ORDER_GRAY && layout.bits > 8);
    const Area inside = deep ? Inside<uint16_t>(*bitmap) : Inside<uint8_t>(*bitmap);
    if (inside.width == 0) {
      console.Note(Input(), "is all border and stays as it is");
      return;
    }
    const auto at = [](int64_t value) { return static_cast<int32_t>(value); };
    const LibraryProgress progress(console, Input(), "trimming");
    Require(T_TrimBitmap(&bitmap->Handle(), at(inside.left), at(inside.top), at(inside.width), at(inside.height)),
            "trimming it");
    console.Note(Input(),
                 "is trimmed to " + std::to_string(inside.width) + " x " + std::to_string(inside.height) + " pixels");
  }

 private:
  template <class Sample>
  Area Inside(Bitmap& bitmap) const {
    const BitmapHandle& handle = bitmap.Handle();
    Borders<Sample> borders(bitmap, tolerance_, Input());
    T_PaletteEntry colour{};
    if (ParseColour(colour_, colour)) {
      borders.TakeColour(colour);
    } else {
      const Area corner = StoredArea({0, 0, 1, 1}, handle.ViewPerspective, handle.Width, handle.Height);
      borders.TakeColourAt(static_cast<int32_t>(corner.top), static_cast<int32_t>(corner.left));
    }
    return borders.Inside();
  }

  int tolerance_ = 0;
  std::string colour_;
};

}  // namespace

std::unique_ptr<Command> MakeTrim() { return std::make_unique<TrimCommand>(); }

}  // namespace tarn::tool
