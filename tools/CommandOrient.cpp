// tarn orient: rows stored another way, or a picture seen another way.

#include <array>

#include "Command.h"
#include "View.h"

namespace tarn::tool {
namespace {

/// Where the first row and the first column are seen, as the orientation tags of files name it.
constexpr std::array<const char*, 8> kNames = {"top-left", "top-right", "bottom-right", "bottom-left",
                                               "left-top", "right-top", "right-bottom", "left-bottom"};

/// One of the names or its number. 0: neither.
uint32_t PerspectiveNamed(const std::string& text) {
  for (uint32_t i = 0; i < kNames.size(); ++i) {
    if (text == kNames[i] || text == std::to_string(i + 1)) return i + 1;
  }
  return 0;
}

class OrientCommand final : public PictureCommand {
 public:
  const char* Name() const override { return "orient"; }
  const char* Help() const override { return "store rows another way, or change the orientation mark alone"; }

  void AddOwnOptions(Options& options) override {
    options.Text("--to", text_, "NAME",
                 "where the first row and column are seen: top-left (the default), top-right, bottom-right, "
                 "bottom-left, left-top, right-top, right-bottom, left-bottom, or 1 to 8 in this order");
    options.Flag("--mark-only", markOnly_, "leave the pixels where they are; the picture is seen another way");
  }
  void CheckOwnOptions() const override {
    if (PerspectiveNamed(text_) != 0) return;
    std::string known;
    for (const char* name : kNames) known += std::string(known.empty() ? "" : ", ") + name;
    throw Failure(Exit::kUsage, "", "'" + text_ + "' is not one of " + known + ", or 1 to 8");
  }

  Shape Plan(const Shape& before) override {
    Shape after = before;
    after.orientation = PerspectiveNamed(text_);
    if (!markOnly_ && SidesSwap(after.orientation) != SidesSwap(before.orientation)) {
      std::swap(after.width, after.height);
    }
    return after;
  }

 protected:
  void Apply(std::unique_ptr<Bitmap>& bitmap, Console&) override {
    BitmapHandle& handle = bitmap->Handle();
    const uint32_t to = PerspectiveNamed(text_);
    if (markOnly_) {
      handle.ViewPerspective = to;
    } else {
      Require(T_ChangeBitmapViewPerspective(nullptr, &handle, sizeof handle, to), "turning its rows");
    }
  }

 private:
  std::string text_ = kNames[0];
  bool markOnly_ = false;
};

}  // namespace

std::unique_ptr<Command> MakeOrient() { return std::make_unique<OrientCommand>(); }

}  // namespace tarn::tool
