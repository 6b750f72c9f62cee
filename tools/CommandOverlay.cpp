// tarn overlay: one bit of a gray picture's pixels, out as a picture or in from one.

#include "Command.h"
#include "View.h"

namespace tarn::tool {
namespace {

class OverlayCommand final : public PictureCommand {
 public:
  const char* Name() const override { return "overlay"; }
  const char* Help() const override { return "take a plane of bits out of a gray picture, or put one in"; }

  void AddOwnOptions(Options& options) override {
    options.Number("--bit", bit_, 0, 15, "which bit of the pixels, 0 (default) is the lowest");
    options.Flag("--take", take_, "write the bits as a black and white picture");
    options.Text("--put", mask_, "FILE", "put the pixels of a black and white picture into the bits");
    options.Text("--at", place_, "X,Y", "with --put: where its upper left corner goes, as seen; 0,0 if not given");
  }
  void CheckOwnOptions() const override {
    if (take_ == !mask_.empty()) throw Failure(Exit::kUsage, "", "one of --take and --put is needed");
    if (!place_.empty() && mask_.empty()) throw Failure(Exit::kUsage, "", "--at goes with --put");
    if (!place_.empty()) ParsePlace(place_);
  }

  Shape Plan(const Shape& before) override {
    const Layout& layout = before.layout;
    if (layout.bits != 8 && !(layout.order == T_ORDER_GRAY && layout.bits >= 12 && layout.bits <= 16)) {
      throw Failure(Exit::kDepth, Input(), "has no planes of bits, it is " + NameOf(layout) + "; convert it to gray");
    }
    if (bit_ >= layout.bits) {
      throw Failure(Exit::kUsage, Input(), "has " + std::to_string(layout.bits) + " bits a pixel, from 0 on");
    }
    Shape after = before;
    if (take_) after.layout = GrayLayout(1);
    return after;
  }

 protected:
  void Apply(std::unique_ptr<Bitmap>& bitmap, Console& console) override {
    BitmapHandle& owner = bitmap->Handle();
    T_OverlayAttributes attributes{sizeof attributes, 0, 0, 0, 0, bit_};
    Require(T_SetOverlayAttributes(&owner, 0, &attributes, T_OVERLAY_BIT), "finding its bits");
    if (take_) {
      Require(T_MoveOverlayBits(&owner, 0, T_OVERLAY_FROM_BITMAP), "taking its bits out");
      bitmap = std::make_unique<Bitmap>(
          [&](BitmapHandle* made, uint32_t) {
            return T_GetOverlayBitmap(&owner, 0, made, sizeof *made, T_OVERLAY_MOVE);
          },
          Storage(1), Input(), "taking its bits out");
      return;
    }
    const Loaded loaded = LoadSecond(mask_, console, owner.ViewPerspective);
    BitmapHandle& mask = loaded.bitmap->Handle();
    if (mask.BitsPerPixel != 1) throw Failure(Exit::kDepth, mask_, "is not a picture of one bit a pixel");
    Area to = SeenArea(owner.ViewPerspective, mask.Width, mask.Height);
    if (!place_.empty()) {
      const Area place = ParsePlace(place_);
      to.left = place.left;
      to.top = place.top;
    }
    to = StoredArea(to, owner.ViewPerspective, owner.Width, owner.Height);
    attributes.Left = Coordinate(to.left, Input(), "the place");
    attributes.Top = Coordinate(to.top, Input(), "the place");
    Require(T_SetOverlayBitmap(&owner, 0, &mask, T_OVERLAY_COPY), "laying it on");
    Require(T_SetOverlayAttributes(&owner, 0, &attributes, T_OVERLAY_POSITION), "laying it on");
    Require(T_MoveOverlayBits(&owner, 0, T_OVERLAY_TO_BITMAP), "putting the bits in");
    Require(T_SetOverlayBitmap(&owner, 0, nullptr, 0), "putting the bits in");
  }

 private:
  int bit_ = 0;
  bool take_ = false;
  std::string mask_;
  std::string place_;
};

}  // namespace

std::unique_ptr<Command> MakeOverlay() { return std::make_unique<OverlayCommand>(); }

}  // namespace tarn::tool
