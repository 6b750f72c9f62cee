// tarn pixel: the colour of a pixel, or a pixel of another colour.

#include <cstdio>

#include "Colours.h"
#include "Command.h"
#include "View.h"

namespace tarn::tool {
namespace {

class PixelCommand final : public Command {
 public:
  const char* Name() const override { return "pixel"; }
  const char* Help() const override { return "tell the colour of a pixel, or give it another one"; }

  void AddOptions(Options& options) override {
    options.Argument("file", way_.input, "FILE", kInputHelp);
    options.Argument("place", place_, "X,Y", "column and row, counted from 0 at the upper left as the picture is seen");
    options.OptionalArgument("out", way_.output, "OUT",
                             "with --set: file to write, .png, .jpg, .tif or .bmp; - is standard output");
    options.Text("--set", colour_, "COLOUR", "the new colour: #rrggbb, or gray:N of 0 to 65535");
    way_.AddOptions(options);
  }

  void CheckOptions() const override {
    uint32_t colour = 0;
    ParsePlace(place_);
    if (colour_.empty() != way_.output.empty()) throw Failure(Exit::kUsage, "", "--set and OUT go together");
    if (!colour_.empty() && !ParseColourValue(colour_, colour)) {
      throw Failure(Exit::kUsage, "", "'" + colour_ + "' is not a colour; write #rrggbb or gray:N");
    }
    if (!way_.output.empty()) way_.Check();
    way_.reading.Check();
  }

  std::string Subject() const override { return way_.input; }

  int Run(Console& console) override {
    seen_ = ParsePlace(place_);
    if (colour_.empty()) {
      const Loaded loaded = Load(way_.input, way_.reading, console);
      BitmapHandle& bitmap = loaded.bitmap->Handle();
      const Area at = Locate(bitmap);
      const uint32_t value = T_GetPixelColor(&bitmap, static_cast<int32_t>(at.top), static_cast<int32_t>(at.left));
      if (value == T_NO_COLOR) throw Failure(Exit::kOutput, way_.input, "temporary storage cannot be read");
      std::printf("%s\n", ColourValueName(value).c_str());
      FinishOutput();
    } else {
      const auto set = [&](FileToFile::Bitmaps& bitmaps) { Set(bitmaps.front()->Handle()); };
      way_.Run(
          false, [](const Shape& before) { return before; }, set, console);
    }
    return static_cast<int>(Exit::kOk);
  }

 private:
  Area Locate(const BitmapHandle& bitmap) const {
    const Area at = StoredArea(seen_, bitmap.ViewPerspective, bitmap.Width, bitmap.Height);
    if (at.left >= 0 && at.top >= 0 && at.left < bitmap.Width && at.top < bitmap.Height) return at;
    const bool swap = SidesSwap(bitmap.ViewPerspective);
    const int32_t width = swap ? bitmap.Height : bitmap.Width, height = swap ? bitmap.Width : bitmap.Height;
    throw Failure(Exit::kUsage, way_.input,
                  "has no pixel " + std::to_string(seen_.left) + "," + std::to_string(seen_.top) + ", it is " +
                      std::to_string(width) + " x " + std::to_string(height));
  }

  void Set(BitmapHandle& bitmap) const {
    const Area at = Locate(bitmap);
    uint32_t value = 0;
    ParseColourValue(colour_, value);
    const int32_t status = T_PutPixelColor(&bitmap, static_cast<int32_t>(at.top), static_cast<int32_t>(at.left), value);
    if (status != SUCCESS) ThrowStatus(status, way_.input, "setting a pixel");
  }

  FileToFile way_;
  std::string place_;
  std::string colour_;
  Area seen_;
};

}  // namespace

std::unique_ptr<Command> MakePixel() { return std::make_unique<PixelCommand>(); }

}  // namespace tarn::tool
