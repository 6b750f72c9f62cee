// tarn fill: a colour over a picture or a rectangle of it.

#include <algorithm>

#include "Colours.h"
#include "Command.h"
#include "View.h"

namespace tarn::tool {
namespace {

class FillCommand final : public PictureCommand {
 public:
  const char* Name() const override { return "fill"; }
  const char* Help() const override { return "fill a picture, or a rectangle of it, with a colour"; }

  void AddOwnOptions(Options& options) override {
    options.Argument("colour", colour_, "COLOUR", "#rrggbb, or gray:N of 0 to 65535");
    options.Text("--area", text_, "X,Y,WxH", "the rectangle as the picture is seen, instead of all of it");
  }
  void CheckOwnOptions() const override {
    uint32_t colour = 0;
    if (!ParseColourValue(colour_, colour)) {
      throw Failure(Exit::kUsage, "", "'" + colour_ + "' is not a colour; write #rrggbb or gray:N");
    }
    if (!text_.empty()) ParseArea(text_);
  }
  Shape Plan(const Shape& before) override { return before; }

 protected:
  void Apply(std::unique_ptr<Bitmap>& bitmap, Console& console) override {
    BitmapHandle& target = bitmap->Handle();
    Area area{0, 0, target.Width, target.Height};
    if (!text_.empty()) {
      area = StoredArea(ParseArea(text_), target.ViewPerspective, target.Width, target.Height);
      // What lies outside is not made.
      const int64_t right = std::min<int64_t>(area.left + area.width, target.Width);
      const int64_t bottom = std::min<int64_t>(area.top + area.height, target.Height);
      area.left = std::max<int64_t>(area.left, 0);
      area.top = std::max<int64_t>(area.top, 0);
      area.width = right - area.left;
      area.height = bottom - area.top;
    }
    if (area.width <= 0 || area.height <= 0) return console.Note(Input(), "the rectangle lies beside the picture");
    const auto left = static_cast<int32_t>(area.left), top = static_cast<int32_t>(area.top);
    const auto width = static_cast<int32_t>(area.width), height = static_cast<int32_t>(area.height);
    Bitmap patch(
        [&](BitmapHandle* made, uint32_t memoryType) {
          return T_CopyBitmapRect2(made, &target, sizeof *made, left, top, width, height, memoryType);
        },
        Storage(target.BitsPerPixel), Input(),
        "a rectangle of " + std::to_string(width) + " x " + std::to_string(height) + " pixels");
    uint32_t colour = 0;
    ParseColourValue(colour_, colour);
    Require(T_FillBitmap(&patch.Handle(), colour), "filling");
    if (LayoutOf(target).Opacity()) MakeOpaque(patch);
    const LibraryProgress progress(console, Input(), "filling");
    Require(T_CombineBitmapKrn(&target, left, top, &patch.Handle(), 0, 0, width, height, T_COMBINE_COPY), "filling");
  }

 private:
  static void MakeOpaque(Bitmap& patch) {
    std::vector<uint8_t> line(patch.BytesPerLine());
    for (int32_t row = 0; row < patch.Handle().Height; ++row) {
      patch.GetRow(row, line.data());
      T_SetRowAlphaValues(patch.Handle().BitsPerPixel, line.data(), line.size(), 0xFFFF);
      patch.PutRow(row, line.data());
    }
  }

  std::string colour_;
  std::string text_;
};

}  // namespace

std::unique_ptr<Command> MakeFill() { return std::make_unique<FillCommand>(); }

}  // namespace tarn::tool
