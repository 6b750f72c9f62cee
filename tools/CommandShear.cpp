// tarn shear: a picture slanted.

#include "Command.h"
#include "Rotation.h"
#include "View.h"

namespace tarn::tool {
namespace {

constexpr int32_t kMostAngle = 8999;  // hundredths of a degree

class ShearCommand final : public PictureCommand {
 public:
  const char* Name() const override { return "shear"; }
  const char* Help() const override { return "slant a picture"; }

  void AddOwnOptions(Options& options) override {
    options.Argument("angle", text_, "ANGLE", "degrees, -89.99 to 89.99; positive ones lean the top to the right");
    options.Flag("--vertical", vertical_, "columns move up and down, not rows sideways");
    fill_.AddOption(options);
  }
  void CheckOwnOptions() const override {
    int32_t angle = 0;
    if (!ParseAngle(text_, angle) || angle < -kMostAngle || angle > kMostAngle) {
      throw Failure(Exit::kUsage, "", "'" + text_ + "' is not an angle of -89.99 to 89.99 degrees");
    }
    fill_.Check();
  }

  Shape Plan(const Shape& before) override {
    ParseAngle(text_, angle_);
    Shape after = UprightShape(before);
    if (angle_ != 0) after.width = after.height = 0;  // the library tells
    return after;
  }

 protected:
  void Apply(std::unique_ptr<Bitmap>& bitmap, Console& console) override {
    const LibraryProgress progress(console, Input(), "slanting");
    // Rows lean where they are stored: upright, that is where they are seen.
    MakeUpright(bitmap->Handle(), Input());
    Require(T_ShearBitmap(&bitmap->Handle(), angle_, vertical_ ? 0 : 1, fill_.Value()), "slanting it");
  }

 private:
  std::string text_;
  int32_t angle_ = 0;  // hundredths of a degree
  bool vertical_ = false;
  Fill fill_;
};

}  // namespace

std::unique_ptr<Command> MakeShear() { return std::make_unique<ShearCommand>(); }

}  // namespace tarn::tool
