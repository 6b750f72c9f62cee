// tarn crop: a rectangle of a picture.

#include "Command.h"
#include "View.h"

namespace tarn::tool {
namespace {

class CropCommand final : public PictureCommand {
 public:
  const char* Name() const override { return "crop"; }
  const char* Help() const override { return "write a rectangle of a picture"; }

 protected:
  void AddOwnOptions(Options& options) override {
    options.Argument("area", text_, "X,Y,WxH",
                     "the rectangle as the picture is seen; it may reach beyond the picture, where pixels are zero");
  }
  void CheckOwnOptions() const override { ParseArea(text_); }

  Shape Plan(const Shape& before) override {
    seen_ = ParseArea(text_);
    const bool swap = SidesSwap(before.orientation);
    Shape after = before;
    after.width = static_cast<int32_t>(swap ? seen_.height : seen_.width);
    after.height = static_cast<int32_t>(swap ? seen_.width : seen_.height);
    return after;
  }

  void Apply(std::unique_ptr<Bitmap>& bitmap, Console& console) override {
    BitmapHandle& source = bitmap->Handle();
    const Area area = StoredArea(seen_, source.ViewPerspective, source.Width, source.Height);
    const int32_t left = Coordinate(area.left, Input(), "the rectangle"),
                  top = Coordinate(area.top, Input(), "the rectangle");
    const auto width = static_cast<int32_t>(area.width), height = static_cast<int32_t>(area.height);
    if (left >= source.Width || top >= source.Height || area.left + width <= 0 || area.top + height <= 0) {
      console.Note(Input(), "the rectangle lies beside the picture");
    }
    const LibraryProgress progress(console, Input(), "cropping");
    bitmap = std::make_unique<Bitmap>(
        [&](BitmapHandle* made, uint32_t memoryType) {
          return T_CopyBitmapRect2(made, &source, sizeof *made, left, top, width, height, memoryType);
        },
        Storage(source.BitsPerPixel), Input(),
        "a rectangle of " + std::to_string(width) + " x " + std::to_string(height) + " pixels");
  }

 private:
  std::string text_;
  Area seen_;
};

}  // namespace

std::unique_ptr<Command> MakeCrop() { return std::make_unique<CropCommand>(); }

}  // namespace tarn::tool
