// tarn overlay: one bit of a gray picture's pixels, out as a picture or in from one.

#include <limits>

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
    Area area;
    if (!place_.empty() && mask_.empty()) throw Failure(Exit::kUsage, "", "--at goes with --put");
    if (!place_.empty() && !ParsePlace(place_, area)) {
      throw Failure(Exit::kUsage, "", "'" + place_ + "' is not a place; write X,Y");
    }
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
    ReadOptions reading;
    reading.storage = Storage(0);
    const Loaded loaded = Load(mask_, reading, console);
    BitmapHandle& mask = loaded.bitmap->Handle();
    if (mask.BitsPerPixel != 1) throw Failure(Exit::kDepth, mask_, "is not a picture of one bit a pixel");
    if (mask.ViewPerspective != owner.ViewPerspective) {
      const int32_t status =
          T_ChangeBitmapViewPerspective(nullptr, &mask, sizeof mask, static_cast<uint32_t>(owner.ViewPerspective));
      if (status != SUCCESS) ThrowStatus(status, mask_, "turning it");
    }
    const bool swap = SidesSwap(owner.ViewPerspective);
    Area to;
    if (!place_.empty()) ParsePlace(place_, to);
    to.width = swap ? mask.Height : mask.Width;
    to.height = swap ? mask.Width : mask.Height;
    to = StoredArea(to, owner.ViewPerspective, owner.Width, owner.Height);
    attributes.Left = Coordinate(to.left);
    attributes.Top = Coordinate(to.top);
    Require(T_SetOverlayBitmap(&owner, 0, &mask, T_OVERLAY_COPY), "laying it on");
    Require(T_SetOverlayAttributes(&owner, 0, &attributes, T_OVERLAY_POSITION), "laying it on");
    Require(T_MoveOverlayBits(&owner, 0, T_OVERLAY_TO_BITMAP), "putting the bits in");
    Require(T_SetOverlayBitmap(&owner, 0, nullptr, 0), "putting the bits in");
  }

 private:
  int32_t Coordinate(int64_t value) const {
    if (value >= std::numeric_limits<int32_t>::min() && value <= std::numeric_limits<int32_t>::max()) {
      return static_cast<int32_t>(value);
    }
    throw Failure(Exit::kUsage, Input(), "the place is too far away");
  }

  int bit_ = 0;
  bool take_ = false;
  std::string mask_;
  std::string place_;
};

}  // namespace

std::unique_ptr<Command> MakeOverlay() { return std::make_unique<OverlayCommand>(); }

}  // namespace tarn::tool
