// tarn alpha: the opacity of a picture, taken out, put in, or dropped.

#include <algorithm>
#include <utility>

#include "Colours.h"
#include "Command.h"
#include "View.h"

namespace tarn::tool {
namespace {

/// Colours over a background as far as they are opaque; order blue or red first.
template <class Sample>
void Cover(Sample* pixel, int32_t count, const T_PaletteEntry& under, uint32_t order) {
  constexpr uint64_t kMost = sizeof(Sample) == 1 ? 255 : 65535;
  constexpr uint64_t kStep = kMost / 255;
  uint64_t below[3] = {under.Blue * kStep, under.Green * kStep, under.Red * kStep};
  if (order == T_ORDER_RGB) std::swap(below[0], below[2]);
  for (; count > 0; --count, pixel += 4) {
    const uint64_t opacity = pixel[3];
    for (int i = 0; i < 3; ++i) {
      pixel[i] = static_cast<Sample>((pixel[i] * opacity + below[i] * (kMost - opacity) + kMost / 2) / kMost);
    }
  }
}

class AlphaCommand final : public PictureCommand {
 public:
  const char* Name() const override { return "alpha"; }
  const char* Help() const override { return "take the opacity out of a picture, set it, or remove it"; }

  void AddOwnOptions(Options& options) override {
    options.Flag("--extract", extract_, "write the opacity as a gray picture");
    options.Text("--set", mask_, "FILE", "give the picture the opacity that a gray picture of its size shows");
    options.Number("--opacity", opacity_, 0, 255, "give every pixel this opacity, 255 is full");
    options.Flag("--remove", remove_, "drop the opacity; colours stay as they are");
    options.Text("--over", under_, "COLOUR", "with --remove: lay the picture over a colour, #rrggbb");
  }
  void CheckOwnOptions() const override {
    const int asked = extract_ + !mask_.empty() + (opacity_ >= 0) + remove_;
    if (asked != 1) throw Failure(Exit::kUsage, "", "one of --extract, --set, --opacity and --remove is needed");
    T_PaletteEntry colour{};
    if (!under_.empty() && !remove_) throw Failure(Exit::kUsage, "", "--over goes with --remove");
    if (!under_.empty() && !ParseColour(under_, colour)) {
      throw Failure(Exit::kUsage, "", "'" + under_ + "' is not a colour; write #rrggbb");
    }
  }

  Shape Plan(const Shape& before) override {
    Shape after = before;
    const Layout& layout = before.layout;
    if (extract_ || remove_) {
      if (!layout.Opacity()) throw Failure(Exit::kDepth, Input(), "has no opacity, it is " + NameOf(layout));
      const int32_t bits = layout.bits / 4;
      after.layout = extract_ ? GrayLayout(bits) : Layout{3 * bits, layout.order, {}};
    } else if (!layout.Opacity()) {
      const bool deep = layout.bits > 32 || (layout.order == T_ORDER_GRAY && layout.bits > 8);
      after.layout = {deep ? 64 : 32, T_ORDER_BGR, {}};
    }
    target_ = after.layout;
    return after;
  }

 protected:
  void Apply(std::unique_ptr<Bitmap>& bitmap, Console& console) override {
    if (extract_) {
      Extract(bitmap);
    } else if (remove_) {
      Remove(bitmap, console);
    } else {
      Convert(bitmap, console);  // to one with opacity, where it has none
      if (mask_.empty()) {
        EachRow(*bitmap, [&](uint8_t* line, const BitmapHandle& handle) {
          const int level = handle.BitsPerPixel == 64 ? opacity_ * 257 : opacity_;
          T_SetRowAlphaValues(handle.BitsPerPixel, line, handle.BytesPerLine, static_cast<uint16_t>(level));
        });
      } else {
        Set(bitmap->Handle(), console);
      }
    }
  }

 private:
  template <class Change>
  static void EachRow(Bitmap& bitmap, const Change& change) {
    std::vector<uint64_t> words(bitmap.BytesPerLine() / 8 + 1);  // aligned for samples of two bytes
    auto* const line = reinterpret_cast<uint8_t*>(words.data());
    for (int32_t row = 0; row < bitmap.Handle().Height; ++row) {
      bitmap.GetRow(row, line);
      change(line, bitmap.Handle());
      bitmap.PutRow(row, line);
    }
  }

  void Convert(std::unique_ptr<Bitmap>& bitmap, Console& console) const {
    if (LayoutOf(bitmap->Handle()) == target_) return;
    Progress progress(console, Input(), static_cast<uint64_t>(bitmap->Handle().Height), "converting");
    bitmap = Converted(*bitmap, target_, Storage(target_.bits), Input(), progress);
  }

  void Extract(std::unique_ptr<Bitmap>& bitmap) const {
    BitmapHandle& source = bitmap->Handle();
    bitmap = std::make_unique<Bitmap>(
        [&](BitmapHandle* made, uint32_t) { return T_GetBitmapAlpha(&source, made, sizeof *made); },
        Storage(target_.bits), Input(), "taking its opacity out");
  }

  void Remove(std::unique_ptr<Bitmap>& bitmap, Console& console) const {
    T_PaletteEntry under{};
    if (ParseColour(under_, under)) {
      EachRow(*bitmap, [&](uint8_t* line, const BitmapHandle& handle) {
        if (handle.BitsPerPixel == 64) {
          Cover(reinterpret_cast<uint16_t*>(line), handle.Width, under, handle.Order);
        } else {
          Cover(line, handle.Width, under, handle.Order);
        }
      });
    }
    Convert(bitmap, console);
  }

  void Set(BitmapHandle& target, Console& console) const {
    const Loaded mask = LoadSecond(mask_, console);
    BitmapHandle& alpha = mask.bitmap->Handle();
    const auto seen = [](const BitmapHandle& bitmap) {
      const bool swap = SidesSwap(bitmap.ViewPerspective);
      return swap ? std::pair{bitmap.Height, bitmap.Width} : std::pair{bitmap.Width, bitmap.Height};
    };
    if (seen(target) != seen(alpha)) {
      const auto text = [](std::pair<int32_t, int32_t> size) {
        return std::to_string(size.first) + " x " + std::to_string(size.second);
      };
      throw Failure(Exit::kUsage, mask_, "is " + text(seen(alpha)) + ", the picture " + text(seen(target)));
    }
    const LibraryProgress progress(console, Input(), "setting its opacity");
    Require(T_SetBitmapAlpha(&target, &alpha), "setting its opacity");
  }

  bool extract_ = false;
  bool remove_ = false;
  int opacity_ = -1;  // not given
  std::string mask_;
  std::string under_;
  Layout target_;
};

}  // namespace

std::unique_ptr<Command> MakeAlpha() { return std::make_unique<AlphaCommand>(); }

}  // namespace tarn::tool
