// tarn resize: a picture in another size.

#include <algorithm>
#include <cmath>

#include "Command.h"
#include "View.h"

namespace tarn::tool {
namespace {

class ResizeCommand final : public PictureCommand {
 public:
  const char* Name() const override { return "resize"; }
  const char* Help() const override { return "write a picture in another size"; }

  void AddOwnOptions(Options& options) override {
    options.Argument("size", text_, "SIZE",
                     "as the picture is seen: 800x600, 800x or x600 with the other side in proportion, or 50%");
    options.Choice<int>(
        "--method", method_,
        {{"nearest", RESIZE_NEAREST}, {"ink", RESIZE_INK_COUNT}, {"area", RESIZE_AREA}, {"smooth", RESIZE_SMOOTH}},
        "METHOD",
        "nearest; ink, of 1-bit black and white: ink stays ink; area: averaged, linear where it grows; "
        "smooth: averaged, a curve where it grows; ink for black and white, else smooth");
  }
  void CheckOwnOptions() const override {
    NewSize size;
    if (!ParseNewSize(text_, size)) {
      throw Failure(Exit::kUsage, "", "'" + text_ + "' is not a size; write 800x600, 800x, x600 or 50%");
    }
  }

  Shape Plan(const Shape& before) override {
    const bool blackAndWhite = before.layout.bits == 1 && before.layout.Gray();
    if (method_ == RESIZE_INK_COUNT && !blackAndWhite) {
      throw Failure(Exit::kUsage, Input(),
                    "is " + NameOf(before.layout) + "; --method ink is for 1-bit black and white");
    }
    flags_ = static_cast<uint32_t>(method_ != kByDepth ? method_ : blackAndWhite ? RESIZE_INK_COUNT : RESIZE_SMOOTH);
    Shape after = before;
    if (before.width > 0) SizesOf(before.width, before.height, before.orientation, after.width, after.height);
    return after;
  }

 protected:
  void Apply(std::unique_ptr<Bitmap>& bitmap, Console& console) override {
    BitmapHandle& handle = bitmap->Handle();
    int32_t width = 0, height = 0;
    SizesOf(handle.Width, handle.Height, handle.ViewPerspective, width, height);
    const LibraryProgress progress(console, Input(), "resizing");
    Require(T_SizeBitmap(&handle, width, height, flags_), "resizing it");
    console.Note(Input(), "is resized to " + std::to_string(width) + " x " + std::to_string(height) + " pixels");
  }

 private:
  static constexpr int kByDepth = -1;

  /// The new sides as they are stored.
  void SizesOf(int32_t oldWidth, int32_t oldHeight, uint32_t orientation, int32_t& width, int32_t& height) const {
    NewSize size;
    ParseNewSize(text_, size);
    if (SidesSwap(orientation)) std::swap(size.width, size.height);
    const auto scaled = [&](int32_t side, double factor) {
      const double made = std::max(1.0, std::floor(side * factor + 0.5));
      if (made > kMaxSide) throw Failure(Exit::kUsage, Input(), "a side of more than 2147483647 pixels cannot be had");
      return static_cast<int32_t>(made);
    };
    if (size.percent > 0) {
      width = scaled(oldWidth, size.percent / 100);
      height = scaled(oldHeight, size.percent / 100);
    } else {
      width = size.width > 0 ? size.width : scaled(oldWidth, static_cast<double>(size.height) / oldHeight);
      height = size.height > 0 ? size.height : scaled(oldHeight, static_cast<double>(size.width) / oldWidth);
    }
  }

  static constexpr double kMaxSide = 2147483647;

  std::string text_;
  int method_ = kByDepth;
  uint32_t flags_ = 0;
};

}  // namespace

std::unique_ptr<Command> MakeResize() { return std::make_unique<ResizeCommand>(); }

}  // namespace tarn::tool
